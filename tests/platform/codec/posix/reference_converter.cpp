// iconv, to compare our codecs with.

#include "tests/platform/codec/reference_converter.h"

#include <iconv.h>

#include <array>

namespace tarvex::testing {

struct ReferenceConverter::Impl {
    iconv_t handle;
};

ReferenceConverter::ReferenceConverter(const char* to, const char* from) : impl_(new Impl{iconv_open(to, from)}) {}
ReferenceConverter::~ReferenceConverter() { iconv_close(impl_->handle); }

std::optional<std::string> ReferenceConverter::operator()(const std::string& character) const {
    std::string text = character;
    std::array<char, 64> buffer;
    char* in = text.data();
    std::size_t in_bytes = text.size();
    char* out = buffer.data();
    std::size_t room = buffer.size();
    iconv(impl_->handle, nullptr, nullptr, nullptr, nullptr);
    if (iconv(impl_->handle, &in, &in_bytes, &out, &room) != 0) return std::nullopt;
    return std::string(buffer.data(), buffer.size() - room);
}

}  // namespace tarvex::testing
