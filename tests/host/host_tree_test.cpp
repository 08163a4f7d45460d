// A tree that is kept by the commands alone, on every system.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "host/edit/root_lock.h"
#include "host/settings/host_setting.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;

using Words = std::vector<std::string>;

// The commands without --root: where they look is below the folder.
class HostTree : public ::testing::Test {
protected:
    ChildProcess Start(const Words& words) const {
        Words all = {TARVEX_HOST};
        all.insert(all.end(), words.begin(), words.end());
        const std::string place = folder_.String();
        return ChildProcess(
            all, ChildProcess::Output::Pipe,
            {"XDG_CONFIG_HOME=" + place, "XDG_DATA_HOME=" + place, "APPDATA=" + place, "LOCALAPPDATA=" + place});
    }

    std::string Tell(const Words& words, int exit_code = 0) const {
        ChildProcess command = Start(words);
        command.Wait();
        EXPECT_EQ(command.ExitCode(), exit_code) << ::testing::PrintToString(words);
        EXPECT_EQ(command.Errors(), "");
        return command.Printed();
    }

    std::string Refusal(const Words& words, int exit_code) const {
        ChildProcess command = Start(words);
        command.Wait();
        EXPECT_EQ(command.ExitCode(), exit_code);
        EXPECT_EQ(command.Printed(), "");
        return command.Errors();
    }

    std::string Tree() const { return folder_ / "tree"; }

    TempDir folder_;
};

TEST_F(HostTree, IsMadeKeptAndRun) {
    MailboxServer mailbox("taro", "secret");
    mailbox.Add(MailNumber(1));
    SinkServer sink;
    const std::string password = folder_ / "password";
    WriteFile(password, "secret\n");

    EXPECT_THAT(Tell({"init", Tree()}), AllOf(HasSubstr("Made the data tree"), HasSubstr("It is remembered in")));
    EXPECT_THAT(Tell({"user", "add", "花子"}), HasSubstr("花子"));
    Tell({"profile",
          "add",
          "花子",
          "me@example.org",
          "--nickname",
          "表",
          "--popserver",
          "127.0.0.1",
          "--popport",
          std::to_string(mailbox.Port()),
          "--popuser",
          "taro",
          "--password-file",
          password,
          "--smtpserver",
          "127.0.0.1",
          "--smtpport",
          std::to_string(sink.Port()),
          "--apop",
          "on",
          "--timer",
          "0"});
    Tell({"forward", "add", "表", kPhone});
    EXPECT_THAT(Tell({"schedule", "add", kPhone, "daily 0:00-24:00"}), HasSubstr("1  always"));
    EXPECT_THAT(Tell({"schedule", "remove", kPhone, "1"}), HasSubstr("always takes part"));
    EXPECT_THAT(Tell({"profile", "list"}), HasSubstr("表"));
    EXPECT_THAT(Tell({"profile", "show", "user0/from0", "--json"}), HasSubstr("me@example.org"));

    EXPECT_THAT(Tell({"plan"}), HasSubstr(kPhone));
    EXPECT_THAT(Tell({"check", "--no-dns", "表"}), HasSubstr("127.0.0.1"));
    EXPECT_THAT(sink.Delivered(), SizeIs(0));
    EXPECT_THAT(Tell({"run"}), HasSubstr("* SMTP Process - success"));
    EXPECT_THAT(sink.Delivered(), SizeIs(1));
    EXPECT_THAT(Tell({"status"}), HasSubstr("forwarded"));
    EXPECT_THAT(Tell({"log", "表"}), HasSubstr("* SMTP Process - success"));

    EXPECT_THAT(Tell({"forward", "remove", kPhone, "--yes"}), HasSubstr("Removed user0"));
    EXPECT_FALSE(fs::exists(fs::path(Tree()) / "user0" / "from0" / "forwardto0"));
}

TEST_F(HostTree, CharactersThatItCannotStoreAreNamed) {
    Tell({"init", Tree()});
    EXPECT_THAT(Refusal({"user", "add", "\U0001F600"}, 65), HasSubstr("U+1F600"));
}

constexpr const char* kHasNoRules = "The tree has no rules";

TEST_F(HostTree, GetsItsRulesWhenItIsNewAndElseWhenSomebodyWantsThem) {
    const std::string file = Tree() + "/host.def";
    EXPECT_THAT(Tell({"init", Tree()}), HasSubstr("has rules now"));
    EXPECT_THAT(ReadFile(file), AllOf(HasSubstr("[setaside]"), HasSubstr("[allruns]")));
    EXPECT_EQ(host::RulesOf(Tree()), host::HostRules());
    EXPECT_THAT(Tell({"init", "--rules"}), HasSubstr("has rules already"));
    EXPECT_THAT(Tell({"status"}), Not(HasSubstr(kHasNoRules)));

    fs::remove(file);
    Tell({"user", "add", "taro"});
    EXPECT_THAT(Tell({"init"}), HasSubstr(kHasNoRules));  // nobody to ask
    EXPECT_FALSE(fs::exists(file));
    EXPECT_THAT(Tell({"status"}), HasSubstr(kHasNoRules));
    EXPECT_THAT(Refusal({"rules", "show"}, 66), HasSubstr("`tarvex init --rules`"));
    EXPECT_THAT(Refusal({"rules", "set", "--runsize", "1"}, 66), HasSubstr("`tarvex init --rules`"));
    EXPECT_FALSE(fs::exists(file));
    EXPECT_THAT(Tell({"init", "--rules"}), HasSubstr("has rules now"));
    EXPECT_EQ(host::RulesOf(Tree()), host::HostRules());
}

TEST_F(HostTree, HasRulesThatAreShownAndSet) {
    Tell({"init", Tree()});
    Tell({"user", "add", "taro"});
    Tell({"profile", "add", "taro", "me@example.org", "--popserver", "x", "--popuser", "y", "--plain"});
    EXPECT_THAT(Tell({"rules", "set", "--floodlimit", "70", "--setaside", "off", "--allruns", "9"}),
                AllOf(HasSubstr("floodlimit: \"50\" -> \"70\""), HasSubstr("setaside: \"on\" -> \"off\"")));
    // The profile may stand at either place.
    Tell({"rules", "me@example.org", "set", "--floodlimit", "80"});
    Tell({"rules", "set", "me@example.org", "--setaside", "on"});
    EXPECT_THAT(Tell({"rules", "me@example.org", "show"}),
                AllOf(HasSubstr("80        messages"), HasSubstr("Not as in the tree: setaside, floodlimit.")));
    const auto json = nlohmann::json::parse(Tell({"rules", "show", "user0/from0", "--json"}));
    EXPECT_EQ(json["path"], "user0/from0");
    EXPECT_EQ(json["floodlimit"], 80);
    EXPECT_EQ(json["allruns"], 9);
    EXPECT_EQ(nlohmann::json::parse(Tell({"rules", "show", "--json"}))["setaside"], 0);

    // As the tree has it: nothing of its own.
    Tell({"rules", "me@example.org", "set", "--floodlimit", "70", "--setaside", "off"});
    EXPECT_EQ(ReadFile(Tree() + "/user0/from0/host.def"), "[version]\r\n0\r\n\r\n");

    EXPECT_THAT(Refusal({"rules", "me@example.org", "set", "--allruns", "8"}, 64), HasSubstr("of the whole tree"));
    EXPECT_THAT(Refusal({"rules", "set", "--runsize", "0"}, 64), HasSubstr("1 to 1048576"));
    EXPECT_THAT(Refusal({"rules", "set"}, 64), HasSubstr("nothing to set"));
    EXPECT_THAT(Refusal({"rules", "nobody", "show"}, 66), HasSubstr("nobody"));
}

TEST_F(HostTree, LogsInInClearOnlyWhereThatIsAskedFor) {
    Tell({"init", Tree()});
    Tell({"user", "add", "taro"});
    std::vector<std::string> add = {"profile", "add", "taro", "me@example.org", "--popserver", "x", "--popuser", "y"};
    EXPECT_THAT(Refusal(add, 64), HasSubstr("the POP3 password would go to x in clear; give --pop_tls tls"));
    add.insert(add.end(), {"--pop_tls", "tls"});
    Tell(add);
    EXPECT_EQ(ReadFile(Tree() + "/user0/from0/host.def"), "[version]\r\n0\r\n\r\n[pop_tls]\r\n1\r\n\r\n");
    EXPECT_EQ(nlohmann::json::parse(Tell({"profile", "show", "user0/from0", "--json"}))["popport"], 995);
    EXPECT_THAT(Tell({"status"}), Not(HasSubstr("in clear")));

    EXPECT_THAT(Tell({"profile", "set", "user0/from0", "--sslpop", "on"}),
                HasSubstr("sslpop has no effect; `tarvex rules"));
    Tell({"rules", "set", "user0/from0", "--pop_tls", "off"});
    EXPECT_THAT(Tell({"status"}), HasSubstr("the POP3 password goes to x in clear; `tarvex rules set "));

    // The tree's own setting counts too.
    Tell({"rules", "set", "--pop_tls", "starttls", "--tls_authority", folder_ / "ca.pem"});
    EXPECT_THAT(Tell({"status"}), Not(HasSubstr("in clear")));
    EXPECT_EQ(nlohmann::json::parse(Tell({"rules", "show", "user0/from0", "--json"}))["tls_authority"],
              Host::Native(folder_ / "ca.pem"));
    EXPECT_THAT(Refusal({"rules", "set", "--tls_authority", "ca.pem"}, 64), HasSubstr("not a whole path"));
    Tell({"rules", "set", "--tls_authority", ""});
    Tell({"rules", "set", "--token_command", "/bin/one"});
    EXPECT_THAT(Refusal({"rules", "set", "--token_command", "[version] x"}, 65), HasSubstr("cannot be stored"));
    EXPECT_THAT(Refusal({"rules", "set", "user0/from0", "--token_command", ""}, 65),
                HasSubstr("read back as \"/bin/one\""));
    Tell({"rules", "set", "--token_command", ""});
    EXPECT_EQ(ReadFile(Tree() + "/host.def").find("tls_authority"), std::string::npos);
}

// Neither without rules nor with other ones.
TEST_F(HostTree, IsNotRunWhileItsRulesAreUnknown) {
    Tell({"init", Tree()});
    Tell({"user", "add", "taro"});
    Tell({"profile", "add", "taro", "me@example.org", "--popserver", "x", "--popuser", "y", "--plain"});
    for (const std::string& file : {Tree() + "/host.def", Tree() + "/user0/from0/host.def"}) {
        WriteFile(file, "[runsize]\nmuch\n");
        EXPECT_THAT(Refusal({"run", "--now"}, 74), AllOf(HasSubstr("user0/from0: "), HasSubstr("\"much\"")));
        EXPECT_THAT(Tell({"status"}, 1), HasSubstr("user0/from0: left out, "));
        EXPECT_THAT(Refusal({"rules", "set", "user0/from0", "--runsize", "1"}, 74), HasSubstr("runsize"));
        WriteFile(file, "[version]\n0\n");
    }
}

TEST_F(HostTree, HasOneHostAtATime) {
    Tell({"init", Tree()});
    const auto lock = host::RootLock::Try(Tree(), "serve");
    ASSERT_TRUE(lock);
    EXPECT_FALSE(host::RootLock::Try(Tree(), "run"));
    EXPECT_THAT(Refusal({"user", "add", "hanako"}, 75), HasSubstr("tarvex serve (process "));
    EXPECT_THAT(Tell({"user", "list"}), HasSubstr("PATH"));
}

}  // namespace
}  // namespace tarvex::testing
