#pragma once

// Trees of many profiles, with the files of an installation that has run for a while.

#include <string>
#include <vector>

namespace tarvex::bench {

struct TreeShape {
    int profiles = 0;
    int pop_port = 0;  // of 127.0.0.1, as the next
    int smtp_port = 0;
    std::string known_ids;  // uidl.def of every address
};

inline constexpr int kProfilesOfAUser = 10;

// Profile i has 1 + i % 3 addresses, so two in the middle.
constexpr int AddressesOf(int profile) { return 1 + profile % 3; }
std::string NameOf(int profile);  // "user0/from0"

// Makes users, profiles, addresses with their lists of ids and a schedule each, logs, a host.def with a reader of
// alerts, and the history of one run of each profile. No profile is due for a day. Throws std::exception.
void MakeTree(const std::string& directory, const TreeShape& shape);

}  // namespace tarvex::bench
