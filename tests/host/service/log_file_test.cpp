// The log in a file that is turned over.

#include "host/service/log/log_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "host/system/command_error.h"
#include "host/system/paths.h"
#include "testing/temp_dir.h"

namespace tarvex::host {
namespace {

using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

std::string PathIn(const TempDir& folder) { return TreePath(folder / "log"); }

TEST(LogFile, IsTurnedOverBySizeAndKeepsTheNewest) {
    const TempDir folder;
    constexpr int kLines = kFormerLogFiles + 3;
    LogFile log(PathIn(folder), 8);  // two lines do not fit
    for (int i = 0; i < kLines; ++i) EXPECT_TRUE(log.Append("line" + std::to_string(i) + '\n'));
    EXPECT_EQ(ReadFile(folder / "log"), "line" + std::to_string(kLines - 1) + '\n');
    for (int i = 1; i <= kFormerLogFiles; ++i) {
        EXPECT_EQ(ReadFile(folder / ("log." + std::to_string(i))), "line" + std::to_string(kLines - 1 - i) + '\n');
    }
    EXPECT_FALSE(std::filesystem::exists(folder / ("log." + std::to_string(kFormerLogFiles + 1))));
}

TEST(LogFile, GoesOnWhereItsLastWholeLineEnded) {
    for (const std::string torn : {"", "{\"time\": \"20", "x"}) {
        for (const std::string whole : {"", "one\n", "one\ntwo\n"}) {
            const TempDir folder;
            WriteFile(folder / "log", whole + torn);
            EXPECT_TRUE(LogFile(PathIn(folder)).Append("next\n"));
            EXPECT_EQ(ReadFile(folder / "log"), whole + "next\n") << whole << torn;
        }
    }
}

TEST(LogFile, LongerLineThanTheFileMayHoldIsWritten) {
    const TempDir folder;
    LogFile log(PathIn(folder), 4);
    EXPECT_TRUE(log.Append("long line\n"));
    EXPECT_TRUE(log.Append("next\n"));
    EXPECT_EQ(ReadFile(folder / "log.1"), "long line\n");
    EXPECT_EQ(ReadFile(folder / "log"), "next\n");
}

TEST(LogFile, ThatCannotBeWrittenIsAnError) {
    const TempDir folder;
    EXPECT_THROW(LogFile(PathIn(folder) + "\\none\\log"), CommandError);
}

}  // namespace
}  // namespace tarvex::host
