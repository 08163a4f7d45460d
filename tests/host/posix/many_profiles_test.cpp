// `tarvex profile set` of many profiles at once.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using Words = std::vector<std::string>;

constexpr int kNotFound = 66;
constexpr int kCannotWrite = 74;

class ManyProfiles : public ::testing::Test {
protected:
    // Two profiles of taro, one of hanako; taro's first and hanako's send through the relay.
    void SetUp() override {
        CRootPath root;
        ASSERT_EQ(root.SetRootPath(host_.Root()), 1);
        CUser& taro = *root.CreateNewUser("taro", "", 0);
        CUser& hanako = *root.CreateNewUser("hanako", "", 0);
        Add(taro, "a@example.org", "relay.example.net");
        Add(taro, "b@example.org", "other.example.net");
        Add(hanako, "c@example.org", "Relay.Example.net");
    }

    static void Add(CUser& user, const char* address, const char* server) {
        CPopProfile& profile = *user.CreateNewPopProfile("", address);
        profile.setting.smtpserver = server;
        profile.setting.smtppassword = "old";
        profile.setting.status = 0;
        profile.SaveSetting();
    }

    // Of all profiles in the order of their paths.
    Words SmtpPasswords() const {
        Words passwords;
        for (const char* const path : {"/user0/from0", "/user0/from1", "/user1/from0"}) {
            CPopProfileSetting setting;
            EXPECT_EQ(setting.Load(host_.Root() + path), 1);
            passwords.push_back(setting.smtppassword);
        }
        return passwords;
    }

    struct Said {
        int code;
        std::string printed, errors;
    };

    Said Set(const Words& words, const std::string& input = "new\n") const {
        Words all = {TARVEX_HOST, "--root", host_.Root(), "profile", "set"};
        all.insert(all.end(), words.begin(), words.end());
        ChildProcess command(all, ChildProcess::Output::Pipe, {}, input);
        command.Wait();
        return {command.ExitCode(), command.Printed(), command.Errors()};
    }

    Host host_;
};

TEST_F(ManyProfiles, OneCommandChangesThePasswordOfARelay) {
    const Said said = Set({"--where", "smtpserver=relay.example.net", "--smtp-password-stdin", "--yes"});
    EXPECT_EQ(said.code, 0) << said.errors;
    EXPECT_EQ(said.printed,
              "user0/from0:\n  smtppassword: stored\nuser1/from0:\n  smtppassword: stored\nChanged 2 profiles.\n");
    EXPECT_THAT(SmtpPasswords(), ElementsAre("new", "old", "new"));
}

TEST_F(ManyProfiles, AllConditionsMustHold) {
    struct Case {
        Words chosen, passwords;
    };
    for (const Case& c :
         {Case{{"--user", "taro"}, {"1", "1", "old"}},
          {{"--user", "taro", "--where", "smtpserver=relay.example.net"}, {"2", "1", "old"}},
          {{"--where", "smtpserver=relay.example.net", "--where", "address=c@example.org"}, {"2", "1", "3"}},
          {{"--all", "--user", "user1"}, {"2", "1", "4"}},
          {{"--where", "nickname=", "--where", "status=off"}, {"5", "5", "5"}},
          {{"--all"}, {"6", "6", "6"}}}) {
        SCOPED_TRACE(::testing::PrintToString(c.chosen));
        static int number = 0;
        Words words = c.chosen;
        words.insert(words.end(), {"--smtp-password-stdin", "--yes"});
        EXPECT_EQ(Set(words, std::to_string(++number) + "\n").code, 0);
        EXPECT_EQ(SmtpPasswords(), c.passwords);
    }
}

TEST_F(ManyProfiles, RulesAreConditionsAndAreSetToo) {
    WriteFile(host_.Root() + "/host.def", "[version]\r\n0\r\n");
    WriteFile(host_.Root() + "/user0/host.def", "[pop_tls]\r\n2\r\n");
    WriteFile(host_.Root() + "/user1/from0/host.def", "[pop_tls]\r\n1\r\n");
    EXPECT_THAT(Set({"--where", "pop_tls=starttls", "--pop_tls", "tls", "--popport", "995"}).printed,
                AllOf(HasSubstr("user0/from0 (a@example.org):\n  pop_tls: \"starttls\" -> \"tls\"\n  popport: "),
                      HasSubstr("user0/from1"), Not(HasSubstr("user1"))));
    const Said said = Set({"--where", "pop_tls=starttls", "--pop_tls", "tls", "--popport", "995", "--yes"});
    EXPECT_EQ(said.code, 0) << said.errors;
    EXPECT_THAT(said.printed, HasSubstr("Changed 2 profiles."));
    EXPECT_EQ(Set({"--where", "pop_tls=starttls", "--timer", "5", "--yes"}).code, kNotFound);
    EXPECT_EQ(Set({"--where", "popport=995", "--where", "pop_tls=tls", "--timer", "5", "--yes"}).code, 0);
    EXPECT_EQ(Set({"--all", "--pop_tls", "sometimes", "--yes"}).code, kBadUsage);
    std::filesystem::remove(host_.Root() + "/host.def");
    EXPECT_THAT(Set({"--all", "--pop_tls", "tls", "--yes"}).errors, HasSubstr("tarvex init --rules"));
}

TEST_F(ManyProfiles, WithoutAYesTheChangesAreShownAndNotMade) {
    const Said said = Set({"--user", "taro", "--popport", "995", "--smtp-password-stdin"});
    EXPECT_EQ(said.code, kBadUsage);
    EXPECT_EQ(said.printed,
              "user0/from0 (a@example.org):\n  popport: \"110\" -> \"995\"\n  smtppassword: stored\n"
              "user0/from1 (b@example.org):\n  popport: \"110\" -> \"995\"\n  smtppassword: stored\n");
    EXPECT_THAT(said.errors, HasSubstr("--yes"));
    EXPECT_THAT(SmtpPasswords(), ElementsAre("old", "old", "old"));
}

TEST_F(ManyProfiles, WhatCannotBeMeantIsRefusedBeforeAnythingIsChanged) {
    struct Case {
        Words words;
        int code;
    };
    for (const Case& c : {Case{{"--where", "smtpserver"}, kBadUsage},
                          {{"--where", "fly=1"}, kBadUsage},
                          {{"--where", "smtppassword=old"}, kBadUsage},
                          {{"--where", "popport=many"}, kBadUsage},
                          {{"--where", "smtpserver=nowhere.example.net"}, kNotFound},
                          {{"--user", "jiro"}, kNotFound},
                          {{"a@example.org", "--all"}, kBadUsage},
                          {{"--all", "--popport", "99999"}, kBadUsage}}) {
        SCOPED_TRACE(::testing::PrintToString(c.words));
        Words words = c.words;
        words.insert(words.end(), {"--smtp-password-stdin", "--yes"});
        const Said said = Set(words);
        EXPECT_EQ(said.code, c.code) << said.errors;
        EXPECT_EQ(said.printed, "");
        EXPECT_THAT(SmtpPasswords(), ElementsAre("old", "old", "old"));
    }
}

TEST_F(ManyProfiles, OneThatCannotBeChangedEndsItAndTheErrorSaysHowMany) {
    host_.Tell({"forward", "add", "user0/from1", "phone@example.net"});
    const Said said = Set({"--all", "--address", "phone@example.net", "--yes"});
    EXPECT_EQ(said.code, kBadUsage);
    EXPECT_THAT(said.errors, AllOf(HasSubstr("user0/from1: "), HasSubstr("1 of 3 were changed before, none after it")));
    EXPECT_THAT(said.printed,
                AllOf(HasSubstr("user0/from0"), Not(HasSubstr("user1/from0")), Not(HasSubstr("Changed"))));
}

TEST_F(ManyProfiles, NothingIsChangedWhereOneOfThemCannotBeRead) {
    std::filesystem::remove(host_.Root() + "/user0/from1/popprofile.def");
    std::filesystem::create_directory(host_.Root() + "/user0/from1/popprofile.def");
    const Said said = Set({"--all", "--smtp-password-stdin", "--yes"});
    EXPECT_EQ(said.code, kCannotWrite);
    EXPECT_THAT(said.errors, HasSubstr("nothing was changed"));
    EXPECT_EQ(said.printed, "");
}

TEST_F(ManyProfiles, AServiceMakesTheChanges) {
    ChildProcess service = host_.StartCommand({"serve"}, ChildProcess::Output::Together);
    ASSERT_TRUE(service.WaitForOutput("serving ", 20s));
    EXPECT_EQ(Set({"--all", "--smtp-password-stdin", "--yes"}).code, 0);
    EXPECT_THAT(SmtpPasswords(), ElementsAre("new", "new", "new"));
    service.Signal(SIGTERM);
    service.Wait();
}

}  // namespace
}  // namespace tarvex::testing
