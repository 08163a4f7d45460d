#pragma once

// What holds of every header and of every text mail that is written, whatever it was made of. Each function returns
// what is wrong, or an empty text. For tests and fuzz targets.

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "platform/codec/base64.h"
#include "platform/codec/japanese.h"
#include "tests/support/data_receiver.h"

namespace tarvex::testing {

// Whether readers know the character of a cell: those of the standard, and those of NEC's rows 13 and 89 to 92 that
// names need.
inline bool IsJisCharacter(unsigned char row, unsigned char cell) {
    const bool in_known_row =
        row <= 0x28 || row == 0x2D || (row >= 0x30 && row <= 0x74) || (row >= 0x79 && row <= 0x7C);
    if (!in_known_row || row < 0x21 || cell < 0x21 || cell > 0x7E) return false;
    static const auto known = [] {
        std::array<std::array<bool, 0x7F>, 0x7F> cells{};
        for (unsigned char r = 0x21; r < 0x7F; ++r) {
            for (unsigned char c = 0x21; c < 0x7F; ++c) {
                std::string text = {'\x1B', '$', 'B', static_cast<char>(r), static_cast<char>(c)};
                JisToSJis(&text, &text);
                SJisToUtf8(&text, &text);
                cells[r][c] = !text.starts_with('?');
            }
        }
        return cells;
    }();
    return known[row][cell];
}

// ISO-2022-JP as it is written here: two escape sequences, whole characters that readers know, in ASCII state at every
// line end and at the end.
inline std::string JisFault(std::string_view text) {
    bool kanji = false;
    while (!text.empty()) {
        if (text.starts_with("\x1B$B") || text.starts_with("\x1B(B")) {
            kanji = text[1] == '$';
            text.remove_prefix(3);
        } else if (kanji) {
            if (text.size() < 2 || !IsJisCharacter(text[0], text[1])) return "no character that readers know";
            text.remove_prefix(2);
        } else {
            const char c = text.front();
            if (c == '\x1B' || c == '\x0E' || c == '\x0F') return "an odd escape sequence";
            if (static_cast<unsigned char>(c) >= 0x80 || c == '\0') return "not 7-bit, or NUL";
            text.remove_prefix(1);
        }
    }
    return kanji ? "does not end in ASCII state" : "";
}

// An encoded word (RFC 2047) that begins at `begin` of a line.
inline std::string EncodedWordFault(std::string_view line, std::size_t begin) {
    constexpr std::string_view kBegin = "=?ISO-2022-JP?B?";
    constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=";
    if (!line.substr(begin).starts_with(kBegin)) return "an encoded word of another form";
    const std::size_t end = line.find_first_not_of(kDigits, begin + kBegin.size());
    if (end == std::string_view::npos || !line.substr(end).starts_with("?=")) return "an encoded word without an end";
    if (end + 2 - begin > 75) return "an encoded word of more than 75 bytes";
    if (end + 2 > 76) return "an encoded word beyond column 76";
    const auto stands_alone = [&](std::size_t at) { return at >= line.size() || line[at] == ' '; };
    if (begin > 0 && !stands_alone(begin - 1)) return "an encoded word behind something else";
    if (!stands_alone(end + 2)) return "an encoded word before something else";
    std::string bytes(line.substr(begin + kBegin.size(), end - begin - kBegin.size()));
    if (bytes.empty() || bytes.size() % 4 != 0) return "an encoded word that is no whole Base64";
    Base64Decode(&bytes, &bytes);
    if (bytes.find_first_of("\r\n") != std::string::npos) return "a line end in an encoded word";
    return JisFault(bytes);
}

inline std::string HeaderLineFault(std::string_view line) {
    if (line.size() > 998) return "a line of more than 998 bytes";
    if (line.find_first_not_of(' ') == std::string_view::npos) return "a line of blanks";
    if (!std::ranges::all_of(line, [](char c) { return c >= ' ' && c < 0x7F; })) return "a byte that is not printable";
    for (std::size_t at = line.find("=?"); at != std::string_view::npos; at = line.find("=?", at)) {
        if (std::string fault = EncodedWordFault(line, at); !fault.empty()) return fault;
        at = line.find("?=", at + 2) + 2;
    }
    return {};
}

// Header lines, without a CR LF at their end.
inline std::string HeaderFault(std::string_view header) {
    for (;;) {
        const std::size_t end = header.find("\r\n");
        const std::string_view line = header.substr(0, end);
        if (std::string fault = HeaderLineFault(line); !fault.empty()) return fault + ": " + std::string(line);
        if (end == std::string_view::npos) return {};
        header.remove_prefix(end + 2);
    }
}

// The fields of a text mail: these, in this order, each at most once, the first and the last two always.
inline std::string TextMailFieldsFault(std::string_view header) {
    constexpr std::array<std::string_view, 8> kFields = {
        "Date: ", "From: ", "To: ", "CC: ", "Subject: ", "Reply-To: ", "MIME-Version: ", "Content-Type: "};
    std::size_t next = 0;
    for (std::size_t begin = 0; begin <= header.size();) {
        const std::size_t end = std::min(header.find("\r\n", begin), header.size());
        const std::string_view line = header.substr(begin, end - begin);
        begin = end + 2;
        if (line.starts_with(' ')) continue;
        const std::size_t last = next;
        while (next < kFields.size() && !line.starts_with(kFields[next])) ++next;
        if (next == kFields.size()) return "a field out of place: " + std::string(line);
        if (last == 0 && next != 0) return "no Date";
        ++next;
    }
    if (next != kFields.size() || header.find("\r\nMIME-Version: ") == std::string_view::npos)
        return "a field is missing";
    return {};
}

inline std::string TextMailFault(std::string_view mail) {
    if (!mail.ends_with("\r\n.\r\n")) return "no terminator";
    const std::size_t header_end = mail.find("\r\n\r\n");
    if (header_end == std::string_view::npos) return "no blank line";
    const std::string_view header = mail.substr(0, header_end);
    const std::string_view body = mail.substr(header_end + 4);

    if (std::string fault = HeaderFault(header); !fault.empty()) return fault;
    if (std::string fault = TextMailFieldsFault(header); !fault.empty()) return fault;
    if (std::string fault = JisFault(body); !fault.empty()) return fault;
    const bool japanese = body.find('\x1B') != std::string_view::npos;
    if (!header.ends_with(japanese ? "charset=\"ISO-2022-JP\"" : "charset=\"US-ASCII\""))
        return "another character set";
    return FramingFault(mail, DataForm::NotStuffed);
}

}  // namespace tarvex::testing
