// Mail headers, writing: strict.

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/codec/base64.h"
#include "platform/codec/mail_header.h"
#include "platform/codec/text.h"

namespace tarvex {
namespace {

constexpr std::size_t kMaxColumns = 76;
constexpr std::size_t kMaxWordBytes = 75;   // RFC 2047 section 2
constexpr std::size_t kMaxAtomBytes = 900;  // what is longer is encoded, so that no line passes 998 bytes
constexpr std::size_t kMaxBlanks = 20;      // a longer run of blanks is encoded, for the same reason
constexpr std::string_view kWordBegin = "=?ISO-2022-JP?B?";
constexpr std::string_view kWordEnd = "?=";
constexpr std::string_view kToKanji = "\x1B$B";
constexpr std::string_view kToAscii = "\x1B(B";

// A text as characters: ASCII as it is, but for control characters, which become blanks; others as their two JIS bytes.
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
        const bool is_printable = byte(0) >= 0x20 && byte(0) < 0x7F;
        const int character = length == 2 ? byte(0) << 8 | byte(1) : is_printable ? byte(0) : ' ';
        characters += static_cast<char16_t>(character);
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

enum class Splitting {
    Words,      // at blanks alone
    Addresses,  // structure apart from words: in a list of addresses only words may be encoded
};

// Splits a value into pieces, one at a time: there may be as many as characters.
class Splitter {
public:
    Splitter(Characters value, Splitting splitting) : value_(std::move(value)), splitting_(splitting) {}

    // Nothing at the end of the value.
    std::optional<Piece> Next() {
        constexpr std::u16string_view kSpecials = u"<>(),;:";
        const std::size_t blanks = TakeBlanks();
        if (at_ == value_.size()) return std::nullopt;
        if (blanks > kMaxBlanks) {
            at_ -= 1;  // one blank stands on either side of the encoded word
            return Piece{Characters(blanks - 2, u' '), true, 1};
        }
        if (splitting_ == Splitting::Words) return MakePiece(TakeUntil(u" "), blanks);
        if (value_[at_] == u'"') return TakeQuoted(blanks);
        if (kSpecials.find(value_[at_]) != std::u16string_view::npos) {
            return MakePiece(value_.substr(at_++, 1), blanks);
        }
        return MakePiece(TakeUntil(u" \"<>(),;:"), blanks);
    }

private:
    static Piece MakePiece(Characters text, std::size_t blanks) {
        const bool encode = NeedsEncoding(text);
        return {std::move(text), encode, blanks};
    }

    std::size_t TakeBlanks() {
        const std::size_t begin = std::exchange(at_, std::min(value_.find_first_not_of(u' ', at_), value_.size()));
        return at_ - begin;
    }

    Characters TakeUntil(std::u16string_view ends) {
        const std::size_t begin = std::exchange(at_, std::min(value_.find_first_of(ends, at_), value_.size()));
        return value_.substr(begin, at_ - begin);
    }

    // A quoted string that must be encoded loses its quotes: encoded words may not stand inside.
    Piece TakeQuoted(std::size_t blanks) {
        Characters quoted(1, value_[at_++]);
        Characters content;
        for (bool closed = false; at_ < value_.size() && !closed; ++at_) {
            char16_t c = value_[at_];
            quoted += c;
            closed = c == u'"';
            if (c == u'\\' && at_ + 1 < value_.size()) quoted += c = value_[++at_];
            if (!closed) content += c;
        }
        if (NeedsEncoding(quoted)) return {std::move(content), true, blanks};
        return {std::move(quoted), false, blanks};
    }

    Characters value_;
    Splitting splitting_;
    std::size_t at_ = 0;
};

// Puts adjacent pieces of one kind together: encoded ones with the blanks between them, since blanks between two
// encoded words do not count; others where there is no blank between them. Between an encoded piece and another there
// is a blank.
class Joiner {
public:
    explicit Joiner(Splitter splitter) : splitter_(std::move(splitter)), following_(splitter_.Next()) {}

    // Nothing at the end of the value.
    std::optional<Piece> Next() {
        std::optional<Piece> piece = std::exchange(following_, std::nullopt);
        if (!piece) return std::nullopt;
        while ((following_ = splitter_.Next()) && Belongs(*piece, *following_)) {
            piece->text.append(following_->blanks, u' ').append(following_->text);
        }
        if (following_) following_->blanks = std::max<std::size_t>(following_->blanks, 1);
        return piece;
    }

private:
    static bool Belongs(const Piece& piece, const Piece& following) {
        if (piece.encode || following.encode) return piece.encode && following.encode;
        return following.blanks == 0 && piece.text.size() + following.text.size() <= kMaxAtomBytes;
    }

    Splitter splitter_;
    std::optional<Piece> following_;
};

class FieldWriter {
public:
    FieldWriter(std::string& out, std::string_view name) : out_(out), column_(name.size()) { out_ += name; }

    void Write(const Piece& piece) {
        blanks_ = std::max<std::size_t>(piece.blanks, 1);
        if (piece.encode) {
            WriteEncoded(piece.text);
        } else {
            const std::string atom(piece.text.begin(), piece.text.end());
            if (column_ + blanks_ + atom.size() > kMaxColumns && CanFold()) Fold();
            Put(atom);
        }
    }

private:
    // Never behind the name: a line that holds nothing more looks like an empty field.
    bool CanFold() const { return has_text_ && column_ > 0; }

    void Fold() {
        out_ += "\r\n";
        column_ = 0;
    }

    void Put(std::string_view atom) {
        out_.append(blanks_, ' ').append(atom);
        column_ += blanks_ + atom.size();
        blanks_ = 1;
        has_text_ = true;
    }

    // As many encoded words as it takes.
    void WriteEncoded(std::u16string_view text) {
        while (!text.empty()) {
            Word word = TakeWord(text, column_ + blanks_);
            if (CanFold() && !word.IsWhole(text)) {
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
    bool has_text_ = false;
};

bool HoldsAddresses(std::string_view name) {
    constexpr std::array<std::string_view, 4> kNames = {"from:", "to:", "cc:", "reply-to:"};
    return std::ranges::find(kNames, ToLower(name)) != kNames.end();
}

void EncodeField(std::string_view line, std::string& out) {
    const std::size_t colon = line.find(':');
    const std::string_view name = line.substr(0, colon == std::string_view::npos ? 0 : colon + 1);
    Joiner pieces(
        Splitter(FromJis(line.substr(name.size())), HoldsAddresses(name) ? Splitting::Addresses : Splitting::Words));
    FieldWriter writer(out, name);
    bool empty = true;
    while (const std::optional<Piece> piece = pieces.Next()) {
        writer.Write(*piece);
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
