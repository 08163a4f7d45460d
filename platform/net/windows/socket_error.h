#pragma once

// Why the system refused a socket operation, in the words that it has on POSIX, so that logs read the same everywhere;
// "error" and the number for what is rare.

#include <string>

#include "platform/net/failure.h"

namespace tarvex {

std::string SocketErrorText(int error);

// Why no connection came about.
FailureKind ConnectFailureKind(int error);

}  // namespace tarvex
