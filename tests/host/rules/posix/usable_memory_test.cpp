// How much memory the control groups of the process allow.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>

#include "host/system/memory.h"
#include "testing/temp_dir.h"

namespace tarvex::testing {
namespace {

constexpr std::int64_t kUnlimited = std::numeric_limits<std::int64_t>::max();

class UsableMemory : public ::testing::Test {
protected:
    void Limit(const std::string& group, const std::string& file, const std::string& limit) {
        std::filesystem::create_directories(mount_ / group);
        WriteFile(mount_ / (group + "/" + file), limit + "\n");
    }
    std::int64_t Of(const std::string& groups) { return host::MemoryOfGroups(groups, mount_.String()); }

    TempDir mount_;
};

TEST_F(UsableMemory, IsTheLowestLimitOfTheGroupAndThoseAroundIt) {
    EXPECT_EQ(Of("0::/a/b\n"), kUnlimited);
    Limit("a/b", "memory.max", "max");
    EXPECT_EQ(Of("0::/a/b\n"), kUnlimited);
    Limit("a/b", "memory.max", "3000");
    EXPECT_EQ(Of("0::/a/b\n"), 3000);
    EXPECT_EQ(Of("0::/a\n"), kUnlimited);
    Limit("a/b", "memory.high", "2500");
    EXPECT_EQ(Of("0::/a/b\n"), 2500);
    Limit("a", "memory.max", "2000");
    EXPECT_EQ(Of("0::/a/b\n"), 2000);
    Limit(".", "memory.max", "1000");  // the root of a container
    EXPECT_EQ(Of("0::/a/b\n"), 1000);
    EXPECT_EQ(Of("0::/\n"), 1000);
}

TEST_F(UsableMemory, IsThatOfTheMemoryControllerWhereEachHasItsOwnGroups) {
    Limit("memory/a", "memory.limit_in_bytes", "500");
    Limit("cpu/b", "memory.limit_in_bytes", "1");
    EXPECT_EQ(Of("5:cpu,cpuacct:/b\n4:memory:/a\n0::/\n"), 500);
    EXPECT_EQ(Of("4:hugetlb,memory:/a/inner\n"), 500);
    EXPECT_EQ(Of("4:memory\nnonsense\n"), kUnlimited);
}

}  // namespace
}  // namespace tarvex::testing
