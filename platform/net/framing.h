#pragma once

// The framing of a message for SMTP's DATA (RFC 5321 section 4.5.2).

#include <string>
#include <string_view>

#include "platform/net/sockets.h"

namespace tarvex {

// The lines of a message as they go over the wire, without the final "." line: line ends are CR LF throughout, the last
// line has one (an empty message stays empty), and no line is a lone ".", so that nothing in the text can end DATA
// early. What a receiving server unstuffs is the message.
//   - The text's own final terminator, if it has one, is taken off: ".\r\n" as the last line.
//   - A bare CR and a bare LF become CR LF (CR CR LF becomes two line ends).
//   - Fetched: a line that follows a true CR LF goes as it is; a line that begins with a dot behind a bare CR or LF,
//   and
//     every line that is a lone ".", gets a dot more. NotStuffed: every line that begins with a dot gets one.
// A text that needs no change is returned as a view of itself, else as a view of `scratch`.
std::string_view FrameData(std::string_view text, DataForm form, std::string& scratch);

}  // namespace tarvex
