#pragma once

// What an EHLO reply says.

#include <string_view>

namespace tarvex {

// The authentication methods that the reply offers, as text: what follows "250-AUTH" on a continuation line. A list on
// the first or the last line is not seen. Without such a line the text from offset 9 to the first line end at or after
// offset 10 is taken (B57). The result is a view of the reply; empty when the reply is shorter than that.
std::string_view AuthList(std::string_view ehlo_reply);

}  // namespace tarvex
