#pragma once

// The answer that brings a token: of a provider's token endpoint (RFC 6749 section 5) or of a program. Untrusted.

#include <string>
#include <string_view>

namespace tarvex::host {

struct TokenAnswer {
    std::string access_token;
    std::string refresh_token;  // empty when there is none
    long long expires_in = 0;   // seconds; 0 when the answer does not say
    std::string error;          // of an answer that is no token: "invalid_grant"
    std::string description;    // what it adds for a person
};

inline constexpr std::size_t kMostAnswerBytes = 64 << 10;

// Whether the bytes can stand in a login: neither blanks nor control characters, and not too many.
bool IsToken(std::string_view text);

// Words of a stranger on one line of ASCII, shortened.
std::string SafeWords(std::string_view words);

// An answer with neither a token nor an error is none that can be used: false. What cannot be a token is none.
[[nodiscard]] bool ReadTokenAnswer(std::string_view json, TokenAnswer& answer);

}  // namespace tarvex::host
