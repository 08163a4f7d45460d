#pragma once

#include <string>

namespace tarvex::testing {

// A text that was made of a reset connection, as it is compared: where the system may show a reset as an ordinary end
// of the connection, both read as the end.
std::string WithResetAsSeen(std::string text);

}  // namespace tarvex::testing
