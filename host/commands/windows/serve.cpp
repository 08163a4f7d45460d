// `tarvex serve`: the service, started in a console or by Windows' service manager.

#include <CLI/CLI.hpp>
#include <exception>
#include <functional>
#include <memory>
#include <string>

#include "host/commands/arguments/serve_options.h"
#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/service/log/system_log.h"
#include "host/system/command_error.h"
#include "host/system/windows/managed_process.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {

namespace {

// Nobody sees the standard error of a service.
int OrLogged(const std::function<int()>& work) {
    const auto log = [](const char* why) {
        (void)SystemLog("").Take({LogLevel::Error, std::string("cannot go on: ") + why, {}});
    };
    try {
        return work();
    } catch (const CommandError& error) {
        log(error.what());
        return error.ExitCode();
    } catch (const std::exception& error) {
        log(error.what());
        return kBroken;
    }
}

}  // namespace

void AddServeCommand(CLI::App& app, Context& context) {
    CLI::App* const serve = app.add_subcommand(
        "serve", Tr("Run every profile whenever it is due, until Ctrl+C, Ctrl+Break, or the end of the session."));
    const ServeOptions::Texts texts = {
        "eventlog",
        Tr("plain: lines behind the time; eventlog: entries of the event log; json: a JSON object a line. Without it "
           "eventlog where the system's service manager has started it, else plain"),
        Tr("Answer the console in the browser (tarvex-console) on the named pipe NAME"), "NAME"};
    const auto options = std::make_shared<ServeOptions>(*serve, texts);
    const auto is_managed = std::make_shared<bool>(false);
    serve->add_flag("--service", *is_managed)->group("");  // what `tarvex service install` has the manager say
    serve->callback([&context, options, is_managed] {
        context.command = [&context, options, is_managed] {
            const auto work = [&] { return options->Serve(RootDirectory(context.root_option), *is_managed); };
            return *is_managed ? RunManaged([&work] { return OrLogged(work); }) : work();
        };
    });
}

std::string HowToKeepRunning(const std::string& tarvex) {
    return Tr(
        "{0} serve (or, in an administrator's console, as a service of Windows: {0} service install, then {0} "
        "service start)",
        tarvex);
}

}  // namespace tarvex::host
