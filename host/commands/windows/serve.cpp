// `tarvex serve`: the service, started in a console.

#include <CLI/CLI.hpp>
#include <memory>

#include "host/commands/arguments/serve_options.h"
#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/service/service.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {

void AddServeCommand(CLI::App& app, Context& context) {
    CLI::App* const serve = app.add_subcommand(
        "serve", Tr("Run every profile whenever it is due, until Ctrl+C, Ctrl+Break, or the end of the session."));
    const auto options = std::make_shared<ServeOptions>(
        *serve, "eventlog",
        Tr("plain: lines behind the time; eventlog: entries of the event log; json: a JSON object a line. Without it "
           "eventlog where the system's service manager has started it, else plain"));
    serve->callback([&context, options] {
        context.command = [&context, options] {
            return options->MakeService(RootDirectory(context.root_option))->Run();
        };
    });
}

std::string HowToKeepRunning(const std::string& tarvex) { return tarvex + " serve"; }

}  // namespace tarvex::host
