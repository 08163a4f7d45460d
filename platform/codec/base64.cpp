// Base64 (RFC 4648 section 4): a strict writer and a reader that takes whatever a settings file or a mail holds.

#include "platform/codec/base64.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "platform/codec/text.h"

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

// Writes the highest bytes of 24 bits and returns where the next one goes.
char* AppendBytes(std::uint32_t bits, unsigned count, char* out) {
    for (unsigned i = 0; i < count; ++i) *out++ = static_cast<char>(bits >> (16 - 8 * i) & 0xFFU);
    return out;
}

// Four digits in a row, as nearly everywhere. False when one of the characters is none.
bool DecodeQuantum(const char* text, char* out) {
    const auto digit = [text](std::size_t i) -> std::uint32_t {
        return kDigitValues[static_cast<unsigned char>(text[i])];
    };
    const std::uint32_t a = digit(0);
    const std::uint32_t b = digit(1);
    const std::uint32_t c = digit(2);
    const std::uint32_t d = digit(3);
    if ((a | b | c | d) > 0x3F) return false;
    AppendBytes(a << 18 | b << 12 | c << 6 | d, 3, out);
    return true;
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
    const std::string_view text = *source;
    std::string decoded;
    decoded.resize(text.size() / 4 * 3 + 3);
    char* out = decoded.data();
    std::uint32_t bits = 0;
    unsigned digits = 0;   // of the quantum that is under way
    unsigned padding = 0;  // directly behind them
    for (std::size_t i = 0; i < text.size(); ++i) {
        while (digits == 0 && i + 4 <= text.size() && DecodeQuantum(text.data() + i, out)) {
            out += 3;
            i += 4;
        }
        if (i == text.size()) break;

        const std::uint8_t value = kDigitValues[static_cast<unsigned char>(text[i])];
        if (text[i] == '=' && digits >= 2) {
            if (digits + ++padding == 4) break;
        } else if (value != kNoDigit) {
            bits = bits << 6 | value;
            padding = 0;
            if (++digits < 4) continue;
            out = AppendBytes(bits, 3, out);
            digits = 0;
        }
    }
    if (digits >= 2) out = AppendBytes(bits << 6 * (4 - digits), digits - 1, out);
    decoded.resize(static_cast<std::size_t>(out - decoded.data()));
    *target = std::move(decoded);
}

bool CouldBeBase64(std::string_view text) {
    unsigned digits = 0;  // of the quantum that is under way
    unsigned padding = 0;
    bool complete = false;
    for (const char c : text) {
        const bool is_padding = c == '=';
        if (IsWhiteSpace(c)) continue;
        if (!is_padding && kDigitValues[static_cast<unsigned char>(c)] == kNoDigit) return false;
        if (complete) continue;
        if (is_padding && digits < 2) return false;
        digits = is_padding ? digits : (digits + 1) % 4;
        padding = is_padding ? padding + 1 : 0;
        complete = is_padding && digits + padding == 4;
    }
    return digits != 1;
}

std::string_view Base64Lines(std::string_view text) {
    const auto is_foreign = [](char c) {
        return kDigitValues[static_cast<unsigned char>(c)] == kNoDigit && c != '=' && !IsWhiteSpace(c);
    };
    const auto foreign = static_cast<std::size_t>(std::ranges::find_if(text, is_foreign) - text.begin());
    if (foreign == text.size()) return text;
    const std::string_view lines = text.substr(0, text.rfind('\n', foreign) + 1);
    return lines.find_first_not_of(" \t\r\n") == std::string_view::npos ? text : lines;
}

}  // namespace tarvex
