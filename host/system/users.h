#pragma once

// Users of the system.

#include <cstdint>
#include <string>

namespace tarvex::host {

// As whom this process works, by the system's number; -1 where users have none.
std::int64_t CurrentUser();

// The name of a user (UTF-8); the number where there is no name.
std::string UserName(std::int64_t number);

// Who called this command: before sudo, and before it began to work as the owner of a tree. To be asked for the first
// time before the latter.
const std::string& CallingUser();

}  // namespace tarvex::host
