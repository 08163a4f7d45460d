// `tarvex serve`: the service.

#include <CLI/CLI.hpp>
#include <memory>

#include "host/commands/arguments/serve_options.h"
#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {

void AddServeCommand(CLI::App& app, Context& context) {
    CLI::App* const serve = app.add_subcommand(
        "serve", Tr("Run every profile whenever it is due, until SIGTERM or SIGINT. SIGHUP loads the tree again."));
    const ServeOptions::Texts texts = {
        "journal",
        Tr("plain: lines behind the time; journal: entries of the journal with fields; json: a JSON object "
           "a line. Without it journal where standard error is the journal's, else plain"),
        Tr("Answer the console in the browser (tarvex-console) on the socket PATH"), "PATH"};
    const auto options = std::make_shared<ServeOptions>(*serve, texts);
    options->AddConsoleGroup(*serve);
    serve->callback([&context, options] {
        context.command = [&context, options] { return options->Serve(RootDirectory(context.root_option)); };
    });
}

std::string HowToKeepRunning(const std::string& tarvex) {
    return Tr("{0} serve (with the packages: sudo systemctl enable --now tarvex)", tarvex);
}

}  // namespace tarvex::host
