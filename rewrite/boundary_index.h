#pragma once

// Where the delimiter lines of a message are.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

namespace tarvex {

inline constexpr std::string_view kDelimiter = "\r\n--";  // the boundary follows
inline constexpr std::string_view kBlankLine = "\r\n\r\n";

// Finds "\r\n--" followed by a given boundary, and the blank lines that end headers, in logarithmic time after one pass
// over the message: a walk through deeply nested parts asks about the same stretch of text again and again. Keeps views
// of the message, which must outlive it and hold at most kMaxMessageBytes.
class BoundaryIndex {
public:
    static constexpr std::size_t kNone = std::string_view::npos;
    static constexpr std::size_t kMaxMessageBytes = std::numeric_limits<std::uint32_t>::max();

    using Positions = std::vector<std::uint32_t>;  // ascending

    explicit BoundaryIndex(std::string_view message);

    // Where "\r\n--" followed by the boundary stands, also where the line goes on behind it. Valid as long as the
    // index.
    const Positions& DelimitersWith(std::string_view boundary);

    const Positions& AllDelimiters() const { return all_; }       // of every "\r\n--"
    const Positions& BlankLines() const { return blank_lines_; }  // of every "\r\n\r\n"

    // The first of the positions from `from` on whose `length` bytes lie before `end`; kNone when there is none.
    static std::size_t First(const Positions& positions, std::size_t from, std::size_t end, std::size_t length);

private:
    struct Delimiter {
        std::uint32_t position;
        std::uint32_t line_bytes;  // behind the "\r\n--", up to the next CR
    };

    std::string_view Line(const Delimiter& delimiter) const;

    std::string_view message_;
    Positions all_;
    Positions blank_lines_;
    std::vector<Delimiter> by_line_;  // in the order of their lines
    // What DelimitersWith has found, by the range in by_line_.
    std::map<std::pair<std::size_t, std::size_t>, Positions> found_;
};

}  // namespace tarvex
