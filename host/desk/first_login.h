#pragma once

// The way of the first administrator into the console: a code that works once, for an hour, made by somebody who can
// write in the tree.

#include <string>
#include <string_view>

#include "tarvex/text.h"

namespace tarvex::host {

inline constexpr long kFirstLoginSeconds = 3600;

// Makes a code, of which the tree keeps a digest; one that was made before is void. Throws CommandError.
std::string MakeFirstLogin(const std::string& directory, CTime now);

// Whether that is the code. It is void from then on; a wrong one changes nothing. Throws CommandError when that cannot
// be made sure.
bool TakeFirstLogin(const std::string& directory, std::string_view code, CTime now);

}  // namespace tarvex::host
