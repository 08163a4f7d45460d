#pragma once

// Lets the guard of a run answer for its connections.

#include "platform/net/sockets.h"
#include "tarvex/guard.h"

namespace tarvex {

// Has the guard asked about every connection of the socket. All three must outlive its last connecting.
void LetGuardConnect(CBaseSocket& socket, CRunGuard& guard, const CPopProfile& profile, CProtocol protocol);

}  // namespace tarvex
