#pragma once

// How the password of a user is kept in a tree with rules: as a PHC string with scrypt (RFC 7914),
//
//     $scrypt$ln=15,r=8,p=1$SALT$HASH
//
// in the field that has the password itself in trees without rules, and in those of earlier versions.

#include <string>
#include <string_view>

namespace tarvex::host {

// With a salt of its own each time. It takes some 50 milliseconds and 32 MiB, so that guessing takes as long. Throws
// std::bad_alloc.
[[nodiscard]] std::string HashedPassword(std::string_view password);

[[nodiscard]] bool IsHashedPassword(std::string_view stored);

// Whether that is the password, be it kept as a hash or as it is; the time it takes does not tell how much of it is
// right. An empty one opens nothing, and so does a hash that asks for more work than HashedPassword does fourfold.
// Throws std::bad_alloc.
[[nodiscard]] bool FitsPassword(std::string_view stored, std::string_view password);

// Takes as long as FitsPassword with a hash: for names that there are not.
void TakePasswordsTime(std::string_view password);

}  // namespace tarvex::host
