#pragma once

// The codes of an authenticator: TOTP (RFC 6238) with SHA-1, six digits and thirty seconds, as all of them understand
// it.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarvex::host {

// 160 random bits in Base32 (RFC 4648). Throws std::bad_alloc.
std::string NewCodeSecret();

// What an authenticator shows in a step of thirty seconds since 1970; empty for a secret that is none.
std::string CodeOf(std::string_view secret, std::int64_t step);

// The step, of thirty seconds since 1970, for which the code is the right one: this, the one before or the next, and
// later than `used`, for no code opens twice. Nothing for a wrong code, and for a secret that is none.
std::optional<std::int64_t> StepOfCode(std::string_view secret, std::string_view code, std::int64_t now_seconds,
                                       std::int64_t used);

// What an authenticator reads as a picture or takes as a link: otpauth://totp/...
std::string CodeLink(std::string_view secret, std::string_view login_name, std::string_view place);

}  // namespace tarvex::host
