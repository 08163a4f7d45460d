// POSIX has no `tarvex service`: systemd's own command installs, starts and stops services.

#include "host/commands/commands.h"

namespace tarvex::host {

void AddServiceCommands(CLI::App&, Context&) {}

}  // namespace tarvex::host
