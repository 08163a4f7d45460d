// The console does not run here.

#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"

namespace tarvex::host {

int DemoInBrowser(int /*port*/) { throw CommandError(kUnavailable, Tr("tarvex-console does not run on Windows")); }

}  // namespace tarvex::host
