// Aligns and wraps text in columns, with wide characters counted as two.

#include "host/terminal/table.h"

#include <algorithm>
#include <ostream>

namespace tarvex::host {
namespace {

constexpr std::string_view kGap = "  ";

// Of what Shift-JIS can hold; its half-width katakana (U+FF61 to U+FF9F) are narrow.
bool IsWide(unsigned code) {
    return (code >= 0x2E80 && code <= 0xA4CF) || (code >= 0xAC00 && code <= 0xD7A3) ||
           (code >= 0xF900 && code <= 0xFAFF) || (code >= 0xFE30 && code <= 0xFE6F) ||
           (code >= 0xFF01 && code <= 0xFF60) || (code >= 0xFFE0 && code <= 0xFFE6);
}

bool BeginsCharacter(char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }

std::string_view FirstCharacter(std::string_view text) {
    std::size_t end = 1;
    while (end < text.size() && !BeginsCharacter(text[end])) ++end;
    return text.substr(0, end);
}

bool IsOneOf(std::string_view character, std::string_view all) { return all.find(character) != std::string_view::npos; }

// Japanese has no blanks: a line may end beside each wide character, but for marks that belong to what stands before
// them or behind them.
bool MayBreakBetween(std::string_view before, std::string_view after) {
    constexpr std::string_view kNeverFirst =
        "、。，．・：；？！）］｝」』】〉》ー々〜…ぁぃぅぇぉっゃゅょァィゥェォッャュョ,.:;?!)]}";
    constexpr std::string_view kNeverLast = "（［｛「『【〈《([{";
    if (Columns(before) < 2 && Columns(after) < 2) return false;
    return !IsOneOf(after, kNeverFirst) && !IsOneOf(before, kNeverLast);
}

// Up to a blank, or to where a line may end without one. A command in backquotes is one piece where it fits: it is
// there to be copied.
std::string_view FirstPiece(std::string_view text, std::size_t columns) {
    std::size_t command_end = 0;
    for (std::size_t end = 0; end < text.size();) {
        if (end >= command_end && text[end] == ' ') return text.substr(0, end);
        if (end >= command_end && text[end] == '`') {
            const std::size_t close = text.find('`', end + 1);
            if (close != std::string_view::npos && Columns(text.substr(0, close + 1)) <= columns)
                command_end = close + 1;
        }
        const std::string_view before = FirstCharacter(text.substr(end));
        end += before.size();
        if (end < text.size() && end >= command_end && MayBreakBetween(before, FirstCharacter(text.substr(end))))
            return text.substr(0, end);
    }
    return text;
}

}  // namespace

std::size_t Columns(std::string_view text) {
    std::size_t columns = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (!BeginsCharacter(text[i])) continue;
        const auto byte = [&](std::size_t n) {
            return static_cast<unsigned char>(i + n < text.size() ? text[i + n] : 0);
        };
        // Every wide character has three bytes.
        const bool three = (byte(0) & 0xF0) == 0xE0;
        columns += three && IsWide((byte(0) & 0x0FU) << 12 | (byte(1) & 0x3FU) << 6 | (byte(2) & 0x3FU)) ? 2 : 1;
    }
    return columns;
}

std::string Padded(std::string text, std::size_t columns) {
    const std::size_t taken = Columns(text);
    if (taken < columns) text.append(columns - taken, ' ');
    return text;
}

std::string Wrapped(std::string_view text, std::size_t columns) {
    std::string result;
    std::size_t taken = 0;
    bool behind_blank = false;
    while (!text.empty()) {
        const std::string_view piece = FirstPiece(text, columns);
        const bool before_blank = piece.size() < text.size() && text[piece.size()] == ' ';
        text.remove_prefix(piece.size() + (before_blank ? 1 : 0));
        const std::size_t width = Columns(piece);
        const std::size_t gap = behind_blank && taken > 0 ? 1 : 0;
        if (taken > 0 && taken + gap + width > columns) {
            result += '\n';
            taken = 0;
        } else {
            result.append(gap, ' ');
            taken += gap;
        }
        result += piece;
        taken += width;
        behind_blank = before_blank;
    }
    return result;
}

std::string CutInTheMiddle(const std::string& text, std::size_t columns) {
    constexpr std::string_view kDots = "...";
    if (Columns(text) <= columns) return text;
    if (columns <= kDots.size()) return std::string(kDots.substr(0, columns));
    const std::size_t kept = columns - kDots.size();
    std::size_t end = 0;  // of the front
    for (std::size_t next = 1; next <= text.size(); ++next) {
        if (next < text.size() && !BeginsCharacter(text[next])) continue;
        if (Columns(text.substr(0, next)) > kept - kept / 2) break;
        end = next;
    }
    std::size_t begin = text.size();  // of the back
    for (std::size_t next = text.size(); next-- > end;) {
        if (!BeginsCharacter(text[next])) continue;
        if (Columns(text.substr(next)) > kept / 2) break;
        begin = next;
    }
    return text.substr(0, end) + std::string(kDots) + text.substr(begin);
}

std::vector<std::size_t> Table::Widths() const {
    std::vector<std::size_t> widths(rows_.front().size(), 0);
    for (const Row& row : rows_) {
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Columns(row[i]));
    }
    return widths;
}

void Table::Print(std::ostream& out) const { Print(out, {}); }

void Table::Print(std::ostream& out, const Room& room) const {
    std::vector<std::size_t> widths = Widths();
    std::vector<bool> gone(widths.size(), false);
    const auto total = [&] {
        std::size_t columns = 0;
        for (std::size_t i = 0; i < widths.size(); ++i) columns += gone[i] ? 0 : widths[i] + kGap.size();
        return columns - kGap.size();
    };
    const auto is_too_wide = [&] { return room.columns != 0 && total() > room.columns; };
    for (const std::size_t column : room.dispensable) {
        if (is_too_wide()) gone[column] = true;
    }
    for (std::size_t i = 0; i < widths.size(); ++i) widths[i] = gone[i] ? 0 : widths[i];
    while (is_too_wide() && std::ranges::max(widths) > 1) --*std::ranges::max_element(widths);
    for (const Row& row : rows_) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            if (!gone[i]) line += Padded(CutInTheMiddle(row[i], widths[i]), widths[i]) + std::string(kGap);
        }
        line.resize(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    }
}

}  // namespace tarvex::host
