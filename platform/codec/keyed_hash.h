#pragma once

// A hash for tables of texts that strangers choose. Its key is secret, so nobody can make up many texts that collide
// and turn every look-up into a walk through all of them.

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
