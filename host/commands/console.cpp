// `tarvex console init`: the way of the first administrator into the console.

#include <CLI/CLI.hpp>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>

#include "host/commands/commands.h"
#include "host/desk/login/first_login.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

int MakeFirst(const Context& context, std::string url) {
    const std::string directory = RootDirectory(context.root_option);
    RequireRoot(directory);
    while (url.ends_with('/')) url.pop_back();
    const std::string code = MakeFirstLogin(directory, std::time(nullptr));
    std::cout << Tr("Open this within an hour; it works once, and makes whoever has it an administrator:") << '\n'
              << '\n'
              << "  " << url << "/first?code=" << code << "\n\n";
    return kDone;
}

}  // namespace

void AddConsoleCommands(CLI::App& app, Context& context) {
    CLI::App* const group =
        app.add_subcommand("console", Tr("The console in the browser (tarvex-console)."))->require_subcommand(1);
    CLI::App* const init = group->add_subcommand("init", Tr("Print a link by which the first administrator logs in."));
    init->footer(Tr("For whoever has lost the password, too: an administrator of that name gets the new one."));
    const auto url = std::make_shared<std::string>("http://127.0.0.1:8480");
    init->add_option("--url", *url, Tr("Where the console is seen from outside (http://127.0.0.1:8480)"))
        ->type_name("URL");
    init->callback([&context, url] { context.command = [&context, url] { return MakeFirst(context, *url); }; });
}

}  // namespace tarvex::host
