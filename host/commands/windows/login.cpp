// Windows has no `tarvex login`: a program prints the tokens (`token_command` of host.def).

#include <string>

#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"

namespace tarvex::host {
namespace {

[[noreturn]] void SayHow() {
    throw CommandError(kBadSettings,
                       Tr("the provider wants tokens and no password; here a program prints them: name it "
                          "with --token_command (docs/tokens.md)"));
}

}  // namespace

void RequireProvider(const std::string& /*root*/, const std::string& /*provider*/) { SayHow(); }

int LogInAtProvider(const Context& /*context*/, const std::string& /*profile*/, const std::string& /*provider*/) {
    SayHow();
}

void AddLoginCommand(CLI::App&, Context&) {}

}  // namespace tarvex::host
