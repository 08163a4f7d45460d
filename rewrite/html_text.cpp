#include "rewrite/html_text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/codec/text.h"

namespace tarvex {
namespace {

using Byte = unsigned char;

constexpr bool IsBlankOrLineEnd(char c) { return c == '\t' || c == '\n' || c == '\r' || c == ' '; }

// ---- tags

// What is collected of a tag: as much as decides, without broken double-byte characters.
class TagText {
public:
    void Clear() {
        name_.clear();
        lead_ = 0;
    }

    void Add(char c) {
        const auto byte = static_cast<Byte>(c);
        if (name_.size() >= kDecisive) return;
        if (lead_ != 0) {
            if (IsTrailByte(byte)) name_.append(1, lead_).append(1, c);
            lead_ = 0;
        } else if (IsLeadByte(byte)) {
            lead_ = c;
        } else if (IsSingleByte(byte)) {
            name_ += c;
        }
    }

    // Whether a line ends where the tag stands.
    bool EndsLine() const {
        const CString name = ToLower(name_);
        return name.starts_with("/p") || name.starts_with("p/") || name.starts_with("/div");
    }

private:
    static constexpr std::size_t kDecisive = 4;
    CString name_;
    char lead_ = 0;  // waits for its trail byte
};

// ---- entities

struct Entity {
    std::string_view letters;  // lower case
    char result;
};
constexpr std::array<Entity, 6> kEntities = {{
    {"amp", '&'},
    {"quot", '"'},
    {"lt", '<'},
    {"gt", '>'},
    {"nbsp", ' '},
    {"minus", '-'},
}};

constexpr char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool BeginsWithLetters(std::string_view text, std::string_view letters) {
    if (text.size() < letters.size()) return false;
    for (std::size_t i = 0; i < letters.size(); ++i) {
        if (Lower(text[i]) != letters[i]) return false;
    }
    return true;
}

bool IsApostrophe(std::string_view name) {
    return BeginsWithLetters(name, "apo") && name.size() > 3 && (name[3] == 'a' || name[3] == 'S');
}

// What the entity of that name stands for; 0 for none.
char EntityResult(std::string_view name) {
    if (IsApostrophe(name)) return '\'';
    for (const Entity& entity : kEntities) {
        if (BeginsWithLetters(name, entity.letters)) return entity.result;
    }
    return 0;
}

// Decodes in place and returns the length of the result.
std::size_t DecodeEntities(char* buffer, std::size_t length) {
    constexpr std::size_t kNone = std::string_view::npos;
    std::size_t written = 0;
    std::size_t start = kNone;  // of the entity that may be under way, its "&"
    for (std::size_t read = 0; read < length; ++read) {
        const char c = buffer[read];
        buffer[written++] = c;
        if (c == '&') start = written - 1;
        if (c != ';' || start == kNone) continue;

        const char result = EntityResult(std::string_view(buffer + start + 1, written - start - 2));
        if (result != 0) {
            buffer[start] = result;
            written = start + 1;
        }
        if (result != '&') start = kNone;
    }
    return written;
}

// ---- characters

// The characters of a list, as the filter looks them up.
class CharacterSet {
public:
    explicit CharacterSet(std::string_view list) {
        while (!list.empty()) {
            const std::size_t end = std::min(list.find(' '), list.size());
            if (end == 1) single_[static_cast<Byte>(list[0])] = true;
            if (end == 2)
                AddDouble(static_cast<std::uint16_t>(static_cast<Byte>(list[0]) << 8 | static_cast<Byte>(list[1])));
            list.remove_prefix(std::min(end + 1, list.size()));
        }
    }

    bool Has(char c) const { return single_[static_cast<Byte>(c)]; }
    bool HasDouble(std::uint16_t code) const { return !double_.empty() && double_[code]; }

private:
    void AddDouble(std::uint16_t code) {
        double_.resize(0x10000);
        double_[code] = true;
    }

    std::array<bool, 256> single_{};
    std::vector<bool> double_;  // by code; empty without any
};

// Decides character by character what stays.
class Filter {
public:
    Filter(bool compress, const CharacterSet& listed) : compress_(compress), listed_(listed) {}

    bool Keeps(char c) {
        const bool keeps = compress_ ? KeepsCompressed(c) : !IsBlankOrLineEnd(c) && !listed_.Has(c);
        if (keeps) {
            last_single_ = static_cast<Byte>(c);
            last_double_ = kNone;
        }
        return keeps;
    }

    bool KeepsDouble(std::uint16_t code) {
        const bool keeps = !listed_.HasDouble(code) || (compress_ && last_double_ != code);
        if (keeps) {
            last_double_ = code;
            last_single_ = kNone;
        }
        return keeps;
    }

private:
    static constexpr int kNone = -1;

    // Line ends stay as CR LF, one at a time; runs of a blank, a tab or a listed character shrink to one.
    bool KeepsCompressed(char c) const {
        if (c == '\r') return last_single_ != '\n';
        if (c == '\n') return last_single_ == '\r';
        if (c == ' ' || c == '\t' || listed_.Has(c)) return last_single_ != static_cast<Byte>(c);
        return true;
    }

    bool compress_;
    const CharacterSet& listed_;
    int last_single_ = kNone;  // the last character written, when it was a single byte
    int last_double_ = kNone;  // likewise, when it was a double-byte character
};

}  // namespace

int HtmlToText(CString* html) {
    const std::string_view source = *html;
    CString text;
    text.reserve(source.size());
    TagText tag;
    bool in_tag = false;
    bool in_comment = false;
    for (std::size_t i = 0; i < source.size(); ++i) {
        const char c = source[i];
        if (IsBlankOrLineEnd(c)) continue;
        if (c == '<') {
            in_tag = true;
            tag.Clear();
            if (source.substr(i + 1, 3) == "!--") in_comment = true;
        } else if (c == '>') {
            in_tag = false;
            if (in_comment) {
                if (i >= 2 && source.substr(i - 2, 2) == "--") in_comment = false;
            } else if (tag.EndsLine()) {
                text += "\r\n";
            }
        } else if (in_tag) {
            tag.Add(c);
        } else if (!in_comment) {
            text += c;
        }
    }
    html->swap(text);
    return DecodeHtmlEntitiesInText(html);
}

int DecodeHtmlEntities(char* buffer, unsigned* length) {
    if (!buffer) return 0;
    *length = static_cast<unsigned>(DecodeEntities(buffer, *length));
    return 1;
}

int DecodeHtmlEntitiesInText(CString* text) {
    text->resize(DecodeEntities(text->data(), text->size()));
    return 1;
}

int FilterCharacters(CString* text, int compress, CString characters) {
    const CharacterSet listed(characters);
    Filter filter(compress != 0, listed);
    CString& bytes = *text;
    std::size_t written = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const char c = bytes[i];
        const auto byte = static_cast<Byte>(c);
        if (IsLeadByte(byte)) {
            if (++i == bytes.size()) break;
            const auto trail = static_cast<Byte>(bytes[i]);
            if (!IsTrailByte(trail) || !filter.KeepsDouble(static_cast<std::uint16_t>(byte << 8 | trail))) continue;
            bytes[written++] = c;
            bytes[written++] = bytes[i];
        } else if (IsSingleByte(byte) && filter.Keeps(c)) {
            bytes[written++] = c;
        }
    }
    bytes.resize(written);
    return 1;
}

}  // namespace tarvex
