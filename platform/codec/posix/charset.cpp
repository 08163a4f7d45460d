// The system's converter of character sets: iconv.

#include "platform/codec/charset.h"

#include <iconv.h>

#include <array>
#include <cerrno>

namespace tarvex {

std::unique_ptr<SystemCharset> SystemCharset::Open(const std::string& charset) {
    iconv_t handle = iconv_open("UTF-8", charset.c_str());
    if (handle == reinterpret_cast<iconv_t>(-1)) return nullptr;  // NOLINT(performance-no-int-to-ptr): so POSIX has it
    std::unique_ptr<SystemCharset> opened(new SystemCharset(handle));
    return opened;
}

SystemCharset::~SystemCharset() { iconv_close(handle_); }

std::optional<std::string> SystemCharset::ToUtf8(std::string_view text) {
    iconv(handle_, nullptr, nullptr, nullptr, nullptr);  // the initial state
    std::string result;
    char* in = const_cast<char*>(text.data());  // iconv does not write to it
    std::size_t in_bytes = text.size();
    for (bool flushing = false;;) {
        std::array<char, 4096> buffer;
        char* out = buffer.data();
        std::size_t room_bytes = buffer.size();
        const std::size_t converted = flushing ? iconv(handle_, nullptr, nullptr, &out, &room_bytes)
                                               : iconv(handle_, &in, &in_bytes, &out, &room_bytes);
        result.append(buffer.data(), buffer.size() - room_bytes);
        if (converted == static_cast<std::size_t>(-1)) {
            if (errno != E2BIG) return std::nullopt;
        } else if (flushing) {
            return result;
        } else {
            flushing = true;
        }
    }
}

}  // namespace tarvex
