// Digests and Base64 through OpenSSL.

#include "loopback/codec.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <array>

namespace tarvex::loopback {

namespace {

using Digest = std::array<unsigned char, 16>;

const unsigned char* Bytes(std::string_view text) { return reinterpret_cast<const unsigned char*>(text.data()); }

std::string Hexadecimal(const Digest& digest) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : digest) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

}  // namespace

std::string Md5(std::string_view text) {
    Digest digest{};
    EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_md5(), nullptr);
    return Hexadecimal(digest);
}

std::string HmacMd5(std::string_view key, std::string_view text) {
    Digest digest{};
    HMAC(EVP_md5(), key.data(), static_cast<int>(key.size()), Bytes(text), text.size(), digest.data(), nullptr);
    return Hexadecimal(digest);
}

std::string ToBase64(std::string_view bytes) {
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    auto* const target = reinterpret_cast<unsigned char*>(text.data());
    text.resize(static_cast<std::size_t>(EVP_EncodeBlock(target, Bytes(bytes), static_cast<int>(bytes.size()))));
    return text;
}

std::string FromBase64(const std::string& text) {
    std::string bytes(text.size(), '\0');
    auto* const target = reinterpret_cast<unsigned char*>(bytes.data());
    const int length = EVP_DecodeBlock(target, Bytes(text), static_cast<int>(text.size()));
    if (length < 0) return {};
    const auto padding = std::count(text.end() - std::min<std::ptrdiff_t>(2, std::ssize(text)), text.end(), '=');
    bytes.resize(static_cast<std::size_t>(length - padding));
    return bytes;
}

}  // namespace tarvex::loopback
