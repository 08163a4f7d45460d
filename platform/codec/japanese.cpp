// ISO-2022-JP, EUC-JP and UTF-8 to and from Shift-JIS.

#include "platform/codec/japanese.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/codec/cp932_table.h"
#include "platform/codec/text.h"

namespace tarvex {
namespace {

using Byte = unsigned char;
using Code = std::uint16_t;  // two bytes, the first one high; 0 = none

constexpr Code kGetaSJis = 0x81AC;
constexpr char16_t kGeta = 0x3013;
constexpr char kEscape = '\x1B';

Byte At(std::string_view text, std::size_t index) { return static_cast<Byte>(text[index]); }

// Collects what a conversion makes. A string costs several times as much for each character that is appended to it.
class Output {
public:
    explicit Output(std::size_t expected_bytes) { text_.reserve(expected_bytes); }

    void AddByte(char byte) {
        MakeRoom(1);
        waiting_[waiting_bytes_++] = byte;
    }
    void AddCode(Code code) {
        MakeRoom(2);
        waiting_[waiting_bytes_++] = static_cast<char>(code >> 8);
        waiting_[waiting_bytes_++] = static_cast<char>(code & 0xFF);
    }
    void AddText(std::string_view text) {
        if (text.size() > kShort_bytes) {
            Flush();
            text_ += text;
        } else {
            MakeRoom(text.size());
            text.copy(waiting_.data() + waiting_bytes_, text.size());
            waiting_bytes_ += text.size();
        }
    }
    std::string Take() {
        Flush();
        return std::move(text_);
    }

private:
    static constexpr std::size_t kShort_bytes = 64;

    void MakeRoom(std::size_t bytes) {
        if (waiting_bytes_ + bytes > waiting_.size()) Flush();
    }
    void Flush() {
        text_.append(waiting_.data(), waiting_bytes_);
        waiting_bytes_ = 0;
    }

    std::string text_;
    std::array<char, 1024> waiting_;
    std::size_t waiting_bytes_ = 0;
};

// Whether nothing has to be done for a text that stands in its place already, of which so many bytes at the beginning
// stay as they are. A mail may be ASCII alone and very large.
bool IsDone(const std::string* source, const std::string* target, std::size_t unchanged_bytes) {
    return source == target && unchanged_bytes >= source->size();
}

// ---- rows and cells

constexpr bool IsHalfWidth(Byte byte) { return byte >= 0xA1 && byte <= 0xDF; }
constexpr bool IsCellByte(Byte byte) { return byte >= 0x21 && byte <= 0x7E; }

// Two 7-bit bytes, 0x21 to 0x7E each.
constexpr Code SJisFromJis(Byte row, Byte cell) {
    const int lead = (row + 1) / 2 + (row < 0x5F ? 0x70 : 0xB0);
    const int trail = row % 2 == 0 ? cell + 0x7E : cell + (cell < 0x60 ? 0x1F : 0x20);
    return static_cast<Code>(lead << 8 | trail);
}

// A Shift-JIS code with a lead byte below 0xF0.
constexpr Code JisFromSJis(Code code) {
    const int lead = code >> 8;
    const int trail = code & 0xFF;
    const int pair = 2 * (lead - (lead < 0xA0 ? 0x70 : 0xB0));
    if (trail >= 0x9F) return static_cast<Code>(pair << 8 | (trail - 0x7E));
    return static_cast<Code>((pair - 1) << 8 | (trail - (trail < 0x7F ? 0x1F : 0x20)));
}
static_assert(SJisFromJis(0x22, 0x2E) == kGetaSJis && JisFromSJis(kGetaSJis) == 0x222E);

// ---- Unicode

constexpr char16_t kFirstUserDefined = 0xE000;
constexpr std::size_t kUserDefinedCharacters = 10 * kCp932Trails;  // leads 0xF0 to 0xF9

constexpr Code CodeAt(std::size_t index) {
    const std::size_t lead = index / kCp932Trails;
    const std::size_t trail = index % kCp932Trails;
    return static_cast<Code>((lead + (lead < 31 ? 0x81 : 0xE0 - 31)) << 8 | (trail + (trail < 63 ? 0x40 : 0x41)));
}

constexpr std::size_t IndexOf(Code code) {
    const std::size_t lead = code >> 8;
    const std::size_t trail = code & 0xFF;
    return (lead - (lead < 0xA0 ? 0x81 : 0xE0 - 31)) * kCp932Trails + trail - (trail < 0x7F ? 0x40 : 0x41);
}
static_assert(IndexOf(CodeAt(kCp932Characters - 1)) == kCp932Characters - 1 && CodeAt(0) == 0x8140);

// Of several codes for one character the Microsoft mapping takes: the standard's own, NEC's row 13, IBM's extensions,
// and last NEC's selection of those.
int Preference(Code code) {
    const int lead = code >> 8;
    if (lead == 0x87) return 1;
    if (lead >= 0xFA) return 2;
    return lead == 0xED || lead == 0xEE ? 3 : 0;
}

// Code page 932 from the other side, with what is written for characters that it lacks.
class UnicodeTable {
public:
    static constexpr Code kDropped = 1;  // no code: what has it is left out of the text

    static const UnicodeTable& Get() {
        static const UnicodeTable table;
        return table;
    }

    // A code, an ASCII character, kDropped, one of the texts of cp932_table.h, or 0.
    Code operator[](char32_t character) const {
        return pages_[page_of_[character >> kPageBits]][character % kPageCharacters];
    }

private:
    static constexpr unsigned kPageBits = 8;
    static constexpr std::size_t kPageCharacters = 1 << kPageBits;
    using Page = std::array<Code, kPageCharacters>;

    UnicodeTable() : pages_(1) {  // the first one is empty
        for (int preference = 0; preference <= 3; ++preference) {
            for (std::size_t i = 0; i < kCp932Characters; ++i) {
                if (kCp932ToUnicode[i] == 0 || Preference(CodeAt(i)) != preference) continue;
                Code& code = At(kCp932ToUnicode[i]);
                if (code == 0) code = CodeAt(i);
            }
        }
        for (std::size_t i = 0; i < kUserDefinedCharacters; ++i) {
            At(static_cast<char32_t>(kFirstUserDefined + i)) = CodeAt(IndexOf(0xF040) + i);
        }
        for (Code half_width = 0xA1; half_width <= 0xDF; ++half_width) At(0xFF61U - 0xA1U + half_width) = half_width;
        for (Code ascii = 0x20; ascii < 0x7F; ++ascii) At(ascii) = ascii;
        for (const LookAlike& one : kLookAlikes) At(one.character) = one.written == 0 ? kDropped : one.written;
    }

    Code& At(char32_t character) {
        std::uint16_t& page = page_of_[character >> kPageBits];
        if (page == 0) {
            page = static_cast<std::uint16_t>(pages_.size());
            pages_.emplace_back();
        }
        return pages_[page][character % kPageCharacters];
    }

    std::vector<Page> pages_;
    std::array<std::uint16_t, 0x110000 / kPageCharacters> page_of_{};
};

constexpr bool IsText(Code code) { return code >= kFirstText && code < kFirstCode; }

// The length of the ASCII text in front.
std::size_t AsciiBytes(std::string_view text) {
    constexpr std::uint64_t kHighBits = 0x8080808080808080;
    std::size_t length = 0;
    for (std::uint64_t word = 0; length + sizeof word <= text.size(); length += sizeof word) {
        std::memcpy(&word, text.data() + length, sizeof word);
        if (word & kHighBits) break;
    }
    while (length < text.size() && At(text, length) < 0x80) ++length;
    return length;
}

// One step through UTF-8 text whose first byte is above 0x7F.
struct Utf8Step {
    std::size_t length;
    char32_t character;
};
constexpr char32_t kIllFormed = 0xFFFFFFFF;  // in the place of a character

inline Utf8Step ReadUtf8(std::string_view text) {
    const Byte first = At(text, 0);
    std::size_t length = 0;
    char32_t character = 0;
    Byte lowest = 0x80;  // of the second byte: no overlong form, no surrogate, nothing above U+10FFFF
    Byte highest = 0xBF;
    if (first >= 0xC2 && first <= 0xDF) {
        length = 2;
        character = first & 0x1FU;
    } else if (first >= 0xE0 && first <= 0xEF) {
        length = 3;
        character = first & 0x0FU;
        if (first == 0xE0) lowest = 0xA0;
        if (first == 0xED) highest = 0x9F;
    } else if (first >= 0xF0 && first <= 0xF4) {
        length = 4;
        character = first & 0x07U;
        if (first == 0xF0) lowest = 0x90;
        if (first == 0xF4) highest = 0x8F;
    } else {
        return {1, kIllFormed};
    }
    for (std::size_t i = 1; i < length; ++i) {
        if (i >= text.size() || At(text, i) < lowest || At(text, i) > highest) return {i, kIllFormed};
        character = character << 6 | (At(text, i) & 0x3FU);
        lowest = 0x80;
        highest = 0xBF;
    }
    return {length, character};
}

// 0 for a code without a character.
char16_t UnicodeOf(Code code) {
    if (code < 0x80) return code;
    if (code <= 0xFF) return static_cast<char16_t>(0xFF61 - 0xA1 + code);
    const std::size_t index = IndexOf(code);
    const std::size_t first_user_defined = IndexOf(0xF040);
    if (index < first_user_defined || index >= first_user_defined + kUserDefinedCharacters)
        return kCp932ToUnicode[index];
    return static_cast<char16_t>(kFirstUserDefined + (index - first_user_defined));
}

// The signs that Unicode has twice and the code page once, under another code point. Foldings also join what only looks
// alike: a yen sign is no full-width yen sign.
constexpr std::u16string_view kSignsOfTwoCodePoints = u"\u00A2\u00A3\u00AC\u2014\u2016\u2212\u301C";

void AddCodeOrByte(Code code, Output& out) {
    if (code > 0xFF) {
        out.AddCode(code);
    } else {
        out.AddByte(static_cast<char>(code));
    }
}

// The code that stands for the same character; 0 when there is none.
Code SameCode(const UnicodeTable& table, char32_t character) {
    if (character > 0xFFFF) return 0;
    const auto unit = static_cast<char16_t>(character);
    const Code code = table[unit];
    if (code == 0 || code == UnicodeTable::kDropped || IsText(code)) return 0;
    return UnicodeOf(code) == unit || kSignsOfTwoCodePoints.find(unit) != std::u16string_view::npos ? code : Code{0};
}

void AddUtf8(char16_t character, Output& out) {
    const auto low = [character](int shift) { return static_cast<char>(0x80 | (character >> shift & 0x3F)); };
    if (character < 0x800) {
        out.AddByte(static_cast<char>(0xC0 | character >> 6));
    } else {
        out.AddByte(static_cast<char>(0xE0 | character >> 12));
        out.AddByte(low(6));
    }
    out.AddByte(low(0));
}

// The one character that a character and the mark behind it make, where the code page has it; else 0.
char32_t Joined(char32_t character, char32_t mark) {
    constexpr char32_t kVoice = 0x3099;
    constexpr char32_t kHalfVoice = 0x309A;
    constexpr char32_t kDiaeresis = 0x0308;
    constexpr char32_t kBreve = 0x0306;
    if (mark == kDiaeresis && (character | 0x20) == 0x0435) return character == 0x0435 ? 0x0451 : 0x0401;
    if (mark == kBreve && (character | 0x20) == 0x0438) return character + 1;
    if (character < 0x3041 || character > 0x30FE) return 0;
    const char32_t katakana = character >= 0x30A0 ? 0x60 : 0;
    const char32_t kana = character - katakana;
    const bool h_row = kana >= 0x306F && kana <= 0x307B && kana % 3 == 0;
    if (mark == kHalfVoice) return h_row ? character + 2 : 0;
    if (mark != kVoice) return 0;
    if (kana == 0x3046) return 0x30F4;
    const bool voiced = h_row || (kana >= 0x304B && kana <= 0x3062 && kana % 2 == 1) || kana == 0x3064 ||
                        kana == 0x3066 || kana == 0x3068 || kana == 0x309D;
    return voiced ? character + 1 : 0;
}

// Reads UTF-8 text that is not ASCII, character by character.
class Utf8Reader {
public:
    explicit Utf8Reader(Output& out) : out_(out) {}

    // Takes the character in front of the text, with what belongs to it, and returns its length.
    std::size_t Take(std::string_view text) {
        const Utf8Step step = ReadUtf8(text);
        if (step.character == kIllFormed) {
            out_.AddByte('?');
            return step.length;
        }
        const std::string_view rest = text.substr(step.length);
        if (MayBeMark(rest)) {
            const Utf8Step mark = ReadUtf8(rest);
            if (const char32_t joined = Joined(step.character, mark.character)) {
                Add(joined, rest.data() + mark.length);
                return step.length + mark.length;
            }
        }
        Add(step.character, rest.data());
        return step.length;
    }

private:
    static bool MayBeMark(std::string_view text) {
        return text.size() > 1 && (text[0] == '\xCC' || (text[0] == '\xE3' && text[1] == '\x82'));
    }

    // `end`: where the text goes on behind the character.
    void Add(char32_t character, const char* end) {
        const Code code = table_[character];
        if (code >= kFirstCode) {
            const bool is_sex = code == 0x8189 || code == 0x818A;  // of the person in an emoji
            if (!is_sex || !BelongsToSign(end, 3)) out_.AddCode(code);
        } else if (code == 0) {
            AddSign(character, end);
        } else if (IsText(code)) {
            AddText(kLookAlikeTexts[code - kFirstText], end - Utf8Bytes(character), end);
        } else if (code == UnicodeTable::kDropped) {
            if (sign_end_ && sign_end_ + Utf8Bytes(character) == end) {
                sign_end_ = end;
                is_joined_ = character == kZeroWidthJoiner;
            }
        } else {
            out_.AddByte(static_cast<char>(code));
        }
    }

    // A character that cannot be written becomes a geta mark, and so does a row of them that are joined to one sign: a
    // family, a flag with a colour, a person with a profession.
    void AddSign(char32_t character, const char* end) {
        if (!BelongsToSign(end, Utf8Bytes(character))) out_.AddCode(kGetaSJis);
        sign_end_ = end;
        is_joined_ = false;
    }

    // Of a number of superscripts the first has the sign of powers.
    void AddText(std::string_view text, const char* begin, const char* end) {
        const bool is_power = text.front() == '^';
        if (is_power && power_end_ == begin) text.remove_prefix(1);
        if (is_power) power_end_ = end;
        out_.AddText(text);
    }

    bool BelongsToSign(const char* end, std::size_t bytes) const { return is_joined_ && sign_end_ + bytes == end; }

    static std::size_t Utf8Bytes(char32_t character) { return character < 0x800 ? 2 : character < 0x10000 ? 3 : 4; }

    static constexpr char32_t kZeroWidthJoiner = 0x200D;

    Output& out_;
    const UnicodeTable& table_ = UnicodeTable::Get();
    const char* sign_end_ = nullptr;   // of the sign that was read last, with what was dropped behind it
    bool is_joined_ = false;           // the last of that joins the next character to the sign
    const char* power_end_ = nullptr;  // of the superscript that was read last
};

// `add_unknown` adds what stands for a double-byte code of no character, and returns how many bytes it stands for.
template <class AddUnknown>
std::string Utf8OfSJis(std::string_view text, AddUnknown add_unknown) {
    Output out(text.size() + text.size() / 2);
    while (!text.empty()) {
        const std::size_t ascii = AsciiBytes(text);
        out.AddText(text.substr(0, ascii));
        text.remove_prefix(ascii);
        if (text.empty()) break;

        const Byte first = At(text, 0);
        const std::size_t bytes = CharacterBytes(text);
        const bool is_code = bytes == 2 || IsHalfWidth(first);
        const char16_t character =
            is_code ? UnicodeOf(bytes == 2 ? static_cast<Code>(first << 8 | At(text, 1)) : Code{first}) : u'\0';
        if (character != 0) {
            AddUtf8(character, out);
            text.remove_prefix(bytes);
        } else if (bytes == 2) {
            text.remove_prefix(add_unknown(out));
        } else {
            out.AddByte('?');
            text.remove_prefix(1);
        }
    }
    return out.Take();
}

// ---- ISO-2022-JP, reading

enum class JisSet { Ascii, Kanji, Katakana, Supplement };

struct Designation {
    std::string_view sequence;
    JisSet set;
};
constexpr std::array<Designation, 11> kDesignations = {{
    {"\x1B$B", JisSet::Kanji},
    {"\x1B$(O", JisSet::Kanji},  // JIS X 0213, of which these rows are a part
    {"\x1B$(Q", JisSet::Kanji},
    {"\x1B$(P", JisSet::Supplement},
    {"\x1B$(C", JisSet::Supplement},  // Korean
    {"\x1B$A", JisSet::Supplement},   // Chinese
    {"\x1B(B", JisSet::Ascii},
    {"\x1B$@", JisSet::Kanji},
    {"\x1B(J", JisSet::Ascii},
    {"\x1B(I", JisSet::Katakana},
    {"\x1B$(D", JisSet::Supplement},
}};

// The length of what the text's first character in the set takes; it is added as Shift-JIS.
inline std::size_t ConvertFromSet(JisSet set, std::string_view text, Output& out) {
    const Byte first = At(text, 0);
    if (!IsCellByte(first)) {
        out.AddByte(text[0]);
        return 1;
    }
    if (set == JisSet::Katakana) {
        out.AddByte(static_cast<char>(first <= 0x5F ? first + 0x80 : first));
        return 1;
    }
    if (text.size() < 2 || !IsCellByte(At(text, 1))) {
        out.AddByte('?');
        return 1;
    }
    out.AddCode(set == JisSet::Kanji ? SJisFromJis(first, At(text, 1)) : kGetaSJis);
    return 2;
}

// ---- ISO-2022-JP, writing

// The full-width form of each half-width katakana, 0xA1 to 0xDF.
constexpr std::array<Code, 63> kFullWidth = {
    0x2123, 0x2156, 0x2157, 0x2122, 0x2126, 0x2572, 0x2521, 0x2523, 0x2525, 0x2527, 0x2529, 0x2563, 0x2565,
    0x2567, 0x2543, 0x213C, 0x2522, 0x2524, 0x2526, 0x2528, 0x252A, 0x252B, 0x252D, 0x252F, 0x2531, 0x2533,
    0x2535, 0x2537, 0x2539, 0x253B, 0x253D, 0x253F, 0x2541, 0x2544, 0x2546, 0x2548, 0x254A, 0x254B, 0x254C,
    0x254D, 0x254E, 0x254F, 0x2552, 0x2555, 0x2558, 0x255B, 0x255E, 0x255F, 0x2560, 0x2561, 0x2562, 0x2564,
    0x2566, 0x2568, 0x2569, 0x256A, 0x256B, 0x256C, 0x256D, 0x256F, 0x2573, 0x212B, 0x212C,
};
constexpr Byte kVoiceMark = 0xDE;
constexpr Byte kHalfVoiceMark = 0xDF;

// The character that a half-width katakana and the mark behind it make together; 0 when they do not join.
Code Voiced(Byte katakana, Byte mark) {
    const Code plain = kFullWidth[katakana - 0xA1U];
    const bool h_row = katakana >= 0xCA && katakana <= 0xCE;
    if (mark == kHalfVoiceMark) return h_row ? static_cast<Code>(plain + 2) : Code{0};
    if (mark != kVoiceMark) return 0;
    if (katakana == 0xB3) return 0x2574;
    return h_row || (katakana >= 0xB6 && katakana <= 0xC4) ? static_cast<Code>(plain + 1) : Code{0};
}

// The code within the 94 rows; a geta mark when there is none, or no character has it: strict readers refuse a text
// with such a code as a whole.
Code WithinRows(Code code) {
    const char16_t character = kCp932ToUnicode[IndexOf(code)];
    if (character == 0) return JisFromSJis(kGetaSJis);
    if (code < 0xF000) return JisFromSJis(code);
    const Code standard = UnicodeTable::Get()[character];
    if (standard < 0xF000) return JisFromSJis(standard);
    // What has no other code in the Microsoft mapping's eyes stands once more in NEC's selection, 0xED40 to 0xEEFC.
    const auto begin = kCp932ToUnicode.begin() + static_cast<std::ptrdiff_t>(IndexOf(0xED40));
    const auto end = begin + 2 * static_cast<std::ptrdiff_t>(kCp932Trails);
    const auto found = std::find(begin, end, character);
    if (found == end) return JisFromSJis(kGetaSJis);
    return JisFromSJis(CodeAt(static_cast<std::size_t>(found - kCp932ToUnicode.begin())));
}

class JisWriter {
public:
    explicit JisWriter(std::size_t source_bytes) : out_(source_bytes + source_bytes / 2) {}

    void Ascii(std::string_view text) {
        Designate("\x1B(B", false);
        out_.AddText(text);
    }
    void Kanji(Code code) {
        Designate("\x1B$B", true);
        out_.AddCode(code);
        converted_ = true;
    }
    bool Converted() const { return converted_; }
    std::string Finish() {
        Designate("\x1B(B", false);
        return out_.Take();
    }

private:
    void Designate(std::string_view sequence, bool kanji) {
        if (in_kanji_ == kanji) return;
        out_.AddText(sequence);
        in_kanji_ = kanji;
    }

    Output out_;
    bool in_kanji_ = false;
    bool converted_ = false;
};

constexpr std::string_view kDroppedControls{"\0\x0E\x0F\x1B", 4};

constexpr std::array<bool, 256> MakePlainBytes() {
    std::array<bool, 256> plain{};
    for (std::size_t byte = 0; byte < 0x80; ++byte) {
        plain[byte] = kDroppedControls.find(static_cast<char>(byte)) == std::string_view::npos;
    }
    return plain;
}
constexpr std::array<bool, 256> kPlainBytes = MakePlainBytes();

// The length of the ASCII text in front that passes.
std::size_t PlainBytes(std::string_view text) {
    std::size_t length = 0;
    while (length < text.size() && kPlainBytes[At(text, length)]) ++length;
    return length;
}

// Writes the character in front, which is not ASCII, and returns its length.
inline std::size_t WriteJapanese(JisWriter& writer, std::string_view text) {
    const Byte first = At(text, 0);
    if (IsHalfWidth(first)) {
        const Code joined = text.size() > 1 ? Voiced(first, At(text, 1)) : Code{0};
        writer.Kanji(joined != 0 ? joined : kFullWidth[first - 0xA1U]);
        return joined != 0 ? 2 : 1;
    }
    if (CharacterBytes(text) == 2) {
        writer.Kanji(WithinRows(static_cast<Code>(first << 8 | At(text, 1))));
        return 2;
    }
    writer.Ascii("?");
    return 1;
}

}  // namespace

void JisToSJis(const std::string* source, std::string* target) {
    std::string_view text = *source;
    if (IsDone(source, target, text.find(kEscape))) return;
    Output out(text.size());
    JisSet set = JisSet::Ascii;
    while (!text.empty()) {
        if (set == JisSet::Ascii) {
            const std::size_t plain = std::min(text.find(kEscape), text.size());
            out.AddText(text.substr(0, plain));
            text.remove_prefix(plain);
            if (text.empty()) break;
        }
        if (text[0] == kEscape) {
            const auto* const found = std::ranges::find_if(
                kDesignations, [text](const Designation& entry) { return text.starts_with(entry.sequence); });
            if (found != kDesignations.end()) {
                set = found->set;
                text.remove_prefix(found->sequence.size());
                continue;
            }
        }
        if (text[0] == '\r' || text[0] == '\n') set = JisSet::Ascii;
        if (set == JisSet::Ascii) {
            out.AddByte(text[0]);
            text.remove_prefix(1);
        } else {
            text.remove_prefix(ConvertFromSet(set, text, out));
        }
    }
    *target = out.Take();
}

void EucToSJis(const std::string* source, std::string* target) {
    constexpr Byte kSingleShift2 = 0x8E;
    constexpr Byte kSingleShift3 = 0x8F;
    const auto is_cell = [](std::string_view text, std::size_t index) {
        return index < text.size() && At(text, index) >= 0xA1 && At(text, index) <= 0xFE;
    };
    std::string_view text = *source;
    if (IsDone(source, target, AsciiBytes(text))) return;
    Output out(text.size());
    while (!text.empty()) {
        const std::size_t ascii = AsciiBytes(text);
        out.AddText(text.substr(0, ascii));
        text.remove_prefix(ascii);
        if (text.empty()) break;

        const Byte first = At(text, 0);
        std::size_t length = 2;
        if (first == kSingleShift2 && text.size() > 1 && IsHalfWidth(At(text, 1))) {
            out.AddByte(text[1]);
        } else if (first == kSingleShift3 && is_cell(text, 1) && is_cell(text, 2)) {
            out.AddCode(kGetaSJis);
            length = 3;
        } else if (is_cell(text, 0) && is_cell(text, 1)) {
            out.AddCode(SJisFromJis(first & 0x7F, At(text, 1) & 0x7F));
        } else {
            out.AddByte('?');
            length = 1;
        }
        text.remove_prefix(length);
    }
    *target = out.Take();
}

std::size_t WellFormedUtf8Bytes(std::string_view text) {
    const std::size_t bytes = text.size();
    for (;;) {
        text.remove_prefix(AsciiBytes(text));
        if (text.empty()) return bytes;
        const Utf8Step step = ReadUtf8(text);
        if (step.character == kIllFormed) return bytes - text.size();
        text.remove_prefix(step.length);
    }
}

bool IsUtf8(std::string_view text) { return WellFormedUtf8Bytes(text) == text.size(); }

std::optional<std::string> Utf8ToSameSJis(std::string_view utf8) {
    Output out(utf8.size());
    const UnicodeTable& table = UnicodeTable::Get();
    for (;;) {
        const std::size_t ascii = AsciiBytes(utf8);
        out.AddText(utf8.substr(0, ascii));
        utf8.remove_prefix(ascii);
        if (utf8.empty()) return out.Take();

        const Utf8Step step = ReadUtf8(utf8);
        const Code code = step.character == kIllFormed ? Code{0} : SameCode(table, step.character);
        if (code == 0) return std::nullopt;
        AddCodeOrByte(code, out);
        utf8.remove_prefix(step.length);
    }
}

void SJisToUtf8(const std::string* source, std::string* target) {
    *target = Utf8OfSJis(*source, [](Output& out) {
        out.AddByte('?');
        return std::size_t{1};
    });
}

void SJisCodesToUtf8(const std::string* source, std::string* target) {
    *target = Utf8OfSJis(*source, [](Output& out) {
        AddUtf8(kGeta, out);
        return std::size_t{2};
    });
}

std::string WellFormedUtf8(std::string_view text) {
    std::string whole;
    for (;;) {
        const std::size_t bytes = WellFormedUtf8Bytes(text);
        whole.append(text.substr(0, bytes));
        text.remove_prefix(bytes);
        if (text.empty()) return whole;
        whole += '?';
        text.remove_prefix(ReadUtf8(text).length);
    }
}

void Utf8ToSJis(const std::string* source, std::string* target) {
    std::string_view text = *source;
    if (IsDone(source, target, AsciiBytes(text))) return;
    Output out(text.size());
    Utf8Reader reader(out);
    while (!text.empty()) {
        const std::size_t ascii = AsciiBytes(text);
        out.AddText(text.substr(0, ascii));
        text.remove_prefix(ascii);
        if (!text.empty()) text.remove_prefix(reader.Take(text));
    }
    *target = out.Take();
}

int SJisToJis(const std::string* source, std::string* target) {
    std::string_view text = *source;
    if (IsDone(source, target, PlainBytes(text))) return 0;
    std::string read;
    if (text.find("\x1B$") != std::string_view::npos) {
        JisToSJis(source, &read);
        text = read;
    }
    JisWriter writer(text.size());
    while (!text.empty()) {
        if (const std::size_t plain = PlainBytes(text)) {
            writer.Ascii(text.substr(0, plain));
            text.remove_prefix(plain);
        } else {
            text.remove_prefix(At(text, 0) < 0x80 ? 1 : WriteJapanese(writer, text));
        }
    }
    const int converted = writer.Converted() ? 1 : 0;
    *target = writer.Finish();
    return converted;
}

}  // namespace tarvex
