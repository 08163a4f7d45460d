#pragma once

// The framing of a message for SMTP's DATA (RFC 5321 section 4.5.2).

#include <string>
#include <string_view>

#include "platform/net/sockets.h"

namespace tarvex {

// The lines of a message as they go over the wire, without the final "." line. Every line ends with CR LF (an empty
// message stays empty), and no line is a lone ".", so nothing in the text can end DATA early. The receiving server
// unstuffs exactly the message.
//   - A final "." line of the text itself is taken off.
//   - A bare CR and a bare LF become CR LF (CR CR LF becomes two line ends).
//   - NotStuffed: every line that begins with a dot gets one more.
//   - Fetched: the POP3 server has stuffed the lines that follow a CR LF; they go as they are. Two kinds of lines get a
//     dot: one that begins with a dot after a bare CR or LF, and one that is a lone ".".
// The result is a view of the text when nothing has to change, else a view of `scratch`.
std::string_view FrameData(std::string_view text, DataForm form, std::string& scratch);

}  // namespace tarvex
