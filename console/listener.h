#pragma once

// Where browsers, or a reverse proxy before the console, connect.

#include <sys/socket.h>
#include <string>

#include "host/system/posix/descriptor.h"

namespace tarvex::console {

// unix:PATH, ADDRESS:PORT or [ADDRESS]:PORT.
struct Place {
    std::string path;  // of a Unix socket; empty for an address
    std::string address;
    int port = 0;  // 0: one that is free
};

// Throws CommandError for what is none of these. An address is an IP address, not a name.
Place PlaceOf(const std::string& text);

// Whether the place can be reached from this machine alone.
bool IsLocalPlace(const Place& place);

// Listens there. A Unix socket is for its owner and the group (of the process when none is named), and one that was
// left behind is replaced. Throws CommandError.
host::Descriptor ListenAt(const Place& place, const std::string& group);

// The address at the other end; empty for a Unix socket.
std::string AddressIn(const sockaddr* address);

// The port that a socket listens at; 0 for a Unix socket.
int PortOf(const host::Descriptor& socket);

}  // namespace tarvex::console
