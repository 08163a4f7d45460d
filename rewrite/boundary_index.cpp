// Finds the delimiter lines and blank lines of a message: one pass, then sorted look-ups.

#include "rewrite/boundary_index.h"

#include <algorithm>
#include <span>

namespace tarvex {
BoundaryIndex::BoundaryIndex(std::string_view message) : message_(message) {
    for (std::size_t at = message.find("\r\n"); at != kNone; at = message.find("\r\n", at + 2)) {
        const std::string_view rest = message.substr(at);
        if (rest.starts_with(kBlankLine)) blank_lines_.push_back(static_cast<std::uint32_t>(at));
        if (!rest.starts_with(kDelimiter)) continue;
        all_.push_back(static_cast<std::uint32_t>(at));
        // A boundary holds no control character, so it never reaches beyond its line.
        const std::string_view line = rest.substr(kDelimiter.size());
        const std::size_t line_bytes = std::min(line.find('\r'), line.size());
        by_line_.push_back({static_cast<std::uint32_t>(at), static_cast<std::uint32_t>(line_bytes)});
    }
    std::ranges::sort(by_line_, {}, [this](const Delimiter& delimiter) { return Line(delimiter); });
}

std::string_view BoundaryIndex::Line(const Delimiter& delimiter) const {
    return message_.substr(delimiter.position + kDelimiter.size(), delimiter.line_bytes);
}

const BoundaryIndex::Positions& BoundaryIndex::DelimitersWith(std::string_view boundary) {
    if (boundary.empty()) return all_;
    const auto beginning = [this, length = boundary.size()](const Delimiter& delimiter) {
        return Line(delimiter).substr(0, length);
    };
    const auto begin = std::ranges::lower_bound(by_line_, boundary, {}, beginning);
    const auto end = std::ranges::upper_bound(begin, by_line_.end(), boundary, {}, beginning);
    const std::span range(begin, end);
    const auto [entry, is_new] = found_.try_emplace({static_cast<std::size_t>(begin - by_line_.begin()), range.size()});
    Positions& positions = entry->second;
    if (is_new) {
        positions.reserve(range.size());
        for (const Delimiter& delimiter : range) positions.push_back(delimiter.position);
        std::ranges::sort(positions);
    }
    return positions;
}

std::size_t BoundaryIndex::First(const Positions& positions, std::size_t from, std::size_t end, std::size_t length) {
    const auto found = std::ranges::lower_bound(positions, from);
    return found != positions.end() && *found + length <= end ? *found : kNone;
}

}  // namespace tarvex
