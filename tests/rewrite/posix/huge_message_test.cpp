// A message that fits into 64 bits only.

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <string_view>

#include "rewrite/mime_walk.h"

namespace tarvex {
namespace {

TEST(ReadableText, AMessageOfFourGibibytesHasNone) {
    const std::size_t bytes = std::size_t{1} << 32;
    void* const zeros = mmap(nullptr, bytes, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(zeros, MAP_FAILED);
    EXPECT_EQ(PickReadableText(std::string_view(static_cast<const char*>(zeros), bytes), true), "");
    munmap(zeros, bytes);
}

}  // namespace
}  // namespace tarvex
