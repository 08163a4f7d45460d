// Makes and checks one-time codes with OpenSSL's HMAC.

#include "host/desk/login/one_time_code.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <array>
#include <cstdio>
#include <new>
#include <vector>

namespace tarvex::host {
namespace {

constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";
constexpr std::size_t kSecretBytes = 20;
constexpr std::int64_t kStepSeconds = 30;
constexpr std::size_t kCodeDigits = 6;

std::optional<std::vector<unsigned char>> FromBase32(std::string_view text) {
    std::vector<unsigned char> bytes;
    unsigned pending = 0;
    unsigned bits = 0;
    for (const char c : text) {
        const std::size_t value = kDigits.find(c);
        if (value == std::string_view::npos) return std::nullopt;
        pending = pending << 5 | static_cast<unsigned>(value);
        bits += 5;
        if (bits < 8) continue;
        bits -= 8;
        bytes.push_back(static_cast<unsigned char>(pending >> bits & 0xFF));
    }
    return bytes;
}

// RFC 4226, 5.3.
std::string CodeOfBytes(const std::vector<unsigned char>& secret, std::int64_t step) {
    std::array<unsigned char, 8> counter{};
    for (std::size_t i = 0; i < counter.size(); ++i)
        counter[i] = static_cast<unsigned char>(static_cast<std::uint64_t>(step) >> (56 - 8 * i) & 0xFF);
    std::array<unsigned char, EVP_MAX_MD_SIZE> mac{};
    unsigned length = 0;
    if (!HMAC(EVP_sha1(), secret.data(), static_cast<int>(secret.size()), counter.data(), counter.size(), mac.data(),
              &length))
        throw std::bad_alloc();
    const std::size_t at = mac[length - 1] & 0xF;
    const std::uint32_t number = (mac[at] & 0x7FU) << 24 | static_cast<std::uint32_t>(mac[at + 1]) << 16 |
                                 static_cast<std::uint32_t>(mac[at + 2]) << 8 | mac[at + 3];
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%06u", number % 1'000'000);
    return text.data();
}

std::string Escaped(std::string_view text) {
    constexpr std::string_view kHex = "0123456789ABCDEF";
    std::string escaped;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' || c == '.') {
            escaped += c;
        } else {
            escaped.append({'%', kHex[byte >> 4], kHex[byte & 0xF]});
        }
    }
    return escaped;
}

}  // namespace

std::string NewCodeSecret() {
    std::array<unsigned char, kSecretBytes> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) throw std::bad_alloc();
    std::string text;
    std::uint64_t pending = 0;
    unsigned bits = 0;
    for (const unsigned char byte : bytes) {
        pending = (pending << 8 | byte) & 0xFFFF;
        for (bits += 8; bits >= 5; bits -= 5) text += kDigits[pending >> (bits - 5) & 0x1F];
    }
    return text;
}

std::string CodeOf(std::string_view secret, std::int64_t step) {
    const auto bytes = FromBase32(secret);
    return bytes && !bytes->empty() ? CodeOfBytes(*bytes, step) : "";
}

std::optional<std::int64_t> StepOfCode(std::string_view secret, std::string_view code, std::int64_t now_seconds,
                                       std::int64_t used) {
    if (code.size() != kCodeDigits) return std::nullopt;
    const std::int64_t now = now_seconds / kStepSeconds;
    std::optional<std::int64_t> found;
    for (std::int64_t step = now - 1; step <= now + 1; ++step) {
        const std::string right = CodeOf(secret, step);
        const bool fits = right.size() == kCodeDigits && CRYPTO_memcmp(right.data(), code.data(), kCodeDigits) == 0;
        if (fits && step > used) found = step;
    }
    return found;
}

std::string CodeLink(std::string_view secret, std::string_view login_name, std::string_view place) {
    return "otpauth://totp/Tarvex:" + Escaped(login_name) + "%40" + Escaped(place) + "?secret=" + std::string(secret) +
           "&issuer=Tarvex";
}

}  // namespace tarvex::host
