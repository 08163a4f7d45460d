// Windows has no `tarvex login`.

#include "host/commands/commands.h"

namespace tarvex::host {

// There is no such command: a program prints the tokens (`token_command` of host.def).
void AddLoginCommand(CLI::App&, Context&) {}

}  // namespace tarvex::host
