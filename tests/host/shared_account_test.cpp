// The SMTP server and the rules that profiles share: what holds for whom, what is sent through it, what is shown, and
// what stays on disk as it was.

#include "host/settings/shared_account.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "testing/scripted_server.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using host::AccountOwner;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using Words = std::vector<std::string>;
using Json = nlohmann::json;

// A line of a file that a run changes.
std::string WithoutLastTime(std::string settings) {
    const std::size_t begin = settings.find("[lasttime]");
    return settings.erase(begin, settings.find("\r\n\r\n", begin) - begin);
}

// A mailbox whose profile names no SMTP server, the relay of the tree, and another of the user.
class SharedAccount : public ::testing::Test {
protected:
    SharedAccount() {
        mailbox_.Add(MailNumber(1));
        profile_ = host_.AddProfile(mailbox_.Port(), 25, [](CPopProfile& profile) {
            profile.setting.smtpserver.clear();
            profile.setting.timeout = 20;
        });
        WriteFile(host_.Root() + "/host.def", "[version]\r\n0\r\n");
        WriteFile(folder_ / "password", "secret of the relay\n");
    }

    std::string SetTree(int port, const Words& more = {}) const {
        return Set({"rules", "set", "--smtpserver", "127.0.0.1", "--smtpport", std::to_string(port)}, more);
    }
    std::string SetUser(const Words& more) const { return Set({"rules", "set", "user0"}, more); }
    std::string Set(Words words, const Words& more) const {
        words.insert(words.end(), more.begin(), more.end());
        return host_.Tell(words);
    }
    Json Ask(Words words) const {
        words.emplace_back("--json");
        return Json::parse(host_.Tell(words));
    }
    // What holds for the profile.
    host::UsedSettings Used() const {
        CRootPath root;
        EXPECT_EQ(root.SetRootPath(host_.Root()), 1);
        return host::SettingsInUse(*root.users.front()->profiles.front());
    }

    MailboxServer mailbox_{"user", "secret"};
    SinkServer relay_;
    SinkServer other_;
    TempDir folder_;
    Host host_;
    std::string profile_;
};

TEST_F(SharedAccount, IsSentThroughAndTheFileOfTheProfileStays) {
    EXPECT_THAT(SetTree(relay_.Port()), HasSubstr("It is the SMTP server of 1 profile."));
    const std::string before = ReadFile(profile_ + "/popprofile.def");
    host_.Run();
    EXPECT_THAT(relay_.Delivered(), SizeIs(1));
    EXPECT_EQ(WithoutLastTime(ReadFile(profile_ + "/popprofile.def")), WithoutLastTime(before));
    EXPECT_THAT(Log(profile_), HasSubstr("connecting.. 127.0.0.1\n"));
}

TEST_F(SharedAccount, OfTheUserComesBeforeThatOfTheTreeAndTheProfilesOwnBeforeBoth) {
    SetTree(relay_.Port());
    SetUser({"--smtpserver", "127.0.0.1", "--smtpport", std::to_string(other_.Port())});
    host_.Run();
    EXPECT_THAT(other_.Delivered(), SizeIs(1));
    EXPECT_THAT(relay_.Delivered(), SizeIs(0));
    host_.Tell(
        {"profile", "set", "user0/from0", "--smtpserver", "127.0.0.1", "--smtpport", std::to_string(relay_.Port())});
    mailbox_.Add(MailNumber(2));
    host_.Run();
    EXPECT_THAT(relay_.Delivered(), SizeIs(1));
}

TEST_F(SharedAccount, OfTheUserIsAWholeOneWhereItNamesAServer) {
    SetTree(587, {"--smtpauth", "on", "--smtpuser", "tree", "--sslsmtp", "tls", "--smtp-password-file",
                  folder_ / "password"});
    EXPECT_EQ(Used().owner, AccountOwner::Tree);
    EXPECT_EQ(Used().setting.smtppassword, "secret of the relay");
    SetUser({"--smtpuser", "mine"});
    EXPECT_EQ(Used().owner, AccountOwner::Tree);
    EXPECT_EQ(Used().setting.smtpuser, "mine");
    EXPECT_EQ(Used().setting.smtpport, 587) << "only the login is another one";
    SetUser({"--smtpserver", "other.example.net", "--smtpuser", ""});
    EXPECT_EQ(Used().owner, AccountOwner::User);
    EXPECT_EQ(Used().setting.smtppassword, "") << "the tree's goes to the tree's server alone";
    EXPECT_EQ(Used().setting.smtpauth, 0);
    EXPECT_EQ(Used().setting.smtpport, 25);
    SetUser({"--smtpserver", ""});
    EXPECT_EQ(Used().owner, AccountOwner::Tree);
    EXPECT_EQ(Used().setting.smtpuser, "tree") << "all of the user's is gone";
    host_.Tell({"rules", "set", "--smtpserver", ""});
    EXPECT_EQ(Used().owner, AccountOwner::PopServer);
    EXPECT_EQ(ReadFile(host_.Root() + "/host.def").find("smtp"), std::string::npos);
}

TEST_F(SharedAccount, IsShownWithWhereItComesFrom) {
    const std::string server = "127.0.0.1:" + std::to_string(relay_.Port());
    SetTree(relay_.Port());
    EXPECT_THAT(host_.Tell({"profile", "show", "user0/from0"}),
                HasSubstr("sends through " + server + " (of the tree)"));
    EXPECT_THAT(host_.Tell({"profile", "list"}), HasSubstr(server));
    EXPECT_THAT(host_.Tell({"plan"}), HasSubstr("sends through " + server + " (of the tree)"));
    EXPECT_THAT(host_.Tell({"status"}), HasSubstr("1 profile sends through " + server + " (of the tree)"));
    EXPECT_THAT(host_.Tell({"check", "--no-dns"}),
                HasSubstr("port " + std::to_string(relay_.Port()) + ", of the tree"));
    EXPECT_EQ(Ask({"profile", "show", "user0/from0"})["sends_through"]["from"], "tree");
    for (const char* const command : {"plan", "status"})
        EXPECT_EQ(Ask({command})[0]["sends_through"]["port"], relay_.Port()) << command;
    SetUser({"--smtpserver", "127.0.0.1", "--smtpport", std::to_string(other_.Port())});
    EXPECT_EQ(Ask({"check", "--no-dns"})[0]["smtp"]["from"], "user");
    EXPECT_THAT(host_.Tell({"check", "--no-dns"}), HasSubstr(", of the user"));
    SetUser({"--smtpport", std::to_string(UnusedPort())});
    EXPECT_THAT(host_.Tell({"check", "--no-dns"}, kUnavailable), HasSubstr("`tarvex rules set user0`"));
}

TEST_F(SharedAccount, PasswordIsNeverShownAndNotInClearOnDisk) {
    const Words given = {"--smtp-password-file", folder_ / "password"};
    std::string all = SetTree(relay_.Port(), given) + SetUser(given);
    for (const Words& words : {Words{"rules", "show"}, {"rules", "show", "user0"}, {"rules", "show", "user0/from0"}})
        all += host_.Tell(words) + Ask(words).dump();
    EXPECT_THAT(all, AllOf(HasSubstr("(set)"), HasSubstr("smtppassword: stored"), Not(HasSubstr("secret of"))));
    EXPECT_THAT(ReadFile(host_.Root() + "/host.def") + ReadFile(host_.Root() + "/user0/host.def"),
                Not(HasSubstr("secret of")));
    EXPECT_THAT(host_.Fail(kBadUsage, {"rules", "set", "--smtppassword", "x"}),
                HasSubstr("never from the command line"));
}

TEST_F(SharedAccount, IsNotOneOfAProfile) {
    EXPECT_THAT(host_.Fail(kBadUsage, {"rules", "set", "user0/from0", "--smtpserver", "x"}),
                HasSubstr("`tarvex profile set`"));
    WriteFile(profile_ + "/host.def", "[smtpserver]\r\nelsewhere.example.net\r\n");
    EXPECT_EQ(Used().owner, AccountOwner::PopServer);
    EXPECT_FALSE(Ask({"rules", "show", "user0/from0"}).contains("smtpserver"));
}

TEST_F(SharedAccount, ProfileNeedsNoSmtpServer) {
    SetTree(relay_.Port());
    host_.Tell({"profile", "add", "user0", "b@example.org", "--popserver", "localhost", "--popuser", "b"});
    EXPECT_EQ(Ask({"profile", "show", "user0/from1"})["sends_through"]["port"], relay_.Port());
}

TEST_F(SharedAccount, LoginWithATokenWithoutALoginIsToldOf) {
    SetTree(relay_.Port());
    EXPECT_THAT(host_.Tell({"rules", "set", "--smtp_login", "xoauth2"}),
                HasSubstr("1 profile sends without a login, so smtp_login has no effect there"));
    EXPECT_THAT(host_.Tell({"rules", "set", "--smtpauth", "on", "--smtp_login", "oauthbearer"}),
                Not(HasSubstr("no effect")));
}

TEST_F(SharedAccount, RulesOfTheUserStandBetweenTreeAndProfile) {
    host_.Tell({"rules", "set", "--floodlimit", "10", "--runsize", "10"});
    EXPECT_THAT(host_.Tell({"user", "set", "user0", "--floodlimit", "20", "--runsize", "20"}),
                HasSubstr("floodlimit: \"10\" -> \"20\""));
    host_.Tell({"profile", "set", "user0/from0", "--runsize", "30", "--timer", "5"});
    const Json rules = Ask({"rules", "show", "user0/from0"});
    EXPECT_EQ(rules["floodlimit"], 20);
    EXPECT_EQ(rules["runsize"], 30);
    EXPECT_EQ(Ask({"profile", "show", "user0/from0"})["timer"], 5);
    EXPECT_EQ(Ask({"rules", "show", "user0"})["runsize"], 20);
    EXPECT_THAT(host_.Fail(kBadUsage, {"rules", "set", "user0", "--allruns", "2"}), HasSubstr("of the whole tree"));
    host_.Tell({"rules", "set", "user0/from0", "--runsize", "20"});
    EXPECT_EQ(ReadFile(profile_ + "/host.def"), "[version]\r\n0\r\n\r\n") << "as its user";
}

TEST_F(SharedAccount, FileOfAUserThatCannotBeReadLeavesItsProfilesOut) {
    WriteFile(host_.Root() + "/user0/host.def", "[runsize]\nmuch\n");
    EXPECT_THAT(host_.Fail(74, {"run", "--now"}), HasSubstr("\"much\""));
    EXPECT_TRUE(relay_.Delivered().empty());
}

TEST_F(SharedAccount, OfATreeWithoutRulesIsNone) {
    SetTree(relay_.Port());
    SetUser({"--smtpport", std::to_string(other_.Port())});
    std::filesystem::remove(host_.Root() + "/host.def");
    EXPECT_EQ(Used().owner, AccountOwner::PopServer);
}

}  // namespace
}  // namespace tarvex::testing
