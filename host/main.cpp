// The command `tarvex`.

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <stdexcept>

#include "host/commands.h"
#include "host/trouble.h"

int main(int argc, char** argv) {
    using namespace tarvex::host;

    CLI::App app("Tarvex fetches mail from POP3 mailboxes and forwards every new message over SMTP.", "tarvex");
    app.set_version_flag("--version", "tarvex " TARVEX_VERSION);
    app.require_subcommand(1);
    app.fallthrough();  // --root may stand behind the command as well

    Context context;
    app.add_option("--root", context.root_option,
                   "Root directory of the data tree, in place of the one that appset.def names")
        ->type_name("DIR");
    AddInitCommands(app, context);
    AddTreeCommands(app, context);
    AddScheduleCommands(app, context);
    AddRunCommand(app, context);
    AddCheckCommand(app, context);
    AddPlanCommand(app, context);
    AddStatusCommand(app, context);
    AddLogCommand(app, context);
    app.add_subcommand("demo", "Forward a small mailbox between two servers on this machine, and show it.")
        ->callback([&context] { context.command = Demo; });

    try {
        app.parse(argc, argv);
        const int code = context.command();
        if (!std::cout.flush()) throw std::runtime_error("cannot write to standard output");
        return code;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kDone : kBadUsage;
    } catch (const Trouble& trouble) {
        std::cerr << "tarvex: " << trouble.what() << '\n';
        return trouble.ExitCode();
    } catch (const std::exception& error) {
        std::cerr << "tarvex: " << error.what() << '\n';
        return kBroken;
    }
}
