// Windows' code pages, to compare our codecs with.

#include "tests/platform/codec/reference_converter.h"

#include <windows.h>

#include <array>
#include <string_view>

namespace tarvex::testing {

namespace {

unsigned CodePage(std::string_view charset) { return charset == "UTF-8" ? CP_UTF8 : 932; }

}  // namespace

struct ReferenceConverter::Impl {
    unsigned to;
    unsigned from;
};

ReferenceConverter::ReferenceConverter(const char* to, const char* from)
    : impl_(new Impl{CodePage(to), CodePage(from)}) {}
ReferenceConverter::~ReferenceConverter() = default;

std::optional<std::string> ReferenceConverter::operator()(const std::string& character) const {
    std::array<wchar_t, 4> units;
    std::array<char, 16> bytes;
    const int count = MultiByteToWideChar(impl_->from, MB_ERR_INVALID_CHARS, character.data(),
                                          static_cast<int>(character.size()), units.data(), units.size());
    if (count == 0) return std::nullopt;
    BOOL replaced = FALSE;
    const bool to_utf8 = impl_->to == CP_UTF8;
    const int length = WideCharToMultiByte(impl_->to, to_utf8 ? 0 : WC_NO_BEST_FIT_CHARS, units.data(), count,
                                           bytes.data(), bytes.size(), nullptr, to_utf8 ? nullptr : &replaced);
    if (length == 0 || replaced) return std::nullopt;
    return std::string(bytes.data(), static_cast<std::size_t>(length));
}

}  // namespace tarvex::testing
