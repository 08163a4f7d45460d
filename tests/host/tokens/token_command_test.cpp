// The command that prints tokens, on every system.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "host/tokens/command_tokens.h"

namespace tarvex::testing {
namespace {

using host::CommandTokens;
using host::TokenTrouble;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr bool kIsPosix = std::filesystem::path::preferred_separator == '/';
const host::Stops kNever = [] { return false; };

TEST(TokenCommand, IsSplitIntoWords) {
    EXPECT_THAT(host::WordsOf("  a  b\tc "), ElementsAre("a", "b", "c"));
    EXPECT_THAT(host::WordsOf(R"("C:\Program Files\x.exe" --for 'me "too"' "" a"b c"d $x * \n)"),
                ElementsAre(R"(C:\Program Files\x.exe)", "--for", "me \"too\"", "", "ab cd", "$x", "*", "\\n"));
    for (const char* const bad : {"", "  ", "a \"b", "'"}) EXPECT_THROW(host::WordsOf(bad), TokenTrouble) << bad;
}

std::string Ask(const std::string& command) {
    try {
        return CommandTokens().Of(command, kNever);
    } catch (const TokenTrouble& trouble) {
        return trouble.what();
    }
}

TEST(TokenCommand, IsRunWithoutAShell) {
    EXPECT_EQ(Ask(kIsPosix ? "echo 'a;b'" : "cmd /c echo a;b"), "a;b");
    EXPECT_EQ(Ask(kIsPosix ? "sh -c 'exit 3'" : "cmd /c exit 3"), "token_command ended with code 3");
    EXPECT_THAT(Ask("no-such-program-anywhere"), HasSubstr("token_command cannot be started: "));
    EXPECT_EQ(Ask(kIsPosix ? "true" : "cmd /c rem"), "token_command printed no token");
}

}  // namespace
}  // namespace tarvex::testing
