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

struct OwnCharset {
    std::string_view name;
    void (*to_sjis)(const std::string* source, std::string* target);
};
constexpr std::array<OwnCharset, 21> kOwnCharsets = {{
    {"iso-2022-jp", JisToSJis},
    {"iso-2022-jp-1", JisToSJis},
    {"iso-2022-jp-2", JisToSJis},
    {"iso-2022-jp-3", JisToSJis},
    {"iso-2022-jp-2004", JisToSJis},
    {"iso-2022-jp-ms", JisToSJis},
    {"csiso2022jp", JisToSJis},
    {"cp50220", JisToSJis},
    {"cp50221", JisToSJis},
    {"utf-8", Utf8ToSJis},
    {"utf8", Utf8ToSJis},
    {"shift_jis", Copy},
    {"shift-jis", Copy},
    {"sjis", Copy},
    {"x-sjis", Copy},
    {"cp932", Copy},
    {"windows-31j", Copy},
    {"us-ascii", Copy},
    {"euc-jp", EucToSJis},
    {"x-euc-jp", EucToSJis},
    {"eucjp", EucToSJis},
}};

bool IsName(std::string_view name) {
    const auto is_allowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               std::string_view("-_.:+").find(c) != std::string::npos;
    };
    return !name.empty() && name.size() <= kMaxNameBytes && std::ranges::all_of(name, is_allowed);
}

}  // namespace

struct CharsetConverter::Impl {
    std::map<std::string, std::unique_ptr<SystemCharset>> opened;  // null: the system does not know it

    SystemCharset* Find(const std::string& name) {
        const auto found = opened.find(name);
        if (found != opened.end()) return found->second.get();
        if (opened.size() >= kMaxSystemCharsets) return nullptr;
        return opened.emplace(name, SystemCharset::Open(name)).first->second.get();
    }
};

CharsetConverter::CharsetConverter() : impl_(std::make_unique<Impl>()) {}
CharsetConverter::~CharsetConverter() = default;

std::optional<std::string> CharsetConverter::ToSJis(std::string_view charset, const std::string& text) {
    const std::string name = ToLower(charset);
    std::string result;
    if (const auto* const own = std::ranges::find(kOwnCharsets, name, &OwnCharset::name); own != kOwnCharsets.end()) {
        own->to_sjis(&text, &result);
        return result;
    }
    if (!IsName(name)) return std::nullopt;
    SystemCharset* const system = impl_->Find(name);
    const std::optional<std::string> utf8 = system ? system->ToUtf8(text) : std::nullopt;
    if (!utf8) return std::nullopt;
    Utf8ToSJis(&*utf8, &result);
    return result;
}

}  // namespace tarvex
