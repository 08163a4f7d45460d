// HTML to text, character entities, and the filter that cuts or compresses characters.

#include "rewrite/html_text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "platform/codec/text.h"

namespace tarvex {
namespace {

using Byte = unsigned char;

constexpr bool IsBlankOrLineEnd(char c) { return c == '\t' || c == '\n' || c == '\r' || c == ' '; }

// `letters`: lower case.
bool BeginsWithLetters(std::string_view text, std::string_view letters) {
    if (text.size() < letters.size()) return false;
    for (std::size_t i = 0; i < letters.size(); ++i) {
        if (LowerLetter(text[i]) != letters[i]) return false;
    }
    return true;
}

// ---- tags

// The beginning of a tag: as many letters as decide what it does, without broken double-byte characters.
class TagText {
public:
    void Clear() {
        name_.clear();
        lead_ = 0;
    }

    void Add(std::string_view text) {
        for (std::size_t i = 0; i < text.size() && name_.size() < kDecisive; ++i) {
            if (!IsBlankOrLineEnd(text[i])) Add(text[i]);
        }
    }

    // Whether the tag becomes a line end (B78).
    bool EndsLine() const {
        return BeginsWithLetters(name_, "/p") || BeginsWithLetters(name_, "p/") || BeginsWithLetters(name_, "/div");
    }

private:
    static constexpr std::size_t kDecisive = 4;

    void Add(char c) {
        const auto byte = static_cast<Byte>(c);
        if (lead_ != 0) {
            if (IsTrailByte(byte)) name_.append(1, lead_).append(1, c);
            lead_ = 0;
        } else if (IsLeadByte(byte)) {
            lead_ = c;
        } else if (IsSingleByte(byte)) {
            name_ += c;
        }
    }

    CString name_;
    char lead_ = 0;  // waits for its trail byte
};

// Writes the text without its white space and returns where the next character goes.
char* CopyInk(std::string_view text, char* out) {
    for (const char c : text) {
        *out = c;
        out += IsBlankOrLineEnd(c) ? 0 : 1;
    }
    return out;
}

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

bool IsApostrophe(std::string_view name) {
    return BeginsWithLetters(name, "apo") && name.size() > 3 && (name[3] == 'a' || name[3] == 'S');
}

// The character that an entity stands for; 0 for a name that is none.
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
    char* const end = buffer + length;
    char* read = buffer;
    std::size_t written = 0;
    std::size_t start = kNone;  // of the entity that may be under way, its "&"
    const auto keep_until = [&](char* kept_end) {
        const auto kept_bytes = static_cast<std::size_t>(kept_end - read);
        std::memmove(buffer + written, read, kept_bytes);
        written += kept_bytes;
        read = kept_end;
    };
    for (;;) {
        char* const found = start == kNone ? std::find(read, end, '&')
                                           : std::find_if(read, end, [](char c) { return c == '&' || c == ';'; });
        if (found == end) break;
        keep_until(found + 1);
        if (buffer[written - 1] == '&') {
            start = written - 1;
            continue;
        }
        const char result = EntityResult(std::string_view(buffer + start + 1, written - start - 2));
        if (result != 0) {
            buffer[start] = result;
            written = start + 1;
        }
        if (result != '&') start = kNone;
    }
    keep_until(end);
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

    // Line ends stay as CR LF, one at a time (B82); runs of a blank, a tab or a listed character shrink to one.
    bool KeepsCompressed(char c) const {
        if (c == '\r') return last_single_ != '\n';
        if (c == '\n') return last_single_ == '\r';
        if (c == ' ' || c == '\t' || listed_.Has(c)) return last_single_ != static_cast<Byte>(c);
        return true;
    }

    bool compress_;
    const CharacterSet& listed_;
    int last_single_ = kNone;  // the last character written, when it was a single byte
    int last_double_ = kNone;  // the last character written, when it was a double-byte one
};

}  // namespace

int HtmlToText(CString* html) {
    const std::string_view source = *html;
    const auto is_bracket = [](char c) { return c == '<' || c == '>'; };
    // Every ">" may become a line end of two bytes.
    CString text(source.size() + static_cast<std::size_t>(std::ranges::count(source, '>')), '\0');
    char* out = text.data();
    TagText tag;
    bool in_tag = false;
    bool in_comment = false;
    for (std::size_t i = 0; i < source.size(); ++i) {
        const std::string_view rest = source.substr(i);
        const auto run = static_cast<std::size_t>(std::ranges::find_if(rest, is_bracket) - rest.begin());
        if (in_tag) {
            tag.Add(rest.substr(0, run));
        } else if (!in_comment) {
            out = CopyInk(rest.substr(0, run), out);
        }
        i += run;
        if (i == source.size()) break;

        if (source[i] == '<') {
            in_tag = true;
            tag.Clear();
            if (source.substr(i + 1, 3) == "!--") in_comment = true;
        } else {
            in_tag = false;
            if (in_comment) {
                if (i >= 2 && source.substr(i - 2, 2) == "--") in_comment = false;
            } else if (tag.EndsLine()) {
                *out++ = '\r';
                *out++ = '\n';
            }
        }
    }
    text.resize(static_cast<std::size_t>(out - text.data()));
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
