#pragma once

// Between the encodings of Japanese mail and Shift-JIS (code page 932). Each fills `target` from `source`, which may be
// the same object, in one pass; every input has a result. What a code cannot express becomes a geta mark (0x81 0xAC),
// what is broken a "?".

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tarvex {

// ISO-2022-JP (RFC 1468) with its usual extensions: ESC $ @, ESC $ B, ESC ( B, ESC ( J, ESC ( I (half-width katakana);
// the first plane of JIS X 0213 is read as far as it is the same; the characters of other sets with two bytes become
// geta marks. A line end returns to ASCII. Bytes above 0x7F pass, so Shift-JIS text passes as it is; so do unknown
// escape sequences. All 94 rows follow one arithmetic.
void JisToSJis(const std::string* source, std::string* target);

// EUC-JP; half-width katakana through 0x8E, the characters of 0x8F become geta marks.
void EucToSJis(const std::string* source, std::string* target);

// UTF-8 (RFC 3629) by the Microsoft mapping. A character that the code page lacks is written as what it looks like, by
// the table of make_cp932_table.py; what is never seen is dropped; a kana and the voice mark behind it are one
// character; so is a row of emoji that are joined to one. Each maximal part of an ill-formed sequence becomes one "?".
// The result has at most four times the bytes of the source.
void Utf8ToSJis(const std::string* source, std::string* target);

// UTF-8 whose every character is the same in Shift-JIS, or a sign of which Unicode has two and Shift-JIS one (the wave
// dash, the minus sign). Nothing when another character is in it, or when it is not well-formed.
std::optional<std::string> Utf8ToSameSJis(std::string_view utf8);

// Shift-JIS as UTF-8. Each byte that belongs to no character becomes "?".
void SJisToUtf8(const std::string* source, std::string* target);

// The same, but a double-byte code of no character becomes a geta mark as a whole: nothing of it is read as ASCII.
void SJisCodesToUtf8(const std::string* source, std::string* target);

// With a "?" for each maximal part of an ill-formed sequence.
std::string WellFormedUtf8(std::string_view text);

// Whether the text is well-formed UTF-8, and how many bytes at its beginning are.
bool IsUtf8(std::string_view text);
std::size_t WellFormedUtf8Bytes(std::string_view text);

// ISO-2022-JP, in ASCII state at each line end and at the end. Half-width katakana become full-width ones, joined with
// their voice marks; IBM extension characters take their code within the 94 rows; codes of no character, and others
// outside of the rows, become geta marks. ESC, SO, SI and NUL are dropped, so every escape sequence of the result was
// written here. Non-zero when something other than ASCII was converted, so when the result holds an escape sequence.
int SJisToJis(const std::string* source, std::string* target);

}  // namespace tarvex
