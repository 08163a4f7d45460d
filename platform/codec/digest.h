#pragma once

// The two digests of the mail protocols, in lower-case hexadecimal (32 characters).

#include <string>
#include <string_view>

namespace tarvex {

std::string Md5Hex(std::string_view text);                            // RFC 1321
std::string HmacMd5Hex(std::string_view key, std::string_view text);  // RFC 2104

}  // namespace tarvex
