// The system's converter: iconv.

#include "host/system/converter.h"

#include <iconv.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>

namespace tarvex::host {
namespace {

constexpr std::size_t kFailed = SIZE_MAX;

void* Open(const char* to, const char* from) {
    void* const handle = iconv_open(to, from);
    return reinterpret_cast<std::uintptr_t>(handle) == UINTPTR_MAX ? nullptr : handle;
}

}  // namespace

struct Converter::Impl {
    void* handle;  // null when there is none

    void Run(char** in, std::size_t* in_bytes, std::string& result) {
        if (!handle) return;
        std::array<char, 1024> buffer;
        bool full = true;
        while (full) {
            char* out = buffer.data();
            std::size_t room_bytes = buffer.size();
            full = iconv(handle, in, in_bytes, &out, &room_bytes) == kFailed && errno == E2BIG;
            result.append(buffer.data(), buffer.size() - room_bytes);
        }
    }
};

Converter::Converter(const char* to, const char* from) : impl_(new Impl{Open(to, from)}) {}

Converter::~Converter() {
    if (impl_->handle) iconv_close(impl_->handle);
}

bool Converter::IsThere() const { return impl_->handle; }

void Converter::Convert(std::string_view& text, std::string& result) {
    char* in = const_cast<char*>(text.data());  // iconv does not write to it
    std::size_t in_bytes = text.size();
    impl_->Run(&in, &in_bytes, result);
    text.remove_prefix(text.size() - in_bytes);
}

void Converter::Finish(std::string& result) { impl_->Run(nullptr, nullptr, result); }

}  // namespace tarvex::host
