#include <gtest/gtest.h>

#include "host/system/converter.h"

namespace tarvex::testing {
namespace {

TEST(HostConverter, SaysWhetherTheSystemHasIt) {
    EXPECT_TRUE(host::Converter("UTF-8", "CP932").IsThere());
    EXPECT_FALSE(host::Converter("UTF-8", "no such charset").IsThere());
    EXPECT_FALSE(host::Converter("no such charset", "UTF-8").IsThere());
}

}  // namespace
}  // namespace tarvex::testing
