// What a Japanese Windows says of errors. The tests are run there besides: see CMakeLists.txt.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>

#include "host/system/error_words.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using ::testing::HasSubstr;

class JapaneseWords : public ::testing::Test {
protected:
    void SetUp() override {
        constexpr UINT kShiftJis = 932;
        if (GetACP() != kShiftJis) GTEST_SKIP() << "this Windows is not Japanese";
    }
};

TEST_F(JapaneseWords, AreUtf8) {
    EXPECT_EQ(host::WordsOf({ERROR_FILE_NOT_FOUND, std::system_category()}), "ファイルが見つかりません");
}

TEST_F(JapaneseWords, AreWhatCommandsPrint) {
    Host host;
    host.AddProfile(1, 1);
    std::filesystem::create_directory(host.Root() + "/.tarvex.lock");
    ChildProcess edit = host.StartCommand({"user", "add", "hanako"});
    edit.Wait();
    EXPECT_NE(edit.ExitCode(), 0);
    EXPECT_THAT(edit.Errors(), HasSubstr("アクセスが拒否されました"));
}

}  // namespace
}  // namespace tarvex::testing
