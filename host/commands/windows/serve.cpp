// Windows has no `tarvex serve`.

#include "host/commands/commands.h"

namespace tarvex::host {

// There is no such command: the system's task scheduler starts `tarvex run` every minute or so.
void AddServeCommand(CLI::App&, Context&) {}

}  // namespace tarvex::host
