// The command and the service with users who read Japanese.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "host/terminal/table.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

const std::vector<std::string> kEnglish = {"LC_ALL=C"};
const std::vector<std::string> kJapanese = {"LC_ALL=ja_JP.UTF-8", "LANGUAGE="};
constexpr const char* kProfile = "user0/from0";

class InJapanese : public ::testing::Test {
protected:
    std::string Said(const std::vector<std::string>& words, int exit_code,
                     const std::vector<std::string>& variables = kJapanese) const {
        ChildProcess command = host_.StartCommand(words, ChildProcess::Output::Pipe, variables);
        command.Wait();
        EXPECT_EQ(command.ExitCode(), exit_code) << command.Errors();
        ExpectFitForATerminal(command.Printed() + command.Errors());  // no colours where there is none
        return command.Printed() + command.Errors();
    }

    // The commands that a help lists, which begin in the third column below the heading.
    static std::vector<std::string> CommandsIn(const std::string& help, const std::string& heading) {
        std::istringstream lines(help.substr(std::min(help.size(), help.find('\n' + heading + ":\n") + 1)));
        std::vector<std::string> commands;
        std::string line;
        std::getline(lines, line);
        while (std::getline(lines, line) && line.starts_with("  ")) {
            if (line[2] != ' ') commands.push_back(line.substr(2, line.find(' ', 2) - 2));
        }
        return commands;
    }

    // The help of a command and of those below it. Returns how many there are.
    int ExpectHelpToFit(std::vector<std::string> words, const std::string& heading,
                        const std::vector<std::string>& variables) const {
        words.emplace_back("--help");
        const std::string help = Said(words, 0, variables);
        words.pop_back();
        std::istringstream lines(help);
        for (std::string line; std::getline(lines, line);) {
            EXPECT_LE(host::Columns(line), 80U) << line;
            EXPECT_FALSE(line.starts_with("、") || line.starts_with("。")) << line;
        }
        int count = 1;
        for (const std::string& command : CommandsIn(help, heading)) {
            words.push_back(command);
            count += ExpectHelpToFit(words, heading, variables);
            words.pop_back();
        }
        return count;
    }

    Host host_;
};

TEST_F(InJapanese, HelpFitsATerminalAsInEnglish) {
    const int in_english = ExpectHelpToFit({}, "Subcommands", kEnglish);
    EXPECT_GT(in_english, 40);
    EXPECT_EQ(ExpectHelpToFit({}, "サブコマンド", kJapanese), in_english);
    EXPECT_THAT(Said({"--help"}, 0), AllOf(HasSubstr("使い方: tarvex [オプション]"), Not(HasSubstr("Usage"))));
}

TEST_F(InJapanese, LanguageAndTheLocaleDecide) {
    EXPECT_THAT(Said({"--help"}, 0, {"LC_ALL=", "LANGUAGE=", "LC_MESSAGES=", "LANG=ja_JP.UTF-8"}), HasSubstr("使い方"));
    EXPECT_THAT(Said({"--help"}, 0, {"LC_ALL=ja_JP.UTF-8", "LANGUAGE=en:ja"}), HasSubstr("Usage"));
}

TEST_F(InJapanese, AMistakeIsAnsweredWithTheNearestWord) {
    const std::string said = Said({"profile", "shwo"}, kBadUsage);
    EXPECT_THAT(said, AllOf(HasSubstr("\"shwo\" というコマンドはありません"), HasSubstr("\"show\" のことですか?")));
}

TEST_F(InJapanese, StatusIsSpokenAndJsonIsTheSameForAll) {
    host_.AddProfile(1, 1, [](CPopProfile& profile) {
        profile.setting.timer = 60;
        profile.setting.lasttime = 1;  // long ago, so that it is due once
    });
    EXPECT_THAT(Said({"run"}, kUnavailable), HasSubstr("失敗: "));
    EXPECT_THAT(Said({"status"}, 1), AllOf(HasSubstr("前回の結果"), HasSubstr(" に失敗しました")));
    EXPECT_EQ(Said({"status", "--json"}, 1), Said({"status", "--json"}, 1, kEnglish));
    const std::string settings = host_.AddProfile(1, 1) + "/forwardto0/forwardaddress.def";
    std::filesystem::remove(settings);
    std::filesystem::create_directory(settings);
    EXPECT_THAT(Said({"status"}, 1), HasSubstr("通常のファイルではありません"));
    EXPECT_THAT(Said({"status", "--json"}, 1), HasSubstr("it is no regular file"));
    EXPECT_THAT(Said({"plan", "--json", "user1/from0"}, 74), HasSubstr("it is no regular file"));
}

TEST_F(InJapanese, TheServiceAnswersInTheUsersLanguageAndWritesItsLogInEnglish) {
    host_.AddProfile(1, 1, [](CPopProfile& profile) { profile.setting.status = 0; });
    ChildProcess service = host_.StartCommand({"serve"}, ChildProcess::Output::Together, kJapanese);
    ASSERT_TRUE(service.WaitForOutput("serving ", std::chrono::seconds(20)));
    const std::string not_in_shift_jis = "\xF0\xA0\xAE\xB7";
    const std::vector<std::string> words = {"profile", "set", kProfile, "--nickname", not_in_shift_jis};
    EXPECT_THAT(Said(words, 65), HasSubstr("保存できません"));
    EXPECT_TRUE(service.WaitForOutput("cannot be stored", std::chrono::seconds(20)));
    EXPECT_THAT(Said(words, 65, kEnglish), HasSubstr("cannot be stored"));
    service.Kill();
    EXPECT_THAT(service.Printed(), Not(HasSubstr("保存")));
}

}  // namespace
}  // namespace tarvex::testing
