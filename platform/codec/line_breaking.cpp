// Lines that no relay breaks. A relay that meets a longer one breaks it where it stands, inside a character: what
// follows is then read in the wrong half of each.

#include "platform/codec/line_breaking.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace tarvex {
namespace {

constexpr std::size_t kColumns = 76;
constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kToKanji = "\x1B$B";
constexpr std::string_view kToAscii = "\x1B(B";

// Breaks one line.
class LineBreaker {
public:
    LineBreaker(std::string_view line, std::string& out) : rest_(line), out_(out) {}

    void Break() {
        while (!rest_.empty()) {
            TakePiece();
            if (!rest_.empty()) out_ += kLineEnd;
        }
    }

private:
    void TakePiece() {
        const bool begins_in_kanji = kanji_;
        const Place end = EndOfPiece();
        if (begins_in_kanji) out_ += kToKanji;
        out_ += rest_.substr(0, end.bytes);
        rest_.remove_prefix(end.bytes);
        kanji_ = end.kanji && !rest_.empty();
        if (kanji_) out_ += kToAscii;
    }

    struct Place {
        std::size_t bytes = 0;
        bool kanji = false;
    };

    Place EndOfPiece() const {
        Place at{0, kanji_};
        Place blank;
        std::size_t columns = 0;
        while (at.bytes < rest_.size()) {
            const std::string_view text = rest_.substr(at.bytes);
            if (text.starts_with(kToKanji) || text.starts_with(kToAscii)) {
                at.kanji = text.starts_with(kToKanji);
                at.bytes += kToKanji.size();
                continue;
            }
            const std::size_t width = at.kanji && text.size() > 1 ? 2 : 1;
            if (columns + width > kColumns) return blank.bytes > 0 ? blank : at;
            columns += width;
            at.bytes += width;
            if (!at.kanji && text.front() == ' ') blank = at;
        }
        return at;
    }

    std::string_view rest_;
    bool kanji_ = false;  // the state in which it begins
    std::string& out_;
};

}  // namespace

void BreakLongLines(const std::string* source, std::string* target) {
    std::string out;
    out.reserve(source->size());
    for (std::string_view text = *source;;) {
        const std::size_t end = text.find_first_of(kLineEnd);  // a bare one is sent as a whole one
        const std::string_view line = text.substr(0, end);
        if (line.size() <= kMaxLine_bytes) {
            out += line;
        } else {
            LineBreaker(line, out).Break();
        }
        if (end == std::string_view::npos) break;
        out += text[end];
        text.remove_prefix(end + 1);
    }
    *target = std::move(out);
}

}  // namespace tarvex
