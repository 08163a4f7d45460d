#pragma once

// The commands of `tarvex`: what they share, and how each adds itself to the command line.

#include <functional>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace tarvex::host {

// What the command line said.
struct Context {
    std::optional<std::string> root_option;  // of --root
    std::function<int()> command;            // the chosen one; returns the exit code of the program
};

// Each adds its commands below the application. A chosen command is left in the context.
void AddInitCommands(CLI::App& app, Context& context);
void AddTreeCommands(CLI::App& app, Context& context);
void AddScheduleCommands(CLI::App& app, Context& context);
void AddRulesCommands(CLI::App& app, Context& context);
void AddRunCommand(CLI::App& app, Context& context);
void AddServeCommand(CLI::App& app, Context& context);
void AddServiceCommands(CLI::App& app, Context& context);
void AddCheckCommand(CLI::App& app, Context& context);
void AddPlanCommand(CLI::App& app, Context& context);
void AddStatusCommand(CLI::App& app, Context& context);
void AddLogCommand(CLI::App& app, Context& context);
void AddHistoryCommand(CLI::App& app, Context& context);
void AddMetricsCommand(CLI::App& app, Context& context);
void AddTraceCommand(CLI::App& app, Context& context);
void AddHealthCommand(CLI::App& app, Context& context);
void AddAlertCommands(CLI::App& app, Context& context);
void AddLoginCommand(CLI::App& app, Context& context);
void AddHeldCommands(CLI::App& app, Context& context);
void AddAcceptCommands(CLI::App& app, Context& context);
void AddGenerationCommand(CLI::App& app, Context& context);
void AddImportCommands(CLI::App& app, Context& context);
void AddBackupCommands(CLI::App& app, Context& context);
void AddSetupCommand(CLI::App& app, Context& context);
void AddConsoleCommands(CLI::App& app, Context& context);
void AddDemoCommand(CLI::App& app, Context& context);

// Parts of commands that `tarvex setup` has, too. They throw CommandError.

// The directory that `tarvex init` would make, and its work: makes the tree with its rules, and remembers it.
std::string TreeToMake(const Context& context);
void MakeTree(const Context& context);

// What `tarvex check` does with one profile. `dns_server` as DnsSettings::server.
int CheckProfile(const Context& context, const std::string& profile, const std::string& dns_server);

// Refuses where no such provider of tokens is described, and for an empty name not just one. `root` is a tree's path.
void RequireProvider(const std::string& root, const std::string& provider);

// What `tarvex login` does.
int LogInAtProvider(const Context& context, const std::string& profile, const std::string& provider);

// Without a command: says in a few lines what is to be done next. Returns the exit code; throws CommandError.
int NextStep(const Context& context);

// How a tree is run from now on; `tarvex` is the command with its root.
std::string HowToKeepRunning(const std::string& tarvex);

// Keeps forwarding a small mailbox between two servers on loopback, with the console at this port of 127.0.0.1, 0 for a
// free one, until a signal comes. Returns the exit code; throws CommandError.
int DemoInBrowser(int port);

}  // namespace tarvex::host
