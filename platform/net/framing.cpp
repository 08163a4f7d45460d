// Dot-stuffing and line ends of an outgoing message.

#include "platform/net/framing.h"

#include <cstddef>

namespace tarvex {

namespace {

constexpr std::string_view kTerminatorLine = ".\r\n";
constexpr std::string_view kTerminator = "\r\n.\r\n";

std::string_view WithoutTerminator(std::string_view text) {
    if (text == kTerminatorLine || text.ends_with(kTerminator)) text.remove_suffix(kTerminatorLine.size());
    return text;
}

// In a text that ends with CR LF: whether some CR or LF stands alone. This reads every byte of every message, so it is
// written without branches and in bytes, which compilers turn into vector instructions: with bools it takes forty times
// as long.
bool HasBareLineEnds(std::string_view text) {
    unsigned char bare = text.front() == '\n';
    const std::size_t pairs = text.size() - 1;
    for (std::size_t i = 0; i < pairs; ++i) {
        bare = static_cast<unsigned char>(bare | ((text[i] == '\r') ^ (text[i + 1] == '\n')));
    }
    return bare != 0;
}

bool IsLoneDot(std::string_view line) { return line == "."; }

// Among true line ends: whether some line lacks its dot.
bool LacksDots(std::string_view text, DataForm form) {
    if (form == DataForm::Fetched) {
        return text.starts_with(kTerminatorLine) || text.find(kTerminator) != std::string_view::npos;
    }
    return text.starts_with('.') || text.find("\n.") != std::string_view::npos;
}

bool GoesAsItIs(std::string_view text, DataForm form) {
    return text.empty() || (text.ends_with("\r\n") && !HasBareLineEnds(text) && !LacksDots(text, form));
}

// Finds the next CR or LF without reading any byte twice.
class LineEndFinder {
public:
    explicit LineEndFinder(std::string_view text) : text_(text), cr_(text.find('\r')), lf_(text.find('\n')) {}

    std::size_t Next(std::size_t from) {
        if (cr_ < from) cr_ = text_.find('\r', from);
        if (lf_ < from) lf_ = text_.find('\n', from);
        return cr_ < lf_ ? cr_ : lf_;
    }

private:
    std::string_view text_;
    std::size_t cr_;
    std::size_t lf_;
};

void Rewrite(std::string_view text, DataForm form, std::string& framed) {
    framed.clear();
    framed.reserve(text.size() + text.size() / 32 + 16);
    LineEndFinder line_ends(text);
    bool already_stuffed = form == DataForm::Fetched;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = line_ends.Next(begin);
        const std::string_view line = text.substr(begin, end - begin);
        if (line.starts_with('.') && (!already_stuffed || IsLoneDot(line))) framed += '.';
        framed += line;
        framed += "\r\n";
        if (end == std::string_view::npos) break;
        // The POP3 server stuffed only what follows its own kind of line end.
        const bool true_line_end = text.substr(end, 2) == "\r\n";
        already_stuffed = form == DataForm::Fetched && true_line_end;
        begin = end + (true_line_end ? 2 : 1);
    }
}

}  // namespace

std::string_view FrameData(std::string_view text, DataForm form, std::string& scratch) {
    const std::string_view lines = WithoutTerminator(text);
    if (GoesAsItIs(lines, form)) return lines;
    Rewrite(lines, form, scratch);
    return scratch;
}

}  // namespace tarvex
