#pragma once

// How a profile is doing, in words.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/state/profile_state.h"

namespace tarvex::host {

// For a table: how its last run ended, when that began, and when the next is due, or how far it is.
std::string HowTheLastRunEnded(const ProfileState& status);
std::string LastRun(const ProfileState& status);
std::string NextDue(const ProfileState& status, CTime now);

// What there is to say below a table: each a sentence or two on one line, fit to be shown.
std::vector<std::string> RemarksOn(const ProfileState& state, CTime now);

// The same for somebody without a shell, beside the name of the profile: without names and commands, and without what
// is set aside, of which the console has a page.
std::vector<std::string> NotesOn(const ProfileState& state, CTime now);

// In lines of at most so many columns, all but the first behind an indent.
std::string WrappedBehindIndent(std::string_view text, std::size_t columns);

}  // namespace tarvex::host
