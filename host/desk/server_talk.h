#pragma once

// Work of a job that waits for servers: a server may be slow for as long as it likes, the desk may not wait so long.

#include <chrono>
#include <functional>

#include "host/desk/jobs.h"

namespace tarvex::host {

inline constexpr std::chrono::minutes kMostTalk{5};

// Does it on a thread that can be interrupted, and waits for its end: as soon as the job is to end, and after so long,
// its conversations end. Throws what it throws; CommandError where it took too long; std::system_error without a
// thread.
void TalkToServers(const JobVoice& voice, const std::function<void()>& talk,
                   std::chrono::milliseconds most = kMostTalk);

}  // namespace tarvex::host
