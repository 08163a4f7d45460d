// Windows has no `tarvex serve`.

#include "host/commands/commands.h"

namespace tarvex::host {

// There is no such command: the system's task scheduler starts `tarvex run` every minute or so.
void AddServeCommand(CLI::App&, Context&) {}

std::string HowToKeepRunning(const std::string& tarvex) {
    return "let the system's task scheduler start `" + tarvex + " run` every minute";
}

}  // namespace tarvex::host
