// Text in a named character set to Shift-JIS: by our own codecs, else by the system's converter.

#include "platform/codec/charset.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

#include "platform/codec/japanese.h"
#include "platform/codec/text.h"

namespace tarvex {
namespace {

constexpr std::size_t kMaxSystemCharsets = 16;
constexpr std::size_t kMaxNameBytes = 64;

void Copy(const std::string* source, std::string* target) { *target = *source; }

// In EUC-JP all beyond ASCII are pairs of high bytes, a good part of them kana or punctuation. Half-width katakana of
// Shift-JIS may be such pairs, but hardly of those rows.
bool MeansEuc(std::string_view text) {
    const auto is_high = [text](std::size_t at) {
        return at < text.size() && static_cast<unsigned char>(text[at]) > 0xA0;
    };
    std::size_t pairs = 0;
    std::size_t kana = 0;
    std::size_t punctuation = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (static_cast<unsigned char>(text[at]) < 0x80) continue;
        if (!is_high(at) || !is_high(at + 1)) return false;
        if (text[at] == '\xA4' || text[at] == '\xA5') ++kana;
        if (text[at] == '\xA1') ++punctuation;
        ++pairs;
        ++at;
    }
    return kana >= 2 && (kana + punctuation) * 4 >= pairs;
}

// Without a label, with an unknown one or with that of ISO-2022-JP: a text may be UTF-8 or EUC-JP all the same.
void GuessToSJis(const std::string* source, std::string* target) {
    const bool has_escape = source->find('\x1B') != std::string::npos;
    const Conversion meant = has_escape          ? JisToSJis
                             : IsUtf8(*source)   ? Utf8ToSJis
                             : MeansEuc(*source) ? EucToSJis
                                                 : JisToSJis;
    meant(source, target);
}

// The one table of character sets: to add one, add a row. The order counts for bodies alone.
//
// A header names a set by one of its names; "-" and "_", on which mails do not agree, do not count. The content type of
// a body names the first set of this order whose word it contains anywhere; one that contains none of the words is read
// as ISO-2022-JP, which leaves ASCII and Shift-JIS alone, or as UTF-8 or EUC-JP where it is that.
constexpr std::array<Charset, 26> kCharsets = {{
    // names                                      our conversion  word in bodies  Windows code page
    {"iso2022jp iso2022jp1 iso2022jp2 iso2022jp3 iso2022jp2004 iso2022jpms csiso2022jp cp50220 cp50221", GuessToSJis,
     "iso-2022-jp", 50220},
    {"utf8", Utf8ToSJis, "utf-8", 65001},
    {"eucjp xeucjp", EucToSJis, "euc-jp", 51932},
    {"usascii", Copy, "us-ascii", 20127},
    {"shiftjis sjis xsjis cp932 windows31j", Copy, "", 932},
    // The system converts these; where it has names of its own for them, as iconv, those count as well.
    {"ascii ansix3.41968", nullptr, "", 20127},
    {"iso88591 latin1 l1", nullptr, "", 28591},
    {"iso88592 latin2", nullptr, "", 28592},
    {"iso88593", nullptr, "", 28593},
    {"iso88594", nullptr, "", 28594},
    {"iso88595", nullptr, "", 28595},
    {"iso88596", nullptr, "", 28596},
    {"iso88597", nullptr, "", 28597},
    {"iso88598", nullptr, "", 28598},
    {"iso88599 latin5", nullptr, "", 28599},
    {"iso885913", nullptr, "", 28603},
    {"iso885915 latin9", nullptr, "", 28605},
    {"koi8r", nullptr, "", 20866},
    {"koi8u", nullptr, "", 21866},
    {"gb2312 gbk", nullptr, "", 936},
    {"gb18030", nullptr, "", 54936},
    {"big5", nullptr, "", 950},
    {"euckr ksc56011987 uhc", nullptr, "", 949},
    {"iso2022kr", nullptr, "", 50225},
    {"tis620", nullptr, "", 874},
    {"macintosh", nullptr, "", 10000},
}};

bool HasWord(std::string_view words, std::string_view word) {
    for (std::size_t at = words.find(word); at != std::string_view::npos; at = words.find(word, at + 1)) {
        const std::size_t end = at + word.size();
        if ((at == 0 || words[at - 1] == ' ') && (end == words.size() || words[end] == ' ')) return true;
    }
    return false;
}

bool IsName(std::string_view name) {
    const auto is_allowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               std::string_view("-_.:+").find(c) != std::string::npos;
    };
    return !name.empty() && name.size() <= kMaxNameBytes && std::ranges::all_of(name, is_allowed);
}

}  // namespace

const Charset* FindCharset(std::string_view name) {
    std::string plain_name = ToLower(name);
    std::erase_if(plain_name, [](char c) { return c == '-' || c == '_'; });
    if (plain_name.empty() || plain_name.find(' ') != std::string::npos) return nullptr;
    const auto* const found =
        std::ranges::find_if(kCharsets, [&](const Charset& charset) { return HasWord(charset.names, plain_name); });
    return found == kCharsets.end() ? nullptr : found;
}

Conversion BodyConversion(std::string_view content_type) {
    const auto is_meant = [content_type](const Charset& charset) {
        return !charset.word_in_bodies.empty() && content_type.find(charset.word_in_bodies) != std::string_view::npos;
    };
    const auto* const found = std::ranges::find_if(kCharsets, is_meant);
    return found == kCharsets.end() ? GuessToSJis : found->to_sjis;
}

struct CharsetConverter::Impl {
    std::map<std::string, std::unique_ptr<SystemCharset>> opened;  // null: the system does not know it

    SystemCharset* Find(const std::string& name) {
        const auto found = opened.find(name);
        if (found != opened.end()) return found->second.get();
        if (opened.size() >= kMaxSystemCharsets) return nullptr;
        return opened.emplace(name, SystemCharset::Open(name)).first->second.get();
    }

    std::optional<std::string> SystemToUtf8(std::string_view charset, const std::string& text) {
        const std::string name = ToLower(charset);
        SystemCharset* const system = IsName(name) ? Find(name) : nullptr;
        return system ? system->ToUtf8(text) : std::nullopt;
    }
};

CharsetConverter::CharsetConverter() : impl_(std::make_unique<Impl>()) {}
CharsetConverter::~CharsetConverter() = default;

std::optional<std::string> CharsetConverter::ToSJis(std::string_view charset, const std::string& text) {
    const Charset* const known = FindCharset(charset);
    std::string result;
    if (known && known->to_sjis) {
        known->to_sjis(&text, &result);
        return result;
    }
    const std::optional<std::string> utf8 = impl_->SystemToUtf8(charset, text);
    if (!utf8) return std::nullopt;
    Utf8ToSJis(&*utf8, &result);
    return result;
}

std::optional<std::string> CharsetConverter::ToUtf8(std::string_view charset, const std::string& text) {
    const Charset* const known = FindCharset(charset);
    if (!known || !known->to_sjis) return impl_->SystemToUtf8(charset, text);
    if (known->to_sjis == Utf8ToSJis) return WellFormedUtf8(text);
    if (known->to_sjis == GuessToSJis && text.find('\x1B') == std::string::npos && IsUtf8(text)) return text;
    std::string result;
    known->to_sjis(&text, &result);
    SJisCodesToUtf8(&result, &result);
    return result;
}

}  // namespace tarvex
