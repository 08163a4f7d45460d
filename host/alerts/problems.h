#pragma once

// What of a tree somebody should be told, as it is now.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/generation/generation.h"
#include "host/settings/host_setting.h"
#include "host/state/profile_state.h"
#include "tarvex/tree.h"

namespace tarvex::host {

// The numbers are stored: new ones go to the end.
enum class Problem { DiskIsShort, FolderUnreadable, LeftOut, Failing, WantsLogin, Waiting, Parked, Held, OldCopy };
// As the JSON of an alert has them.
inline constexpr std::array<std::string_view, 9> kProblemWords = {
    "disk_short", "folder_unreadable", "left_out", "failing", "wants_login", "waiting", "parked", "held", "old_copy"};

// What it is about: two are the same when these are.
struct ProblemKey {
    std::string profile;  // as ShownName; empty: the whole tree
    Problem problem = Problem::Failing;
    std::string subject;  // a parked address, an unreadable folder; else empty

    auto operator<=>(const ProblemKey&) const = default;
};

struct FoundProblem {
    ProblemKey key;
    std::string address;     // of the profile
    CTime since = 0;         // 0: not known
    std::int64_t count = 0;  // of failed runs in a row, of messages that are set aside
    std::string words;       // a server's answer or why, in one line that is fit to be shown
    std::string advice;      // what to do about it, beside the command; may be empty
};

// Of a profile that may be switched off, by its rules.
std::vector<FoundProblem> ProblemsOf(const ProfileState& state, const CPopProfile& profile, const HostRules& rules,
                                     CTime now);

// Of a file system, in bytes.
struct DiskRoom {
    std::uint64_t available = 0;
    std::uint64_t capacity = 0;  // 0: not known
};
DiskRoom RoomOn(const std::string& directory);

// Less than 100 MB, or less than 2 % where that is less than 1 GB.
bool IsShort(const DiskRoom& room);

// Of the tree as a whole.
std::vector<FoundProblem> ProblemsOfTree(const CRootPath& root, const DiskRoom& room,
                                         const std::optional<OldCopy>& old_copy);

// The command that shows more of it, or mends it.
std::string CommandFor(const ProblemKey& key);

}  // namespace tarvex::host
