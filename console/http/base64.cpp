// Reads Base64, by OpenSSL.

#include "console/http/base64.h"

#include <openssl/evp.h>

#include <climits>

namespace tarvex::console {

std::optional<std::string> FromBase64(std::string_view text) {
    if (text.empty()) return std::string();
    if (text.size() > INT_MAX || text.size() % 4 != 0) return std::nullopt;
    std::string bytes(text.size() / 4 * 3, '\0');
    const int count =
        EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                        reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
    if (count < 0) return std::nullopt;
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with("=") ? 1 : 0;
    bytes.resize(static_cast<std::size_t>(count) - padding);
    return bytes;
}

}  // namespace tarvex::console
