#pragma once

// Two connected sockets of this process, which nobody else can reach.

#include <cstdint>
#include <optional>
#include <string_view>

#include "tarvex/connection.h"

namespace tarvex::host {

struct SocketPair {
    CConnection for_run;
    CConnection for_tunnel;
};

// Nothing when the system has no more sockets. No port listens once it has returned, and none ever listens where the
// system has pairs. Elsewhere a port of the loopback listens for this one connection; it is closed before the pair is
// used, and a connection from anybody else ends the attempt.
std::optional<SocketPair> MakeSocketPair();

// Sends a few bytes over an end of a pair that is new: they fit into what the system keeps for it.
void SendLine(const CConnection& end, std::string_view bytes);

}  // namespace tarvex::host
