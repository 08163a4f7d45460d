#pragma once

#include <cstddef>
#include <string>

namespace tarvex {

// Shortens To and CC of a text mail so that its header, up to the blank line, has at most so many bytes: to the first
// few addresses of each and a comment, "(and 27 others)". One address always stays, and no other field changes, so the
// header may stay longer. The mail has a header of EncodeMailHeader.
void ShortenRecipients(std::string* mail, std::size_t header_bytes);

}  // namespace tarvex
