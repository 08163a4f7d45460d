#pragma once

// From the terminal's UTF-8 to the Shift-JIS of the tree. host/system/display.h leads back.

#include <string>
#include <string_view>

namespace tarvex::host {

// The text as the tree holds it. Throws a CommandError that names the first character that cannot be stored: one that
// Shift-JIS does not have or does not give back, a control character, a byte that is not UTF-8.
std::string ToStored(std::string_view text);

}  // namespace tarvex::host
