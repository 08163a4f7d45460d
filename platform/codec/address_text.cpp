// Addresses of strangers, beyond ASCII: what one of them loses on the way is what makes it look like another.

#include "platform/codec/address_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <utility>

#include "platform/codec/japanese.h"
#include "platform/codec/text.h"

namespace tarvex {
namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::size_t kMaxLabel_bytes = 63;        // RFC 1035
constexpr std::string_view kNowhere = ".invalid";  // a domain that nobody has (RFC 2606)

bool IsAscii(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// Small letters for the capitals of Latin-1, Greek and Cyrillic.
char32_t Small(char32_t c) {
    const bool by_32 = (c >= U'A' && c <= U'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7) ||
                       (c >= 0x391 && c <= 0x3AB && c != 0x3A2) || (c >= 0x410 && c <= 0x42F);
    if (by_32) return c + 0x20;
    return c >= 0x400 && c <= 0x40F ? c + 0x50 : c;
}

// RFC 3492 section 6.
class Punycode {
public:
    static std::string Of(const std::u32string& label) {
        Punycode code;
        for (const char32_t c : label) {
            if (c < 0x80) code.out_ += static_cast<char>(c);
        }
        code.Encode(label);
        return std::move(code.out_);
    }

private:
    static constexpr std::uint32_t kBase = 36, kLowest = 1, kHighest = 26, kSkew = 38, kDamp = 700, kFirstBias = 72;

    void Encode(const std::u32string& label) {
        const auto basic = static_cast<std::uint32_t>(out_.size());
        if (basic > 0) out_ += '-';
        char32_t next = 0x80;
        std::uint32_t delta = 0;
        for (std::uint32_t handled = basic; handled < label.size();) {
            char32_t lowest = 0x10FFFF;
            for (const char32_t c : label) {
                if (c >= next) lowest = std::min(lowest, c);
            }
            delta += (lowest - next) * (handled + 1);
            next = lowest;
            for (const char32_t c : label) {
                if (c < next) ++delta;
                if (c != next) continue;
                AddNumber(delta);
                Adapt(delta, handled + 1, handled == basic);
                delta = 0;
                ++handled;
            }
            ++delta;
            ++next;
        }
    }

    void AddNumber(std::uint32_t number) {
        for (std::uint32_t k = kBase;; k += kBase) {
            const std::uint32_t threshold = k <= bias_ ? kLowest : std::min(k - bias_, kHighest);
            if (number < threshold) break;
            AddDigit(threshold + (number - threshold) % (kBase - threshold));
            number = (number - threshold) / (kBase - threshold);
        }
        AddDigit(number);
    }

    void AddDigit(std::uint32_t digit) { out_ += static_cast<char>(digit < 26 ? 'a' + digit : '0' + digit - 26); }

    void Adapt(std::uint32_t delta, std::uint32_t points, bool first) {
        delta /= first ? kDamp : 2;
        delta += delta / points;
        std::uint32_t k = 0;
        for (; delta > (kBase - kLowest) * kHighest / 2; k += kBase) delta /= kBase - kLowest;
        bias_ = k + (kBase - kLowest + 1) * delta / (delta + kSkew);
    }

    std::string out_;
    std::uint32_t bias_ = kFirstBias;
};

std::u32string CharactersOf(std::string_view utf8) {
    std::u32string characters;
    while (!utf8.empty()) {
        const auto first = static_cast<unsigned char>(utf8.front());
        const std::size_t bytes = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
        char32_t character = bytes == 1 ? first : first & (0x7FU >> bytes);
        for (std::size_t i = 1; i < bytes; ++i)
            character = character << 6 | (static_cast<unsigned char>(utf8[i]) & 0x3FU);
        characters += character;
        utf8.remove_prefix(bytes);
    }
    return characters;
}

// Each character that cannot be written as its number. False where there is none.
bool AppendMarked(std::string_view utf8, std::string& out) {
    bool is_marked = false;
    for (const char32_t c : CharactersOf(utf8)) {
        if (c < 0x80 && c != U'@') {
            out += static_cast<char>(c);
            continue;
        }
        std::array<char, 8> digits{};
        const char* const end = std::to_chars(digits.begin(), digits.end(), static_cast<std::uint32_t>(c), 16).ptr;
        out += "{U+" + ToUpper(std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data()))) + '}';
        is_marked = true;
    }
    return is_marked;
}

// The same result.
bool AppendLabel(std::string_view label, std::string& out) {
    if (IsAscii(label)) {
        out += label;
        return false;
    }
    std::u32string characters = CharactersOf(label);
    std::ranges::transform(characters, characters.begin(), Small);
    const std::string encoded = characters.size() > kMaxLabel_bytes ? "" : "xn--" + Punycode::Of(characters);
    if (encoded.empty() || encoded.size() > kMaxLabel_bytes) return AppendMarked(label, out);
    out += encoded;
    return false;
}

void AppendAddress(std::string_view address, std::string& out) {
    const std::size_t at = address.rfind('@');
    bool is_marked = AppendMarked(address.substr(0, at), out);
    if (at == kNone) return;
    out += '@';
    for (std::string_view domain = address.substr(at + 1);;) {
        const std::size_t dot = domain.find('.');
        is_marked = AppendLabel(domain.substr(0, dot), out) || is_marked;
        if (dot == kNone) break;
        out += '.';
        domain.remove_prefix(dot + 1);
    }
    if (is_marked) out += kNowhere;
}

// Reads a list of addresses in words: what stands between blanks and the signs that are its structure.
class Words {
public:
    std::string Read(std::string_view list) {
        while (!list.empty()) {
            const std::size_t end = std::min(list.find_first_of(" <>(),;:\""), list.size());
            AddWord(list.substr(0, end), list.substr(end));
            list.remove_prefix(end);
            if (list.empty()) break;
            AddSign(list.front());
            list.remove_prefix(1);
        }
        return std::move(out_);
    }

private:
    void AddWord(std::string_view word, std::string_view rest) {
        is_escaped_ = (is_quoted_ || comments_ > 0) && word.ends_with('\\') && !word.ends_with("\\\\");
        const bool holds_at = word.find('@') != kNone;
        if (in_brackets_ && IsAscii(word) && word.find("=?") != kNone) {
            AppendWithoutEncodedWords(word);
        } else if (!IsAscii(word) && (in_brackets_ || (holds_at && (IsAddressItself(rest) || !Utf8ToSameSJis(word))))) {
            AppendAddress(word, out_);
        } else {
            out_ += word;
        }
    }

    // Not a part of the name before the brackets of an address, nor of a comment. What it finds holds for the words up
    // to there: a list may have very many.
    bool IsAddressItself(std::string_view rest) {
        if (is_quoted_ || comments_ > 0) return false;
        if (rest.size() < next_sign_bytes_) {
            const std::size_t next = rest.find_first_of("<,;");
            has_brackets_ = next != kNone && rest[next] == '<';
            next_sign_bytes_ = next == kNone ? 0 : rest.size() - next;
        }
        return !has_brackets_;
    }

    void AppendWithoutEncodedWords(std::string_view word) {
        for (std::size_t begin = word.find("=?"); begin != kNone; begin = word.find("=?")) {
            out_.append(word.substr(0, begin)).append("={U+3F}");
            word.remove_prefix(begin + 2);
        }
        out_.append(word).append(kNowhere);
    }

    void AddSign(char sign) {
        out_ += sign;
        if (std::exchange(is_escaped_, false)) return;
        if (sign == '"' && comments_ == 0) is_quoted_ = !is_quoted_;
        if (is_quoted_) return;
        if (sign == '(') ++comments_;
        if (sign == ')' && comments_ > 0) --comments_;
        if (comments_ > 0) return;
        if (sign == '<') in_brackets_ = true;
        if (sign == '>') in_brackets_ = false;
    }

    std::string out_;
    bool is_escaped_ = false;  // the next sign, by a backslash
    bool is_quoted_ = false;
    int comments_ = 0;  // that are open
    bool in_brackets_ = false;
    std::size_t next_sign_bytes_ = kNone;  // so many bytes before the end of the list stands the next "<", "," or ";"
    bool has_brackets_ = false;            // it is the first of these
};

}  // namespace

std::string WithUnmistakableAddresses(std::string_view utf8) { return Words().Read(utf8); }

}  // namespace tarvex
