#pragma once

// Text in columns, as a terminal shows it.

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace tarvex::host {

// How many columns UTF-8 text takes: two for each wide character of the East Asian scripts.
std::size_t Columns(std::string_view text);

// The text with blanks behind it up to so many columns.
std::string Padded(std::string text, std::size_t columns);

// The text in lines of at most so many columns, broken at blanks and beside wide characters.
std::string Wrapped(std::string_view text, std::size_t columns);

// The text in at most so many columns: "user0/f...m12" where it is longer.
std::string CutInTheMiddle(const std::string& text, std::size_t columns);

// Rows below headings, each column as wide as it must be.
class Table {
public:
    using Row = std::vector<std::string>;

    explicit Table(Row headings) : rows_{std::move(headings)} {}
    void Add(Row row) { rows_.push_back(std::move(row)); }
    void Print(std::ostream& out) const;

    // Where there are not columns enough, whole columns of the table go, in the order of the list, and then the middles
    // of what is widest.
    struct Room {
        std::size_t columns = 0;  // 0: as wide as it must be
        std::vector<std::size_t> dispensable;
    };
    void Print(std::ostream& out, const Room& room) const;

private:
    std::vector<std::size_t> Widths() const;

    std::vector<Row> rows_;
};

}  // namespace tarvex::host
