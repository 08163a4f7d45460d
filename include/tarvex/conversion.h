#pragma once

// Between the text of the tree, which is Shift-JIS (code page 932 as Microsoft maps it), and other encodings.
// Thread-safe. No operation throws. Where memory runs out, a result is empty, or nothing where it may be nothing.

#include <cstddef>
#include <optional>
#include <string_view>

#include "tarvex/text.h"

// For showing: the text as UTF-8. Every text has a result: a byte that belongs to no character becomes "?". Control
// characters stay.
[[nodiscard]] TARVEX_API CString Utf8FromText(std::string_view text);

// For storing: the UTF-8 as text of the tree. Nothing when it is not well-formed UTF-8, or has a character that
// Utf8FromText would not give back. Signs that have two code points, of which Shift-JIS has one, count as the same: the
// wave dash and the full-width tilde, the minus sign, the em dash, the parallel lines, cent, pound and not.
[[nodiscard]] TARVEX_API std::optional<CString> TextFromUtf8(std::string_view utf8);

// How many bytes at the beginning are well-formed UTF-8; all of them when the whole text is.
[[nodiscard]] TARVEX_API std::size_t WellFormedUtf8Bytes(std::string_view text);

// Between the text of the tree and ISO-2022-JP, the encoding of text mails. Every text has a result. What ISO-2022-JP
// does not have becomes the geta mark, half-width katakana become full-width ones, and escape characters are dropped.
[[nodiscard]] TARVEX_API CString TextFromJis(std::string_view jis);
[[nodiscard]] TARVEX_API CString JisFromText(std::string_view text);

// What a mail says of itself, as text of the tree: unfolded, encoded words decoded, control characters as blanks. What
// Shift-JIS does not have is lost. Empty where the field is missing.
struct TARVEX_API CHeadlines {
    CString from;
    CString subject;
    CString message_id;
};

// From the header of a message; its line ends at the front do not count.
[[nodiscard]] TARVEX_API CHeadlines HeadlinesOf(std::string_view message);
