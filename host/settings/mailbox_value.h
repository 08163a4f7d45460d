#pragma once

// Mail addresses as values of settings keys.

#include <string>
#include <string_view>
#include <vector>

#include "host/settings/keys.h"

namespace tarvex::host {

// Letters, digits and signs alone.
bool IsPlainAscii(std::string_view text);

// An address without a display name or a comment: me@example.org.
bool IsMailAddress(std::string_view plain);

// These throw CommandError (kBadUsage). `given` is what was typed, `plain` the address in it.
void RequireAddress(const KeyInfo& key, std::string_view given, std::string_view plain);
void RequireNoBlankWithin(const KeyInfo& key, std::string_view given);

// None, or as many as the key may have, separated by commas; or kNobody in their place.
inline constexpr std::string_view kNobody = "none";
void RequireMailboxes(const KeyInfo& key, std::string_view given);

// The addresses in such a value, each once, without what is none.
std::vector<std::string> MailboxesIn(std::string_view value);

}  // namespace tarvex::host
