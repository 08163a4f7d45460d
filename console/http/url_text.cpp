// Reads and writes the escapes of addresses and forms.

#include "console/http/url_text.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace tarvex::console {
namespace {

int Digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// How many bytes a character has that begins so; 0 for what begins none.
std::size_t LengthOf(unsigned char lead) {
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return 2;
    if (lead >= 0xE0 && lead <= 0xEF) return 3;
    if (lead >= 0xF0 && lead <= 0xF4) return 4;
    return 0;
}

// The character of so many bytes, of which the second and the rest have been seen to be continuations.
std::uint32_t CharacterOf(std::string_view bytes) {
    constexpr unsigned kLeadBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    std::uint32_t character = static_cast<unsigned char>(bytes[0]) & kLeadBits[bytes.size()];
    for (const char byte : bytes.substr(1)) character = character << 6 | (static_cast<unsigned char>(byte) & 0x3F);
    return character;
}

bool IsCharacter(std::string_view bytes) {
    constexpr std::uint32_t kSmallest[] = {0, 1, 0x80, 0x800, 0x10000};
    const auto continues = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; };
    if (!std::ranges::all_of(bytes.substr(1), continues)) return false;
    const std::uint32_t character = CharacterOf(bytes);
    return character >= kSmallest[bytes.size()] && character <= 0x10FFFF && (character < 0xD800 || character > 0xDFFF);
}

// The value of a field, where a blank is written as a plus.
std::optional<std::string> DecodeValue(std::string_view encoded) {
    std::string text(encoded);
    std::ranges::replace(text, '+', ' ');
    return DecodeEscapes(text);
}

}  // namespace

bool IsText(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t length = LengthOf(static_cast<unsigned char>(bytes.front()));
        if (length == 0 || length > bytes.size() || !IsCharacter(bytes.substr(0, length))) return false;
        bytes.remove_prefix(length);
    }
    return true;
}

std::optional<std::string> DecodeEscapes(std::string_view encoded) {
    std::string text;
    text.reserve(encoded.size());
    for (std::size_t i = 0; i < encoded.size(); ++i) {
        if (encoded[i] != '%') {
            text += encoded[i];
            continue;
        }
        if (encoded.size() - i < 3) return std::nullopt;
        const int high = Digit(encoded[i + 1]);
        const int low = Digit(encoded[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        text += static_cast<char>(high * 16 + low);
        i += 2;
    }
    if (!IsText(text)) return std::nullopt;
    return text;
}

std::optional<Fields> ParseForm(std::string_view encoded) {
    Fields fields;
    while (!encoded.empty()) {
        const std::string_view pair = encoded.substr(0, encoded.find('&'));
        encoded.remove_prefix(std::min(pair.size() + 1, encoded.size()));
        if (pair.empty()) continue;
        if (fields.size() == kMostFields) return std::nullopt;
        const std::size_t equals = std::min(pair.find('='), pair.size());
        auto name = DecodeValue(pair.substr(0, equals));
        auto value = DecodeValue(pair.substr(std::min(equals + 1, pair.size())));
        if (!name || !value) return std::nullopt;
        fields.push_back({*std::move(name), *std::move(value)});
    }
    return fields;
}

std::string EncodeEscapes(std::string_view text) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
    std::string encoded;
    for (const char c : text) {
        if (kPlain.find(c) != std::string_view::npos) {
            encoded += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        encoded += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return encoded;
}

}  // namespace tarvex::console
