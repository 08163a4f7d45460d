#pragma once

// Why the system refused a socket operation, in the words that it has on POSIX, so that logs read the same everywhere;
// "error" and the number for what is rare.

#include <string>

namespace tarvex {

std::string SocketErrorText(int error);

}  // namespace tarvex
