// `history`: who changed what, by a command or through the service, and what the runs did.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "host/system/command_error.h"
#include "host/system/users.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using Json = nlohmann::json;

constexpr const char* kProfile = "user0/from0";

class Edits : public ::testing::Test {
protected:
    Edits() { host_.AddProfile(mailbox_.Port(), sink_.Port()); }

    void Do(const std::vector<std::string>& words, int code = 0) {
        ChildProcess command = host_.StartCommand(words, ChildProcess::Output::Pipe, {"SUDO_USER=taro"});
        command.Wait();
        EXPECT_EQ(command.ExitCode(), code) << command.Errors();
    }

    Json Made(const std::vector<std::string>& more = {}) const {
        std::vector<std::string> words = {"history", "--edits", "--json"};
        words.insert(words.end(), more.begin(), more.end());
        return Json::parse(host_.Tell(words));
    }

    TempDir folder_;
    MailboxServer mailbox_{"user", "secret"};
    SinkServer sink_;
    Host host_;
};

TEST_F(Edits, AreRememberedWithWhoWhatAndTheValuesButForPasswords) {
    WriteFile(folder_ / "password", "very-secret\n");
    Do({"profile", "set", kProfile, "--nickname", "shop", "--password-file", folder_ / "password"});
    const Json made = Made();
    ASSERT_EQ(made.size(), 1U);
    EXPECT_EQ(made[0]["command"], "profile set");
    EXPECT_EQ(made[0]["name"], kProfile);
    EXPECT_EQ(made[0]["uid"], getuid());
    EXPECT_EQ(made[0]["user"], host::UserName(getuid()));
    EXPECT_EQ(made[0]["caller"], "taro");
    EXPECT_EQ(made[0]["keys"], Json::parse(R"([{"key": "nickname", "before": "", "after": "shop"},
                                               {"key": "poppassword", "before": "", "after": "changed"}])"));
    Do({"profile", "set", kProfile, "--nickname", "shop"});  // as before
    Do({"profile", "set", kProfile, "--popport", "1000000"}, host::kBadUsage);
    EXPECT_EQ(Made().size(), 1U);
    Do({"init", "--rules"});
    Do({"rules", "set", "--token_command", "/bin/token --key top-secret"});
    const std::string told = host_.Tell({"history"});
    EXPECT_THAT(told, AllOf(HasSubstr("/bin/token ..."), Not(HasSubstr("top-secret")),
                            HasSubstr(": profile set user0/from0\n    nickname: shop\n    poppassword: changed\n"),
                            HasSubstr("taro"), Not(HasSubstr("very-secret"))));
    EXPECT_THAT(ReadFile(host_.Root() + "/.tarvex/history.db") + ReadFile(host_.Root() + "/.tarvex/history.db-wal"),
                Not(HasSubstr("very-secret")));
}

TEST_F(Edits, OfEveryKindHaveTheNameOfWhatTheyChanged) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> edits = {
        {{"user", "add", "hanako"}, "user1"},
        {{"forward", "add", kProfile, "second@example.net", "--all-mail"}, "user0/from0/forwardto1"},
        {{"schedule", "add", "user0/from0/forwardto0", "mon"}, "user0/from0/forwardto0"},
        {{"schedule", "off", "user0/from0/forwardto0", "1"}, "user0/from0/forwardto0"},
        {{"init", "--rules"}, ""},
        {{"rules", "set", "--historydays", "30"}, ""},
        {{"rules", "set", kProfile, "--keyless", "off"}, kProfile},
        {{"resend", kProfile, "--yes"}, kProfile},
        {{"forward", "remove", "user0/from0/forwardto0", "--yes"}, "user0/from0/forwardto0"},
        {{"user", "remove", "user1", "--yes"}, "user1"},
    };
    for (const auto& [words, name] : edits) {
        ChildProcess command = host_.StartCommand(words);
        command.Wait();
        EXPECT_EQ(command.ExitCode(), 0) << command.Errors();
        const Json made = Made({"-n", "1"});
        ASSERT_EQ(made.size(), 1U);
        const std::map<std::string, std::string> others = {{"resend", "profile resend"}, {"init", "rules add"}};
        const auto other = others.find(words[0]);
        EXPECT_EQ(made[0]["command"], other == others.end() ? words[0] + ' ' + words[1] : other->second);
        EXPECT_EQ(made[0]["name"], name) << made;
    }
    EXPECT_EQ(Made({"user1"}).size(), 2U);  // also of what has gone
}

TEST_F(Edits, ThatTheServiceMakesHaveTheUserWhoAsked) {
    ChildProcess service = host_.StartCommand({"serve"}, ChildProcess::Output::Together);
    ASSERT_TRUE(service.WaitForOutput("serving ", 20s));
    Do({"profile", "set", kProfile, "--timer", "77"});
    const Json made = Made({kProfile});
    ASSERT_EQ(made.size(), 1U);
    EXPECT_EQ(made[0]["user"], host::UserName(getuid()));
    EXPECT_EQ(made[0]["caller"], "taro");
    EXPECT_EQ(made[0]["keys"][0]["key"], "timer");
    service.Signal(SIGTERM);
    EXPECT_TRUE(service.WaitFor(20s));
}

TEST_F(Edits, StandBesideTheRunsTheNewestFirst) {
    mailbox_.Add(MailNumber(1));
    Do({"profile", "set", kProfile, "--nickname", "shop"});
    host_.Run();
    EXPECT_THAT(host_.Tell({"history", kProfile, "--runs"}), HasSubstr("user0/from0: forwarded 1 message\n"));
    EXPECT_THAT(host_.Tell({"history", "--runs", "--since", "2099-01-01 00:00"}), StartsWith("Nothing"));
    const Json all = Json::parse(host_.Tell({"history", "--json"}));
    ASSERT_EQ(all.size(), 2U);
    EXPECT_GE(all[0]["time"], all[1]["time"]);
}

}  // namespace
}  // namespace tarvex::testing
