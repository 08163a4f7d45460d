#pragma once

// The digests and the encoding of the mail protocols' logins, independent of the engine's own.

#include <string>
#include <string_view>

namespace tarvex::loopback {

std::string Md5(std::string_view text);                            // lower-case hexadecimal
std::string HmacMd5(std::string_view key, std::string_view text);  // lower-case hexadecimal
std::string ToBase64(std::string_view bytes);
std::string FromBase64(const std::string& text);  // empty when it is no Base64

}  // namespace tarvex::loopback
