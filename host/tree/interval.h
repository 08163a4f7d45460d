#pragma once

// How long a profile waits between two runs.

#include <cstdint>
#include <string>

namespace tarvex::host {

// In seconds. Up to 1,439 minutes it is what `timer` says; the engine counts the hours of longer ones differently
// (1,440 minutes wait 48 hours), and hosts have to say so.
std::int64_t WaitSeconds(int timer_minutes);

// "at every call", "every 10 minutes", "every 48 hours".
std::string WaitInWords(int timer_minutes);

}  // namespace tarvex::host
