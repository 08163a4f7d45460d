// The console as a service of Windows.

#include "console/service_start.h"

#include "host/system/windows/managed_process.h"

namespace tarvex::console {

int RunAsService(const std::function<int()>& work) { return host::RunManaged(work); }

}  // namespace tarvex::console
