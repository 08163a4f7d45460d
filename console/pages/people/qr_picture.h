#pragma once

// A text as a QR code (ISO/IEC 18004), to be read by a phone's camera.

#include <string>
#include <string_view>

#include "console/http/html.h"

namespace tarvex::console {

// Drawn in the page itself, so that no address holds the text. `says` describes it to whoever cannot see it. Nothing
// for a text that is too long for a code.
Html QrPicture(std::string_view text, std::string_view says);

}  // namespace tarvex::console
