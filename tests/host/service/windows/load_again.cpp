// Only the service manager has a service load its tree again on Windows.

#include "tests/host/service/served_tree.h"

namespace tarvex::testing {

void ServiceProcess::LoadAgain() const {}

}  // namespace tarvex::testing
