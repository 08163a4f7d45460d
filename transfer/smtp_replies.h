#pragma once

// What the SMTP conversations share.

#include <string_view>

namespace tarvex {

// Whether the reply is the three-digit code.
inline bool IsCode(std::string_view reply, std::string_view code) { return reply.substr(0, 3) == code; }

inline constexpr const char* kSmtpTimeOutText = "TimeoutError..Closing Socket";

}  // namespace tarvex
