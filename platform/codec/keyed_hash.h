#pragma once

// A hash for tables whose keys strangers choose: without knowing the key of the hash, nobody can make up many texts
// that collide, which would make every look-up a walk through all of them.

#include <array>
#include <cstdint>
#include <string_view>

namespace tarvex {

using HashKey = std::array<std::uint64_t, 2>;

// SipHash-2-4 (Aumasson and Bernstein, 2012).
std::uint64_t KeyedHash(const HashKey& key, std::string_view text);

// The key of this process, drawn at the first call.
const HashKey& ProcessHashKey();

}  // namespace tarvex
