// Windows has no `tarvex serve`.

#include "host/commands/commands.h"
#include "host/language/tr.h"

namespace tarvex::host {

// There is no such command: the system's task scheduler starts `tarvex run` every minute or so.
void AddServeCommand(CLI::App&, Context&) {}

std::string HowToKeepRunning(const std::string& tarvex) {
    return Tr("let the system's task scheduler start `{0} run` every minute", tarvex);
}

}  // namespace tarvex::host
