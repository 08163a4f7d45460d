// The keyed hash.

#include "platform/codec/keyed_hash.h"

#include <gtest/gtest.h>

#include <string>

namespace tarvex {
namespace {

// The published test vectors: key bytes 0, 1, ... 15 and texts of bytes 0, 1, ...
TEST(KeyedHash, HasThePublishedValues) {
    const HashKey key = {0x0706050403020100U, 0x0f0e0d0c0b0a0908U};
    std::string text;
    for (int i = 0; i < 15; ++i) text += static_cast<char>(i);
    EXPECT_EQ(KeyedHash(key, ""), 0x726fdb47dd0e0e31U);
    EXPECT_EQ(KeyedHash(key, text.substr(0, 1)), 0x74f839c593dc67fdU);
    EXPECT_EQ(KeyedHash(key, text.substr(0, 8)), 0x93f5f5799a932462U);
    EXPECT_EQ(KeyedHash(key, text), 0xa129ca6149be45e5U);
}

TEST(KeyedHash, AnotherKeyGivesAnotherValue) {
    const std::string text = "an id";
    EXPECT_NE(KeyedHash({1, 2}, text), KeyedHash({1, 3}, text));
    EXPECT_NE(KeyedHash({1, 2}, text), KeyedHash({2, 2}, text));
}

TEST(KeyedHash, ProcessKeepsItsKey) { EXPECT_EQ(ProcessHashKey(), ProcessHashKey()); }

}  // namespace
}  // namespace tarvex
