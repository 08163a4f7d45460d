// Has a service load its tree again, by a signal.

#include <csignal>

#include "tests/host/service/served_tree.h"

namespace tarvex::testing {

void ServiceProcess::LoadAgain() const { Signal(SIGHUP); }

}  // namespace tarvex::testing
