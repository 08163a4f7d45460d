// Base64 (RFC 4648 section 4): a strict writer and a reader that takes whatever a settings file or a mail holds.

#include "platform/codec/base64.h"

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

namespace tarvex {

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNoDigit = 0xFF;

constexpr std::array<std::uint8_t, 256> MakeDigitValues() {
    std::array<std::uint8_t, 256> values{};
    values.fill(kNoDigit);
    for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
        values[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
    }
    return values;
}
constexpr std::array<std::uint8_t, 256> kDigitValues = MakeDigitValues();

// Appends the four digits of up to three bytes; the digits that no byte reaches are padding.
void AppendQuantum(std::string_view bytes, std::string& target) {
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        bits = bits << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
    }
    for (std::size_t i = 0; i < 4; ++i) {
        target += i <= bytes.size() ? kAlphabet[bits >> (18 - 6 * i) & 0x3FU] : '=';
    }
}

}  // namespace

void Base64Encode(const std::string* source, std::string* target) {
    std::string encoded;
    encoded.reserve((source->size() + 2) / 3 * 4);
    const std::string_view bytes = *source;
    for (std::size_t i = 0; i < bytes.size(); i += 3) AppendQuantum(bytes.substr(i, 3), encoded);
    *target = std::move(encoded);
}

void Base64Decode(const std::string* source, std::string* target) {
    std::string decoded;
    decoded.reserve(source->size() / 4 * 3 + 2);
    std::uint32_t bits = 0;  // the lowest `pending` bits are not written yet
    unsigned pending = 0;
    for (const char c : *source) {
        if (c == '=') break;
        const std::uint8_t value = kDigitValues[static_cast<unsigned char>(c)];
        if (value == kNoDigit) continue;
        bits = bits << 6 | value;
        pending += 6;
        if (pending < 8) continue;
        pending -= 8;
        decoded += static_cast<char>(bits >> pending & 0xFFU);
    }
    *target = std::move(decoded);
}

}  // namespace tarvex
