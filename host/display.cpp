#include "host/display.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace tarvex::host {
namespace {

// How many bytes of UTF-8 the control character in front has, 0 when there is none: C0, DEL, or C1 (0xC2 first), whose
// 0x9B some terminals take for an escape sequence.
constexpr std::size_t ControlBytes(std::string_view text) {
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x20 || first == 0x7F) return 1;
    if (first != 0xC2 || text.size() < 2) return 0;
    const auto second = static_cast<unsigned char>(text[1]);
    return second >= 0x80 && second <= 0x9F ? 2 : 0;
}

void AppendHarmless(std::string& text, char c) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(c);
    text += "\\x";
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
}

std::string Harmless(std::string_view text, std::string_view allowed) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const std::size_t control_bytes = allowed.find(text.front()) == std::string_view::npos ? ControlBytes(text) : 0;
        for (const char c : text.substr(0, control_bytes)) AppendHarmless(result, c);
        if (control_bytes == 0) result += text.front();
        text.remove_prefix(control_bytes > 0 ? control_bytes : 1);
    }
    return result;
}

// To UTF-8. A byte that is no text is replaced.
class Converter {
public:
    using Replace = void (*)(std::string& result, char byte);

    Converter(const char* charset, Replace replace) : handle_(iconv_open("UTF-8", charset)), replace_(replace) {}
    ~Converter() {
        if (IsOpen()) iconv_close(handle_);
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    std::string Convert(std::string_view text) {
        std::string result;
        while (!text.empty()) {
            const std::size_t before = text.size();
            if (IsOpen()) ConvertSome(text, result);
            if (text.size() < before) continue;
            if (static_cast<unsigned char>(text.front()) < 0x80) {
                result += text.front();
            } else {
                replace_(result, text.front());
            }
            text.remove_prefix(1);
        }
        return result;
    }

private:
    bool IsOpen() const { return handle_ != reinterpret_cast<iconv_t>(-1); }

    void ConvertSome(std::string_view& text, std::string& result) {
        std::array<char, 1024> buffer;
        char* in = const_cast<char*>(text.data());  // iconv does not write to it
        std::size_t in_bytes = text.size();
        char* out = buffer.data();
        std::size_t room_bytes = buffer.size();
        iconv(handle_, &in, &in_bytes, &out, &room_bytes);
        result.append(buffer.data(), buffer.size() - room_bytes);
        text.remove_prefix(text.size() - in_bytes);
    }

    iconv_t handle_;
    Replace replace_;
};

}  // namespace

std::string ShowText(std::string_view shift_jis) {
    Converter converter("CP932", [](std::string& result, char) { result += '?'; });
    return Harmless(converter.Convert(shift_jis), "\n\t");
}

std::string ShowPath(std::string_view path) {
    return Harmless(Converter("UTF-8", AppendHarmless).Convert(NativePath(path)), "");
}

std::string NativePath(std::string_view path) {
    std::string native(path);
    std::ranges::replace(native, '\\', '/');
    return native;
}

}  // namespace tarvex::host
