// Mail headers, reading: tolerant of what mail programs have sent, and linear whatever they send.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <utility>

#include "platform/codec/address_text.h"
#include "platform/codec/base64.h"
#include "platform/codec/charset.h"
#include "platform/codec/japanese.h"
#include "platform/codec/mail_header.h"
#include "platform/codec/text.h"
#include "platform/codec/transfer_encoding.h"

namespace tarvex {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kBlankLine = "\r\n\r\n";
constexpr std::size_t kNone = std::string_view::npos;

constexpr bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view TrimBlanksAndTabs(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

// ---- fields

struct Field {
    std::string_view name;
    std::string_view value;  // folded
};

std::string_view TakeLine(std::string_view& text) {
    const std::size_t end = text.find(kLineEnd);
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == kNone ? text.size() : end + kLineEnd.size());
    return line;
}

// The next field of the header lines; nothing at their end.
std::optional<Field> TakeField(std::string_view& header) {
    while (!header.empty()) {
        const char* const begin = header.data();
        std::string_view last = TakeLine(header);
        while (!header.empty() && IsBlank(header.front())) last = TakeLine(header);
        const std::string_view field(begin, static_cast<std::size_t>(last.data() + last.size() - begin));

        const std::size_t colon = field.find(':');
        if (colon == kNone || field.substr(0, colon).find('\r') != kNone) continue;
        const std::string_view name = TrimBlanksAndTabs(field.substr(0, colon));
        if (!name.empty() && !IsBlank(field.front())) return Field{name, field.substr(colon + 1)};
    }
    return std::nullopt;
}

// The lines of a value, joined with one blank each.
std::string Unfold(std::string_view value) {
    std::string unfolded;
    while (!value.empty()) {
        const std::string_view line = TrimBlanksAndTabs(TakeLine(value));
        if (line.empty()) continue;
        if (!unfolded.empty()) unfolded += ' ';
        unfolded += line;
    }
    return unfolded;
}

void BlankControls(std::string& text) {
    for (char& c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
    }
}

// ---- encoded words (RFC 2047)

struct EncodedWord {
    std::string_view charset;
    std::string bytes;
    std::size_t length;  // of the whole word
};

std::string DecodeQ(std::string_view text) {
    std::string bytes(text);
    std::ranges::replace(bytes, '_', ' ');
    QuotedPrintableDecode(&bytes, &bytes);
    return bytes;
}

std::string DecodeB(std::string_view text) {
    std::string bytes(text);
    Base64Decode(&bytes, &bytes);
    return bytes;
}

// Reads the encoded word at the start of the text, which begins with "=?". Looks no further than the third question
// mark.
std::optional<EncodedWord> ReadEncodedWord(std::string_view text) {
    constexpr std::size_t kMaxCharsetBytes = 64;
    const std::size_t charset_end = text.substr(0, 2 + kMaxCharsetBytes).find('?', 2);
    if (charset_end == kNone || charset_end + 2 >= text.size() || text[charset_end + 2] != '?') return std::nullopt;
    const std::size_t begin = charset_end + 3;
    const std::size_t end = text.find('?', begin);
    if (end == kNone || end + 1 >= text.size() || text[end + 1] != '=') return std::nullopt;

    std::string_view charset = text.substr(2, charset_end - 2);
    charset = charset.substr(0, charset.find('*'));  // a language may follow (RFC 2231)
    const std::string_view encoded = text.substr(begin, end - begin);
    switch (text[charset_end + 1]) {
        case 'B':
        case 'b':
            return EncodedWord{charset, DecodeB(encoded), end + 2};
        case 'Q':
        case 'q':
            return EncodedWord{charset, DecodeQ(encoded), end + 2};
        default:
            return std::nullopt;
    }
}

// Where in a list of addresses a text stands (RFC 5322 section 3.2).
class AddressContext {
public:
    // Reads on; the text is UTF-8.
    void Pass(std::string_view text) {
        for (std::size_t i = 0; i < text.size(); ++i) {
            const char c = text[i];
            if (c == '\\' && !IsPlain()) {
                ++i;
            } else if (c == '"' && comments_ == 0) {
                is_quoted_ = !is_quoted_;
            } else if (c == '(' && !is_quoted_) {
                ++comments_;
            } else if (c == ')' && !is_quoted_ && comments_ > 0) {
                --comments_;
            }
        }
    }

    // What a decoded word says, so that nothing of it counts as structure: a name with a comma stays one name.
    std::string AsWord(const std::string& decoded) const {
        const std::string_view special = is_quoted_ ? "\"\\" : comments_ > 0 ? "()\\" : "<>(),;:\"@[]\\";
        bool holds_special = false;
        std::string word;
        for (const char c : decoded) {
            const bool is_special = special.find(c) != kNone;
            holds_special = holds_special || is_special;
            if (is_special && (!IsPlain() || c == '"' || c == '\\')) word += '\\';
            word += c;
        }
        return IsPlain() && holds_special ? '"' + word + '"' : word;
    }

private:
    bool IsPlain() const { return !is_quoted_ && comments_ == 0; }

    bool is_quoted_ = false;
    std::size_t comments_ = 0;  // that are open
};

// Decodes the encoded words of one value: of a list of addresses to UTF-8; `context` is null for another value, which
// is decoded to Shift-JIS.
class WordDecoder {
public:
    WordDecoder(std::string_view text, CharsetConverter& converter, AddressContext* context)
        : text_(text), converter_(converter), context_(context) {}

    std::string Decode() {
        for (std::size_t at = text_.find("=?"); at != kNone; at = text_.find("=?", at)) {
            const std::optional<EncodedWord> word = ReadEncodedWord(text_.substr(at));
            if (!word) {
                at += 2;
                continue;
            }
            TakeWord(*word, at);
            at += word->length;
        }
        FlushWords();
        AppendRaw(text_.substr(done_));
        return std::move(out_);
    }

    int Count() const { return count_; }

private:
    void TakeWord(const EncodedWord& word, std::size_t at) {
        const std::string_view between = text_.substr(done_, at - done_);
        const bool adjacent = has_words_ && std::ranges::all_of(between, IsBlank);
        const bool joins = adjacent && ToLower(word.charset) == charset_;
        if (!joins) {
            const bool decoded = FlushWords();
            // The blanks between two encoded words are not part of the text.
            if (!adjacent || !decoded) AppendRaw(between);
            charset_ = ToLower(word.charset);
            words_begin_ = at;
        }
        bytes_ += word.bytes;
        has_words_ = true;
        ++words_;
        done_ = at + word.length;
    }

    // Appends the words that are waiting, decoded or, when they cannot be, as they stand. False for the latter.
    bool FlushWords() {
        if (!has_words_) return true;
        const std::optional<std::string> decoded =
            context_ ? converter_.ToUtf8(charset_, bytes_) : converter_.ToSJis(charset_, bytes_);
        if (decoded) {
            out_ += context_ ? context_->AsWord(*decoded) : *decoded;
            count_ += words_;
        } else {
            AppendRaw(text_.substr(words_begin_, done_ - words_begin_));
        }
        has_words_ = false;
        words_ = 0;
        bytes_.clear();
        return decoded.has_value();
    }

    void AppendRaw(std::string_view text) {
        if (context_) context_->Pass(text);
        out_ += text;
    }

    std::string_view text_;
    CharsetConverter& converter_;
    AddressContext* context_;
    std::string out_;
    std::size_t done_ = 0;  // everything before this is in out_ or waiting
    int count_ = 0;

    // Adjacent words of one character set, waiting to be decoded together.
    bool has_words_ = false;
    int words_ = 0;
    std::size_t words_begin_ = 0;
    std::string charset_;
    std::string bytes_;
};

std::string RawToSJis(std::string text) {
    const bool is_ascii = std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    if (!is_ascii && IsUtf8(text)) Utf8ToSJis(&text, &text);
    JisToSJis(&text, &text);
    return text;
}

// What a list of addresses would lose in Shift-JIS can make an address another one, so it is read as UTF-8.
std::string RawToUtf8(std::string text) {
    if (text.find('\x1B') == std::string::npos && IsUtf8(text)) return text;
    text = RawToSJis(std::move(text));
    SJisCodesToUtf8(&text, &text);
    return text;
}

// ---- the fields of CMailInfo

enum class ValueForm {
    Text,       // decoded to Shift-JIS
    Addresses,  // decoded to Shift-JIS; what was decoded is never structure
    Verbatim,   // structure: the bytes as they stand
};

struct KnownField {
    std::string_view name;  // lower case
    std::string CMailInfo::*member;
    ValueForm form;
};
constexpr std::array<KnownField, 21> kKnownFields = {{
    {"date", &CMailInfo::date, ValueForm::Text},
    {"from", &CMailInfo::from, ValueForm::Addresses},
    {"reply-to", &CMailInfo::reply_to, ValueForm::Addresses},
    {"mime-version", &CMailInfo::mime_version, ValueForm::Text},
    {"to", &CMailInfo::to, ValueForm::Addresses},
    {"subject", &CMailInfo::subject, ValueForm::Text},
    {"cc", &CMailInfo::cc, ValueForm::Addresses},
    {"content-type", &CMailInfo::content_type, ValueForm::Verbatim},
    {"content-transfer-encoding", &CMailInfo::content_transfer_encoding, ValueForm::Verbatim},
    {"content-disposition", &CMailInfo::content_disposition, ValueForm::Verbatim},
    {"content-id", &CMailInfo::content_id, ValueForm::Text},
    {"content-description", &CMailInfo::content_description, ValueForm::Text},
    {"sender", &CMailInfo::sender, ValueForm::Addresses},
    {"bcc", &CMailInfo::bcc, ValueForm::Addresses},
    {"message-id", &CMailInfo::message_id, ValueForm::Text},
    {"in-reply-to", &CMailInfo::in_reply_to, ValueForm::Text},
    {"references", &CMailInfo::references, ValueForm::Text},
    {"return-path", &CMailInfo::return_path, ValueForm::Text},
    {"received", &CMailInfo::received, ValueForm::Text},
    {"x-mailer", &CMailInfo::mailer, ValueForm::Text},
    {"x-priority", &CMailInfo::priority, ValueForm::Text},
}};
constexpr std::size_t kLongestName = 25;

std::optional<std::size_t> FindKnownField(std::string_view name) {
    if (name.size() > kLongestName) return std::nullopt;
    const auto* const found = std::ranges::find(kKnownFields, ToLower(name), &KnownField::name);
    if (found == kKnownFields.end()) return std::nullopt;
    return static_cast<std::size_t>(found - kKnownFields.begin());
}

std::string Verbatim(std::string_view value) {
    std::string text = Unfold(value);
    BlankControls(text);
    return text;
}

// A list of addresses in Shift-JIS. What is written for other characters holds parentheses now and then, which would
// begin a comment: they become full-width.
std::string WithoutNewStructure(std::string_view utf8) {
    std::string list;
    while (!utf8.empty()) {
        const auto is_ascii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
        const auto ascii = static_cast<std::size_t>(std::ranges::find_if_not(utf8, is_ascii) - utf8.begin());
        list += utf8.substr(0, ascii);
        utf8.remove_prefix(ascii);
        const auto beyond = static_cast<std::size_t>(std::ranges::find_if(utf8, is_ascii) - utf8.begin());
        std::string run(utf8.substr(0, beyond));
        utf8.remove_prefix(beyond);
        Utf8ToSJis(&run, &run);
        for (const char c : run) list += c == '(' ? "\x81\x69" : c == ')' ? "\x81\x6A" : std::string(1, c);
    }
    return list;
}

std::string DecodedAddresses(std::string_view value, CharsetConverter& converter, int& encoded_words) {
    const std::string raw = RawToUtf8(Unfold(value));
    AddressContext context;
    WordDecoder decoder(raw, converter, &context);
    std::string text = WithUnmistakableAddresses(decoder.Decode());
    encoded_words += decoder.Count();
    return WithoutNewStructure(text);
}

std::string DecodedText(std::string_view value, CharsetConverter& converter, int& encoded_words) {
    const std::string raw = RawToSJis(Unfold(value));
    WordDecoder decoder(raw, converter, nullptr);
    std::string text = decoder.Decode();
    encoded_words += decoder.Count();
    return text;
}

std::string Decoded(std::string_view value, ValueForm form, CharsetConverter& converter, int& encoded_words) {
    if (form == ValueForm::Verbatim) return Verbatim(value);
    std::string text = (form == ValueForm::Addresses ? DecodedAddresses : DecodedText)(value, converter, encoded_words);
    BlankControls(text);
    return std::string(TrimBlanksAndTabs(text));
}

int AsInt(std::size_t size) {
    return static_cast<int>(std::min(size, static_cast<std::size_t>(std::numeric_limits<int>::max())));
}

}  // namespace

std::string_view HeaderOf(std::string_view text) {
    const std::size_t blank_line = text.find(kBlankLine);
    if (blank_line != kNone) return text.substr(0, blank_line);
    if (text.starts_with("--")) return {};
    return text.substr(0, text.find("\r\n--"));
}

void MakeMailInfo(std::string_view text, CMailInfo* info) {
    *info = CMailInfo();
    std::string_view header = HeaderOf(text);
    info->message_bytes = AsInt(text.size());
    info->header_bytes = AsInt(header.size());
    info->has_blank_line = text.substr(header.size()).starts_with(kBlankLine) ? 1 : 0;
    info->body_offset = info->has_blank_line ? AsInt(header.size() + kLineEnd.size()) : 0;

    CharsetConverter converter;
    std::array<bool, kKnownFields.size()> seen{};
    while (const std::optional<Field> field = TakeField(header)) {
        ++info->field_count;
        const std::optional<std::size_t> known = FindKnownField(field->name);
        if (!known || std::exchange(seen[*known], true)) continue;
        const KnownField& entry = kKnownFields[*known];
        info->*entry.member = Decoded(field->value, entry.form, converter, info->encoded_words);
    }
}

ContentFields ReadContentFields(std::string_view header) {
    std::optional<std::string> content_type;
    std::optional<std::string> transfer_encoding;
    while (const std::optional<Field> field = TakeField(header)) {
        const std::optional<std::size_t> known = FindKnownField(field->name);
        if (!known) continue;
        const auto member = kKnownFields[*known].member;
        if (member == &CMailInfo::content_type && !content_type) content_type = Verbatim(field->value);
        if (member == &CMailInfo::content_transfer_encoding && !transfer_encoding) {
            transfer_encoding = Verbatim(field->value);
        }
    }
    return {content_type.value_or(""), transfer_encoding.value_or("")};
}

}  // namespace tarvex
