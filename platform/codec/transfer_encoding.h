#pragma once

// The other transfer encodings of mail bodies, decoding only; Base64 is in base64.h. Each fills `target` from `source`,
// which may be the same object, in one pass. Broken input never fails.

#include <string>

namespace tarvex {

// Quoted-printable (RFC 2045 section 6.7). A soft line break goes, with the blanks and tabs before its line end; an "="
// that begins neither that nor two hexadecimal digits stays as it is.
void QuotedPrintableDecode(const std::string* source, std::string* target);

// Uuencode: the bytes between the line that begins with "begin " and the line "end". Blanks that are missing at the end
// of a line count as there, and a line that POP3 has dot-stuffed is taken without its extra dot. Without a begin line
// the result is empty; without an end line, or with a line that is no uuencode, it ends there. It is never longer than
// the source: lines that lie about their length make it end as well.
void UUDecode(const std::string* source, std::string* target);

}  // namespace tarvex
