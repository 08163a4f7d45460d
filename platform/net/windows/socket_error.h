#pragma once

// Why the system refused a socket operation, in the words that it has on POSIX: logs read the same everywhere.

#include <string>

namespace tarvex {

std::string SocketErrorText(int error);

}  // namespace tarvex
