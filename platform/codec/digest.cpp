// MD5 and HMAC-MD5 by OpenSSL.

#include "platform/codec/digest.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <array>
#include <cstddef>
#include <span>

namespace tarvex {

namespace {

constexpr std::size_t kDigestBytes = 16;
using Digest = std::array<unsigned char, kDigestBytes>;

std::string ToHex(const Digest& digest) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(2 * digest.size());
    for (const unsigned char byte : digest) {
        hex += kDigits[byte >> 4];
        hex += kDigits[byte & 0x0F];
    }
    return hex;
}

// Without OpenSSL's clean-up at the end of the process: workers may still run then.
void UseOpenSsl() { OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr); }

const unsigned char* Bytes(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.empty() ? "" : text.data());
}

}  // namespace

std::string Md5Hex(std::string_view text) {
    UseOpenSsl();
    Digest digest{};
    std::size_t length = digest.size();
    if (EVP_Q_digest(nullptr, "MD5", nullptr, Bytes(text), text.size(), digest.data(), &length) != 1) return "";
    return ToHex(digest);
}

std::string HmacMd5Hex(std::string_view key, std::string_view text) {
    UseOpenSsl();
    Digest digest{};
    std::size_t length = digest.size();
    if (EVP_Q_mac(nullptr, "HMAC", nullptr, "MD5", nullptr, Bytes(key), key.size(), Bytes(text), text.size(),
                  digest.data(), digest.size(), &length) == nullptr) {
        return "";
    }
    return ToHex(digest);
}

}  // namespace tarvex
