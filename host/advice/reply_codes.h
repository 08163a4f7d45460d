#pragma once

// What servers put into their answers for programs to read.

#include <string>
#include <string_view>

namespace tarvex::host {

// The response code of a POP3 refusal (RFC 2449, 3206), in capitals: "IN-USE" for "-ERR [in-use] locked"; else empty.
std::string PopResponseCode(std::string_view reply);

// The enhanced status code of an SMTP reply (RFC 3463): "5.7.8" for "535 5.7.8 wrong password"; else empty.
std::string_view EnhancedCode(std::string_view reply);

// The methods that an EHLO reply offers on any of its lines, with blanks between them; empty when it offers no login. A
// run reads them from a line "250-AUTH" alone (B57).
std::string OfferedMethods(std::string_view ehlo_reply);

}  // namespace tarvex::host
