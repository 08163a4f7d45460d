// How a reset connection reads on POSIX.

#include "tests/support/reset.h"

namespace tarvex::testing {

std::string WithResetAsSeen(std::string text) { return text; }

}  // namespace tarvex::testing
