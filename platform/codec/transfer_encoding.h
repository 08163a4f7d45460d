#pragma once

// The other transfer encodings of mail bodies, decoding only; Base64 is in base64.h. Each fills `target` from `source`,
// which may be the same object, in one pass. Broken input never fails.

#include <string>

namespace tarvex {

// Quoted-printable (RFC 2045 section 6.7). A soft line break is removed, with the blanks and tabs before its line end.
// Any other "=" that is not followed by two hexadecimal digits stays as it is.
void QuotedPrintableDecode(const std::string* source, std::string* target);

// Uuencode: the bytes between the line that begins with "begin " and the line "end".
//   - Missing blanks at the end of a line are filled in. The extra dot of a line that POP3 has stuffed is taken off.
//   - Without a begin line the result is empty. It ends at the first line that is no uuencode, or lies about its
//   length,
//     so it is never longer than the source.
void UUDecode(const std::string* source, std::string* target);

}  // namespace tarvex
