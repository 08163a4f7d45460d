// Mail headers, writing: strict.

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/codec/base64.h"
#include "platform/codec/mail_header.h"
#include "platform/codec/text.h"

namespace tarvex {
namespace {

constexpr std::size_t kMaxColumns = 76;
constexpr std::size_t kMaxWordBytes = 75;   // RFC 2047 section 2
constexpr std::size_t kMaxAtomBytes = 900;  // what is longer is encoded, so that no line passes 998 bytes
constexpr std::size_t kMaxBlanks = 20;      // likewise
constexpr std::string_view kWordBegin = "=?ISO-2022-JP?B?";
constexpr std::string_view kWordEnd = "?=";
constexpr std::string_view kToKanji = "\x1B$B";
constexpr std::string_view kToAscii = "\x1B(B";

// A text as characters: ASCII as it is, others as their two JIS bytes.
using Characters = std::u16string;

constexpr bool IsAscii(char16_t c) { return c < 0x80; }

Characters FromJis(std::string_view text) {
    Characters characters;
    characters.reserve(text.size());
    bool kanji = false;
    while (!text.empty()) {
        if (text.starts_with(kToKanji) || text.starts_with(kToAscii)) {
            kanji = text.starts_with(kToKanji);
            text.remove_prefix(kToKanji.size());
            continue;
        }
        const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
        const std::size_t length = kanji && text.size() > 1 ? 2 : 1;
        characters +=
            length == 2 ? static_cast<char16_t>(byte(0) << 8 | byte(1)) : static_cast<char16_t>(byte(0) & 0x7F);
        text.remove_prefix(length);
    }
    return characters;
}

// A piece of a value that is not split any further.
struct Piece {
    Characters text;
    bool encode = false;
    std::size_t blanks = 0;  // in front of it
};

// What looks like an encoded word is encoded as well: every encoded word of the result is one that was written here.
bool NeedsEncoding(const Characters& text) {
    return text.size() > kMaxAtomBytes || text.find(u"=?") != Characters::npos || !std::ranges::all_of(text, IsAscii);
}

// Splits a value into pieces.
class Splitter {
public:
    explicit Splitter(Characters value) : value_(std::move(value)) {}

    // At blanks alone.
    std::vector<Piece> Words() {
        while (SkipBlanks()) Add(TakeUntil(u" "), false);
        return std::move(pieces_);
    }

    // Structure apart from words: in a list of addresses only words may be encoded.
    std::vector<Piece> Addresses() {
        constexpr std::u16string_view kSpecials = u"<>(),;:";
        while (SkipBlanks()) {
            if (value_[at_] == u'"') {
                AddQuoted();
            } else if (kSpecials.find(value_[at_]) != std::u16string_view::npos) {
                Add(value_.substr(at_++, 1), false);
            } else {
                Add(TakeUntil(u" \"<>(),;:"), false);
            }
        }
        return std::move(pieces_);
    }

private:
    // False at the end of the value.
    bool SkipBlanks() {
        const std::size_t end = std::min(value_.find_first_not_of(u' ', at_), value_.size());
        blanks_ = end - at_;
        at_ = end;
        if (at_ == value_.size()) return false;
        if (blanks_ > kMaxBlanks) {
            // A blank of them stands on either side of the encoded word.
            const std::size_t blanks = std::exchange(blanks_, 1);
            Add(Characters(blanks - 2, u' '), true);
            blanks_ = 1;
        }
        return true;
    }

    Characters TakeUntil(std::u16string_view ends) {
        const std::size_t end = std::min(value_.find_first_of(ends, at_), value_.size());
        Characters taken = value_.substr(at_, end - at_);
        at_ = end;
        return taken;
    }

    // A quoted string that must be encoded loses its quotes: encoded words may not stand inside.
    void AddQuoted() {
        Characters quoted(1, value_[at_++]);
        Characters content;
        for (bool closed = false; at_ < value_.size() && !closed; ++at_) {
            char16_t c = value_[at_];
            quoted += c;
            closed = c == u'"';
            if (c == u'\\' && at_ + 1 < value_.size()) quoted += c = value_[++at_];
            if (!closed) content += c;
        }
        if (NeedsEncoding(quoted)) {
            Add(std::move(content), true);
        } else {
            Add(std::move(quoted), false);
        }
    }

    void Add(Characters text, bool encode) {
        encode = encode || NeedsEncoding(text);
        pieces_.push_back({std::move(text), encode, std::exchange(blanks_, 0)});
    }

    Characters value_;
    std::size_t at_ = 0;
    std::size_t blanks_ = 0;
    std::vector<Piece> pieces_;
};

// Puts adjacent pieces of one kind together: encoded ones with the blanks between them, since blanks between two
// encoded words do not count; others where there is no blank between them. Between an encoded piece and another there
// is a blank.
std::vector<Piece> Join(std::vector<Piece> pieces) {
    std::vector<Piece> joined;
    for (Piece& piece : pieces) {
        Piece* const last = joined.empty() ? nullptr : &joined.back();
        const bool glued = last && !last->encode && !piece.encode && piece.blanks == 0 &&
                           last->text.size() + piece.text.size() <= kMaxAtomBytes;
        if (last && last->encode && piece.encode) {
            last->text.append(piece.blanks, u' ').append(piece.text);
        } else if (glued) {
            last->text += piece.text;
        } else {
            if (last) piece.blanks = std::max<std::size_t>(piece.blanks, 1);
            joined.push_back(std::move(piece));
        }
    }
    return joined;
}

class FieldWriter {
public:
    FieldWriter(std::string& out, std::string_view name) : out_(out), column_(name.size()) { out_ += name; }

    void Write(const Piece& piece) {
        blanks_ = std::max<std::size_t>(piece.blanks, 1);
        if (piece.encode) {
            WriteEncoded(piece.text);
        } else {
            const std::string atom(piece.text.begin(), piece.text.end());
            if (column_ + blanks_ + atom.size() > kMaxColumns && has_pieces_) Fold();
            Put(atom);
        }
        has_pieces_ = true;
    }

private:
    void Fold() {
        out_ += "\r\n";
        column_ = 0;
    }

    void Put(std::string_view atom) {
        out_.append(blanks_, ' ').append(atom);
        column_ += blanks_ + atom.size();
        blanks_ = 1;
    }

    // As many encoded words as it takes.
    void WriteEncoded(std::u16string_view text) {
        while (!text.empty()) {
            Word word = TakeWord(text, column_ + blanks_);
            if (column_ > 0 && !word.IsWhole(text)) {
                Fold();
                word = TakeWord(text, column_ + blanks_);
            }
            std::string encoded;
            Base64Encode(&word.bytes, &encoded);
            Put(std::string(kWordBegin).append(encoded).append(kWordEnd));
            text.remove_prefix(word.characters);
        }
    }

    struct Word {
        std::string bytes;
        std::size_t characters = 0;  // of the text that are in it

        // Whether it ends with a whole quantum or with the text, so that no padding stands inside.
        bool IsWhole(std::u16string_view text) const {
            return characters > 0 && (bytes.size() % 3 == 0 || characters == text.size());
        }
    };

    // The longest encoded word at that column that holds characters from the front. Where others follow it should need
    // no padding, since there are readers that join the Base64 of adjacent words and stop at padding; three characters
    // of one kind in a row always make that possible.
    static Word TakeWord(std::u16string_view text, std::size_t column) {
        constexpr std::size_t kOverhead = kWordBegin.size() + kWordEnd.size();
        const std::size_t room = column < kMaxColumns ? std::min(kMaxColumns - column, kMaxWordBytes) : 0;
        const std::size_t max_bytes = room < kOverhead ? 0 : (room - kOverhead) / 4 * 3;
        Word whole;
        Word longest;  // whatever it ends with
        bool kanji = false;
        std::string bytes;
        for (const char16_t c : text) {
            const bool is_kanji = !IsAscii(c);
            if (is_kanji != kanji) bytes += is_kanji ? kToKanji : kToAscii;
            kanji = is_kanji;
            if (is_kanji) bytes += static_cast<char>(c >> 8);
            bytes += static_cast<char>(c & 0xFF);

            std::string closed = bytes;
            if (kanji) closed += kToAscii;
            if (closed.size() > max_bytes) break;
            longest = {std::move(closed), longest.characters + 1};
            if (longest.IsWhole(text)) whole = longest;
        }
        return whole.characters > 0 ? whole : longest;
    }

    std::string& out_;
    std::size_t column_;
    std::size_t blanks_ = 1;
    bool has_pieces_ = false;
};

bool HoldsAddresses(std::string_view name) {
    constexpr std::array<std::string_view, 4> kNames = {"from:", "to:", "cc:", "reply-to:"};
    return std::ranges::find(kNames, ToLower(name)) != kNames.end();
}

void EncodeField(std::string_view line, std::string& out) {
    const std::size_t colon = line.find(':');
    const std::string_view name = line.substr(0, colon == std::string_view::npos ? 0 : colon + 1);
    Splitter splitter(FromJis(line.substr(name.size())));
    FieldWriter writer(out, name);
    bool empty = true;
    for (const Piece& piece : Join(HoldsAddresses(name) ? splitter.Addresses() : splitter.Words())) {
        writer.Write(piece);
        empty = false;
    }
    if (empty) out += ' ';
}

}  // namespace

void EncodeMailHeader(const std::string* header, std::string* encoded) {
    std::string out;
    std::string_view lines = *header;
    for (;;) {
        const std::size_t end = lines.find("\r\n");
        EncodeField(lines.substr(0, end), out);
        if (end == std::string_view::npos) break;
        out += "\r\n";
        lines.remove_prefix(end + 2);
    }
    *encoded = std::move(out);
}

}  // namespace tarvex
