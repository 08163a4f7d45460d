#pragma once

// A connected socket that changes hands, and whom a connection asks for one.

#include <cstdint>
#include <functional>
#include <string>

namespace tarvex {

// None is -1.
struct GivenSocket {
    std::intptr_t socket = -1;
    bool is_secured = false;  // whoever gave it answers for encryption
};

// Where it gives none, the connection connects by itself. `connect` does just that and gives the socket away: -1 when
// it fails.
using SocketGiver =
    std::function<GivenSocket(const std::string& server, int port, const std::function<std::intptr_t()>& connect)>;

}  // namespace tarvex
