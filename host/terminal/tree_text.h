#pragma once

// From the terminal's UTF-8 to the Shift-JIS of the tree. host/system/display.h leads back.

#include <string>
#include <string_view>

namespace tarvex::host {

// The text as the tree holds it. Throws CommandError that names the first character that cannot be stored so that it is
// read back as the same one: one that Shift-JIS does not have, a control character, a byte that is no UTF-8.
std::string ToStored(std::string_view text);

}  // namespace tarvex::host
