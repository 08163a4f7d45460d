// Secrets of the host's own under the data protection of Windows.

#include "host/system/protection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarvex::host {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

TEST(Protection, IsUndoneByTheSameAccountAlone) {
    const std::string kept = Protect("JBSWY3DPEHPK3PXP");
    EXPECT_THAT(kept, StartsWith("dpapi:"));
    EXPECT_THAT(kept, Not(HasSubstr("JBSWY3DPEHPK3PXP")));
    EXPECT_EQ(Unprotect(kept), "JBSWY3DPEHPK3PXP");
    EXPECT_EQ(Unprotect("JBSWY3DPEHPK3PXP"), "JBSWY3DPEHPK3PXP");  // kept before
    for (const std::string& wrong : {kept.substr(0, kept.size() - 1), std::string("dpapi:"), std::string("dpapi:xy")})
        EXPECT_FALSE(Unprotect(wrong)) << wrong;
}

}  // namespace
}  // namespace tarvex::host
