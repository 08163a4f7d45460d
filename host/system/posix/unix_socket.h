#pragma once

// What all who listen at a path do.

#include <sys/un.h>

#include <optional>
#include <string>

namespace tarvex::host {

// Nothing for a path that is empty or too long for a socket.
std::optional<sockaddr_un> UnixAddress(const std::string& path);

// Removes a socket that a program left which is no more. One that somebody listens at stays, and so does what is no
// socket.
void RemoveLeftOver(const std::string& path, const sockaddr_un& address);

}  // namespace tarvex::host
