// A service of POSIX is a program like any other.

#include "console/service_start.h"

namespace tarvex::console {

int RunAsService(const std::function<int()>& work) { return work(); }

}  // namespace tarvex::console
