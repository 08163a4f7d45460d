#pragma once

// Whether the files of a profile let it run. To the engine a file that cannot be read is an empty one, and a run whose
// state cannot be saved goes well: either way the next run would forward again what was forwarded already.

#include <cstdint>
#include <string>

#include "tarvex/tree.h"

namespace tarvex::host {

// Why a file of the profile cannot be read, empty when all that are needed can.
std::string WhyUnreadable(const CPopProfile& profile);

// The same, or why what a run leaves could not be saved. Tries that beside the files, with lists of ids that take that
// many bytes, or as many as those that are there, and some more. Not while the profile runs.
std::string WhyNotRunnable(const CPopProfile& profile, std::uintmax_t list_bytes = 0);

// Of the copy of a run that has ended: 0 when its lists of ids are on disk, else how many bytes the longest one that is
// not would take, at least one.
std::uintmax_t UnsavedListBytes(const CPopProfile& copy);

inline constexpr const char* kStateNotSaved = "what its last run forwarded could not be recorded, and may come again";

}  // namespace tarvex::host
