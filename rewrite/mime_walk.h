#pragma once

// The readable text of a message, found through its MIME parts.

#include <string_view>

#include "tarvex/text.h"

namespace tarvex {

// The text of the first part, in document order and depth first, that holds anything but white space: decoded, in
// Shift-JIS, without POP3's dot-stuffing; empty when there is none. `accept_html` counts for the message itself; nested
// HTML parts are never taken. A message of 4 GiB or more has none. Linear in the size of the message but for a
// logarithm, whatever its nesting, and never recursive.
CString PickReadableText(std::string_view message, bool accept_html);

}  // namespace tarvex
