// Tokens that a program prints.

#include "host/tokens/command_tokens.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <future>
#include <string>
#include <vector>

#include "testing/temp_dir.h"

namespace tarvex::testing {
namespace {

using host::CommandTokens;
using host::TokenTrouble;
using host::TokenTroubleKind;
using ::testing::HasSubstr;

const host::Stops kNever = [] { return false; };

class TokensOfAProgram : public ::testing::Test {
protected:
    // A program that counts how often it ran.
    std::string Program(const std::string& script) {
        WriteFile(folder_ / "program", "#!/bin/sh\necho x >>'" + folder_.String() + "/runs'\n" + script + '\n');
        std::filesystem::permissions(std::string(folder_ / "program"), std::filesystem::perms::owner_all);
        return folder_ / "program";
    }
    std::size_t Runs() const {
        return std::filesystem::exists(std::string(folder_ / "runs")) ? ReadFile(folder_ / "runs").size() / 2 : 0;
    }

    std::string Ask(const std::string& command, const host::Stops& stops = kNever) {
        try {
            return tokens_.Of(command, stops);
        } catch (const TokenTrouble& trouble) {
            return (trouble.Kind() == TokenTroubleKind::ForNow ? "for now: " : "for good: ") +
                   std::string(trouble.what());
        }
    }

    TempDir folder_;
    CommandTokens tokens_;
};

TEST_F(TokensOfAProgram, AreKeptUntilTheyExpire) {
    const std::string plain = Program("echo '  token-1'; echo more");
    EXPECT_EQ(Ask(plain), "token-1");
    EXPECT_EQ(Ask(plain), "token-1");
    EXPECT_EQ(Runs(), 1U);
    tokens_.Refused(plain, "token-0");
    EXPECT_EQ(Ask(plain), "token-1");
    EXPECT_EQ(Runs(), 1U);
    tokens_.Refused(plain, "token-1");
    EXPECT_EQ(Ask(plain), "token-1");
    EXPECT_EQ(Runs(), 2U);
}

TEST_F(TokensOfAProgram, ExpireWhenTheProgramSaysSo) {
    const std::string short_lived = Program(R"(echo '{"access_token":"t","expires_in":"1"}')");
    EXPECT_EQ(Ask(short_lived), "t");
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (Runs() < 2 && std::chrono::steady_clock::now() < end) EXPECT_EQ(Ask(short_lived), "t");
    EXPECT_EQ(Runs(), 2U);
}

TEST_F(TokensOfAProgram, AreRefusedWhereTheyAreNone) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"exit 3", "for now: token_command ended with code 3"},
        {"echo t; exit 1", "for now: token_command ended with code 1"},
        {"kill -9 $$", "for now: token_command was ended by signal 9"},
        {":", "for good: token_command printed no token"},
        {"echo '{}'", "for good: token_command printed JSON without a token"},
        {R"(echo '{"error":"no"}')", "for good: token_command printed an error: no"},
        {"printf 'a\\033b'", "for good: token_command printed no token"},
        {"yes x", "for now: token_command printed more than 65536 bytes"},
    };
    for (const auto& [script, expected] : cases) EXPECT_EQ(Ask(Program(script)), expected);
    EXPECT_THAT(Ask("/nowhere/at-all"), HasSubstr("token_command cannot be started: No such file"));
}

TEST_F(TokensOfAProgram, StopTheProgramWithItsChildren) {
    std::atomic<bool> stopped = false;
    const std::string slow = Program("sleep 60 | cat");
    auto answer = std::async(std::launch::async, [&] { return Ask(slow, [&] { return stopped.load(); }); });
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (Runs() == 0 && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    stopped = true;
    EXPECT_EQ(answer.get(), "for now: token_command was interrupted");
    EXPECT_LT(std::chrono::steady_clock::now(), end);
}

// As an agent that the program starts at its first call.
TEST_F(TokensOfAProgram, AreThereWhenTheProgramEndsWhateverItLeavesRunning) {
    const std::string leaving = Program("sleep 20 &\necho $! >'" + folder_.String() + "/left'\necho t");
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(Ask(leaving), "t");
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(15));
    EXPECT_EQ(kill(std::stoi(ReadFile(folder_ / "left")), SIGKILL), 0);
}

TEST_F(TokensOfAProgram, AreAskedForOnce) {
    const std::string program = Program("echo t");
    std::vector<std::future<std::string>> answers;
    for (int i = 0; i < 8; ++i) answers.push_back(std::async(std::launch::async, [&] { return Ask(program); }));
    for (auto& answer : answers) EXPECT_EQ(answer.get(), "t");
    EXPECT_EQ(Runs(), 1U);
}

}  // namespace
}  // namespace tarvex::testing
