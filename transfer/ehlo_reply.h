#pragma once

// What an EHLO reply says.

#include <string_view>

namespace tarvex {

// The authentication methods that the reply offers, as text. Looked for on a continuation line ("250-AUTH"): a list on
// the first or the last line is not seen there. Without such a line the not-found position -1 is used as it is: the
// result is then the text from offset 9 to the first line end at or after offset 10. Both are kept on purpose. The
// result is a view of the reply; empty when the reply is shorter than that.
std::string_view AuthList(std::string_view ehlo_reply);

}  // namespace tarvex
