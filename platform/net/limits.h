#pragma once

// How much a server may send. An answer over its limit becomes a negative reply that says so.

#include <cstddef>

namespace tarvex {

inline constexpr std::size_t kKibibyte = 1024;
inline constexpr std::size_t kMebibyte = 1024 * kKibibyte;

inline constexpr std::size_t kMaxReplyLineBytes = 64 * kKibibyte;  // one reply line
inline constexpr std::size_t kMaxSmtpReplyBytes = 64 * kKibibyte;  // one SMTP answer, all its lines
inline constexpr std::size_t kMaxListingBytes = 64 * kMebibyte;    // one UIDL or LIST answer
inline constexpr std::size_t kMaxListingLines = 4'194'304;         // its lines: each costs more memory than its bytes
inline constexpr std::size_t kMaxMessageBytes = 256 * kMebibyte;   // one message

inline constexpr int kDefaultTimeOutSeconds = 30;

}  // namespace tarvex
