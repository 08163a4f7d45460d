#pragma once

// The system's converter of character sets, to compare ours with.

#include <memory>
#include <optional>
#include <string>

namespace tarvex::testing {

inline std::string Utf8Of(char32_t code) {
    const auto low = [code](int shift) { return static_cast<char>(0x80 | (code >> shift & 0x3F)); };
    if (code < 0x80) return {static_cast<char>(code)};
    if (code < 0x800) return {static_cast<char>(0xC0 | code >> 6), low(0)};
    if (code < 0x10000) return {static_cast<char>(0xE0 | code >> 12), low(6), low(0)};
    return {static_cast<char>(0xF0 | code >> 18), low(12), low(6), low(0)};
}

class ReferenceConverter {
public:
    // CP932 and UTF-8 everywhere; the names of iconv on POSIX.
    ReferenceConverter(const char* to, const char* from);
    ~ReferenceConverter();
    ReferenceConverter(const ReferenceConverter&) = delete;
    ReferenceConverter& operator=(const ReferenceConverter&) = delete;

    // One character; nothing for what is none and for what can only be approximated.
    std::optional<std::string> operator()(const std::string& character) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tarvex::testing
