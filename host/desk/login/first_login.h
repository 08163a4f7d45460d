#pragma once

// The way of the first administrator into the console: a code that works once, for an hour, made by somebody who can
// write in the tree.

#include <optional>
#include <string>
#include <string_view>

#include "tarvex/text.h"

namespace tarvex::host {

inline constexpr long kFirstLoginSeconds = 3600;

// Makes a code, of which the tree keeps a digest; one that was made before is void. Throws CommandError.
std::string MakeFirstLogin(const std::string& directory, CTime now);

// For the right code what GiveFirstLoginBack takes, and the code is void from then on. Nothing for a wrong one, which
// changes nothing. Throws CommandError when that cannot be made sure.
std::optional<std::string> TakeFirstLogin(const std::string& directory, std::string_view code, CTime now);

// Lets the code that was taken work once more, for the rest of its hour. Throws CommandError.
void GiveFirstLoginBack(const std::string& directory, const std::string& taken);

}  // namespace tarvex::host
