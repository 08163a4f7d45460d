#pragma once

// What a server may send before it is refused. A limit that is passed yields a negative reply that says so.

#include <cstddef>

namespace tarvex {

inline constexpr std::size_t kMaxReplyLineBytes = 64 * 1024;        // one reply line
inline constexpr std::size_t kMaxSmtpReplyBytes = 64 * 1024;        // one SMTP answer, all its lines
inline constexpr std::size_t kMaxListingBytes = 64 * 1024 * 1024;   // one UIDL or LIST answer
inline constexpr std::size_t kMaxListingLines = 4 * 1024 * 1024;    // likewise: a line costs more memory than its bytes
inline constexpr std::size_t kMaxMessageBytes = 256 * 1024 * 1024;  // one message

inline constexpr int kDefaultTimeOutSeconds = 30;

}  // namespace tarvex
