#pragma once

// The files of the tree that the host looks at itself, beside the engine.

#include "tarvex/text.h"

namespace tarvex::host {

// The marker files: a directory with one is a user, a profile or a forwarding address.
inline constexpr const char* kUserFile = "userset.def";
inline constexpr const char* kProfileFile = "popprofile.def";
inline constexpr const char* kForwardFile = "forwardaddress.def";

inline constexpr const char* kListFile = "uidl.def";
inline constexpr const char* kLogFile = "profile.log";

inline CString FileIn(const CString& directory, const char* name) { return directory + '\\' + name; }

}  // namespace tarvex::host
