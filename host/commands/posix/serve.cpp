// `tarvex serve`: the service.

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>

#include "host/commands/arguments/serve_options.h"
#include "host/commands/commands.h"
#include "host/desk/posix/desk_server.h"
#include "host/language/tr.h"
#include "host/service/service.h"
#include "host/system/command_error.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

DeskOptions OptionsOfDesk(const std::string& directory, Service& service) {
    std::error_code error;
    const std::string program = std::filesystem::read_symlink("/proc/self/exe", error).string();
    if (error) throw CommandError(kBroken, Tr("cannot find this program: {0}", error.message()));
    return {directory, program, [&service](const std::string& sentence) { service.Warn(sentence); },
            [&service] { return service.Changes(); }};
}

}  // namespace

void AddServeCommand(CLI::App& app, Context& context) {
    CLI::App* const serve = app.add_subcommand(
        "serve", Tr("Run every profile whenever it is due, until SIGTERM or SIGINT. SIGHUP loads the tree again."));
    const auto options = std::make_shared<ServeOptions>(
        *serve, "journal",
        Tr("plain: lines behind the time; journal: entries of the journal with fields; json: a JSON object "
           "a line. Without it journal where standard error is the journal's, else plain"));
    auto console = std::make_shared<std::string>();
    serve
        ->add_option("--console", *console, Tr("Answer the console in the browser (tarvex-console) on the socket PATH"))
        ->envname("TARVEX_CONSOLE")
        ->type_name("PATH");
    auto group = std::make_shared<std::string>();
    serve->add_option("--console-group", *group, Tr("Who may connect to that socket beside the service's own user"))
        ->type_name("GROUP");
    serve->callback([&context, options, console, group] {
        context.command = [&context, options, console, group] {
            const std::string directory = RootDirectory(context.root_option);
            const std::unique_ptr<Service> service = options->MakeService(directory);
            std::optional<DeskServer> desk;
            if (!console->empty()) desk.emplace(OptionsOfDesk(directory, *service), *console, *group);
            return service->Run();
        };
    });
}

std::string HowToKeepRunning(const std::string& tarvex) {
    return Tr("{0} serve (with the packages: sudo systemctl enable --now tarvex)", tarvex);
}

}  // namespace tarvex::host
