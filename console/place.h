#pragma once

// Where browsers, or a reverse proxy before the console, connect.

#include <string>

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

}  // namespace tarvex::console
