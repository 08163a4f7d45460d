// The command `tarvex`: builds the command line out of the commands, runs the chosen one, reports its error.

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "host/commands/arguments/completion.h"
#include "host/commands/arguments/help_formatter.h"
#include "host/commands/arguments/usage.h"
#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/memory.h"
#include "host/system/paths.h"
#include "host/system/process.h"
#include "host/system/tree_owner.h"
#include "host/tree/tree_root.h"

int main(int argc, char** argv) {
    using namespace tarvex::host;

    FillStandardStreams();
    SurviveFileSizeLimit();
    GiveLargeMemoryBackAtOnce();
    ShowUtf8();
    UseCatalogues(NativePath(ProgramDirectory() + "\\..\\share\\locale"));
    SpeakTo(UsersLanguage());
    const std::vector<std::string> words = Arguments(argc, argv);
    CLI::App app(Tr("Tarvex fetches mail from POP3 mailboxes and forwards every new message over SMTP."), "tarvex");
    app.set_help_flag("-h,--help", Tr("Print this help message and exit"));
    app.set_version_flag("--version", "tarvex " TARVEX_VERSION, Tr("Display program version information and exit"));
    app.formatter(std::make_shared<HelpFormatter>());
    app.require_subcommand(0, 1);
    app.fallthrough();  // --root may stand behind the command as well

    Context context;
    app.add_option("--root", context.root_option,
                   Tr("Root directory of the data tree, instead of the one that appset.def in {0} names",
                      ShowPath(ConfigurationDirectory())))
        ->type_name("DIR");
    AddSetupCommand(app, context);
    AddInitCommands(app, context);
    AddTreeCommands(app, context);
    AddScheduleCommands(app, context);
    AddRulesCommands(app, context);
    AddRunCommand(app, context);
    AddServeCommand(app, context);
    AddServiceCommands(app, context);
    AddCheckCommand(app, context);
    AddPlanCommand(app, context);
    AddStatusCommand(app, context);
    AddLogCommand(app, context);
    AddTraceCommand(app, context);
    AddHistoryCommand(app, context);
    AddMetricsCommand(app, context);
    AddHealthCommand(app, context);
    AddAlertCommands(app, context);
    AddLoginCommand(app, context);
    AddHeldCommands(app, context);
    AddAcceptCommands(app, context);
    AddGenerationCommand(app, context);
    AddImportCommands(app, context);
    AddBackupCommands(app, context);
    AddConsoleCommands(app, context);
    AddDemoCommand(app, context);

    if (words.size() > 1 && words[1] == kCompletionCommand)
        return PrintCompletions(app, {words.begin() + 2, words.end()});
    try {
        // The last word first, as the library wants a list of them.
        app.parse(std::vector<std::string>(words.rbegin(), words.rend() - 1));
        if (PrintsJson(app)) SpeakTo(Language::English);  // to programs, whoever runs them
        if (context.root_option) context.root_option = TreePath(*context.root_option);
        const int code = context.command ? context.command() : NextStep(context);
        if (!std::cout.flush()) throw CommandError(kCannotWrite, Tr("cannot write to standard output"));
        return code;
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
        std::cerr << "tarvex: " << UsageTrouble(app, words, error) << '\n';
        return kBadUsage;
    } catch (const CommandError& error) {
        std::cerr << "tarvex: " << error.what() << '\n';
        return error.ExitCode();
    } catch (const std::exception& error) {
        std::cerr << "tarvex: " << error.what() << '\n';
        return kBroken;
    }
}
