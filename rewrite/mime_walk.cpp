// Walks through the MIME parts of a message and decodes the first one that holds readable text.
//
// The walk keeps a stack of the multiparts that it is in, so nesting costs no recursion. BoundaryIndex tells where the
// delimiter lines are.

#include "rewrite/mime_walk.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <optional>
#include <vector>

#include "platform/codec/base64.h"
#include "platform/codec/charset.h"
#include "platform/codec/mail_header.h"
#include "platform/codec/text.h"
#include "platform/codec/transfer_encoding.h"
#include "rewrite/boundary_index.h"
#include "rewrite/html_text.h"

namespace tarvex {
namespace {

constexpr std::size_t kNone = std::string_view::npos;

bool Contains(std::string_view text, std::string_view part) { return text.find(part) != kNone; }

// The boundary parameter of a content type, in its own letter case. It ends at the first ";" behind its first
// character, else at the first blank there, also inside quotes (B73).
std::optional<std::string_view> BoundaryOf(std::string_view content_type, std::string_view lowered) {
    constexpr std::string_view kParameter = "boundary=";
    const std::size_t parameter = lowered.find(kParameter);
    if (parameter == kNone) return std::nullopt;
    std::string_view boundary = content_type.substr(parameter + kParameter.size());
    std::size_t end = boundary.find(';', 1);
    if (end == kNone) end = boundary.find(' ', 1);
    boundary = boundary.substr(0, end);
    if (boundary.starts_with('"')) boundary.remove_prefix(1);
    if (boundary.ends_with('"')) boundary.remove_suffix(1);
    return boundary;
}

// ---- a text part

bool HasBareLineFeed(std::string_view text) {
    for (std::size_t at = text.find('\n'); at != kNone; at = text.find('\n', at + 1)) {
        if (at == 0 || text[at - 1] != '\r') return true;
    }
    return false;
}

// Of text: line ends are CR LF as everywhere, whatever the encoder had.
void DecodeBase64Text(const CString* source, CString* target) {
    const std::string_view lines = Base64Lines(*source);
    if (lines.size() == source->size()) {
        Base64Decode(source, target);
    } else {
        const CString encoded(lines);
        Base64Decode(&encoded, target);
    }
    if (!HasBareLineFeed(*target)) return;
    CString text;
    for (std::string_view rest = *target;;) {
        const std::size_t end = rest.find('\n');
        text.append(rest.substr(0, end));
        if (end == kNone) break;
        text += text.ends_with('\r') ? "\n" : "\r\n";
        rest.remove_prefix(end + 1);
    }
    target->swap(text);
}

struct TransferEncoding {
    std::string_view word;  // in the field's value
    Conversion decode;
};
// The first whose word the value contains.
constexpr std::array<TransferEncoding, 3> kTransferEncodings = {{
    {"base64", DecodeBase64Text},
    {"x-uuencode", UUDecode},
    {"quoted-printable", QuotedPrintableDecode},
}};

void UndoTransferEncoding(std::string_view encoding, CString& text) {
    const auto* const found = std::ranges::find_if(
        kTransferEncodings, [encoding](const TransferEncoding& entry) { return Contains(encoding, entry.word); });
    if (found != kTransferEncodings.end()) found->decode(&text, &text);
}

// Takes POP3's additional dots off, and the line end that stood for the blank line. The dots are looked for in the
// decoded text (B75).
void Unstuff(CString& text) {
    constexpr std::string_view kStuffed = "\r\n..";
    std::size_t read = text.starts_with("\r\n") ? 2 : 0;
    std::size_t written = 0;
    const auto keep_until = [&](std::size_t end) {
        std::memmove(text.data() + written, text.data() + read, end - read);
        written += end - read;
    };
    for (std::size_t at = text.find(kStuffed); at != kNone; at = text.find(kStuffed, read)) {
        const std::size_t dot = at + kStuffed.size() - 1;
        keep_until(dot);
        read = dot + 1;
    }
    keep_until(text.size());
    text.resize(written);
}

bool HoldsText(std::string_view text) { return text.find_first_not_of("\t\n\r ") != kNone; }

// The text of a part that has no parts itself. Empty for a part that is not text.
CString TextOf(std::string_view body, std::string_view content_type, std::string_view transfer_encoding,
               bool accept_html) {
    const bool is_html = accept_html && Contains(content_type, "text/html");
    if (!is_html && !content_type.empty() && !Contains(content_type, "text/plain")) return {};

    CString text(body);
    UndoTransferEncoding(transfer_encoding, text);
    BodyConversion(content_type)(&text, &text);
    Unstuff(text);
    if (is_html) HtmlToText(&text);
    if (!HoldsText(text)) return {};
    return text;
}

// ---- the walk

struct Extent {
    std::size_t begin;
    std::size_t end;
};

// A multipart whose parts are being visited.
class Level {
public:
    Level(const BoundaryIndex::Positions& delimiters, std::size_t boundary_bytes, Extent body)
        : delimiters_(&delimiters),
          delimiter_bytes_(kDelimiter.size() + boundary_bytes),
          end_(body.end),
          at_(Next(body.begin)) {}

    // The next part: between two delimiters. Text behind the last delimiter is ignored, even if the closing delimiter
    // is missing (B74).
    std::optional<Extent> TakePart(std::string_view message) {
        if (at_ == kNone || (!first_ && IsClosing(message))) return std::nullopt;
        first_ = false;
        const std::size_t begin = at_ + delimiter_bytes_;
        at_ = Next(begin);
        if (at_ == kNone) return std::nullopt;
        return Extent{begin, at_};
    }

private:
    std::size_t Next(std::size_t from) const {
        return BoundaryIndex::First(*delimiters_, from, end_, delimiter_bytes_);
    }
    bool IsClosing(std::string_view message) const {
        return message.substr(0, end_).substr(at_ + delimiter_bytes_).starts_with("--");
    }

    const BoundaryIndex::Positions* delimiters_;
    std::size_t delimiter_bytes_;
    std::size_t end_;
    std::size_t at_;  // of the delimiter before the next part
    bool first_ = true;
};

class Walk {
public:
    explicit Walk(std::string_view message) : message_(message) {}

    CString Run(bool accept_html) {
        CString text = Enter({0, message_.size()}, accept_html);
        while (text.empty() && !levels_.empty()) {
            if (const std::optional<Extent> part = levels_.back().TakePart(message_)) {
                text = Enter(*part, false);
            } else {
                levels_.pop_back();
            }
        }
        return text;
    }

private:
    // The text of a part; a multipart has none itself but becomes the innermost level.
    CString Enter(Extent part, bool accept_html) {
        const std::size_t blank_line = FindBlankLine(part);
        const std::size_t header_end = blank_line != kNone ? blank_line : EndOfLonelyHeader(part);
        // The body begins with the line end of the blank line, so that a delimiter directly behind it is found.
        const Extent body = {blank_line != kNone ? blank_line + 2 : part.begin, part.end};
        const ContentFields fields = ReadContentFields(Text({part.begin, header_end}));
        const CString content_type = ToLower(fields.content_type);
        if (!Contains(content_type, "multipart/")) {
            return TextOf(Text(body), content_type, ToLower(fields.content_transfer_encoding), accept_html);
        }
        if (const auto boundary = BoundaryOf(fields.content_type, content_type)) {
            levels_.emplace_back(Index().DelimitersWith(*boundary), boundary->size(), body);
        }
        return {};
    }

    std::string_view Text(Extent extent) const { return message_.substr(extent.begin, extent.end - extent.begin); }

    std::size_t FindBlankLine(Extent part) {
        if (levels_.empty()) return message_.find(kBlankLine);
        return BoundaryIndex::First(Index().BlankLines(), part.begin, part.end, kBlankLine.size());
    }

    // A part without a blank line is body as a whole. The fields before its first delimiter still name its type.
    std::size_t EndOfLonelyHeader(Extent part) {
        if (levels_.empty()) return HeaderOf(message_).size();
        if (Text(part).starts_with("--")) return part.begin;
        return std::min(BoundaryIndex::First(Index().AllDelimiters(), part.begin, part.end, kDelimiter.size()),
                        part.end);
    }

    BoundaryIndex& Index() {
        if (!index_) index_.emplace(message_);
        return *index_;
    }

    std::string_view message_;
    std::optional<BoundaryIndex> index_;  // made for the first multipart
    std::vector<Level> levels_;           // from the outermost to the innermost
};

}  // namespace

CString PickReadableText(std::string_view message, bool accept_html) {
    if (message.size() > BoundaryIndex::kMaxMessageBytes) return {};
    return Walk(message).Run(accept_html);
}

}  // namespace tarvex
