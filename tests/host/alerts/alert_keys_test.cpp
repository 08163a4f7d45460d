// The keys that say who is told: what they take, whose login goes to which server, and that no password shows.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "host/edit/edit.h"
#include "host/settings/host_setting.h"
#include "host/settings/mailbox_value.h"
#include "host/system/command_error.h"
#include "testing/temp_dir.h"
#include "tests/host/edit_words.h"

namespace tarvex::testing {
namespace {

using host::HostRules;
using host::RulesPlace;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

std::string Refusal(HostRules& rules, const char* key, const std::string& word) {
    try {
        host::SetValue(rules, host::KeyNamed<HostRules>(key), word);
    } catch (const host::CommandError& error) {
        EXPECT_EQ(error.ExitCode(), host::kBadUsage);
        return error.what();
    }
    return {};
}

TEST(AlertKeys, TakeAddressesAndNothingElse) {
    HostRules rules;
    for (const char* const good : {"", "a@example.org", "a@example.org, b@example.org", "none"})
        EXPECT_EQ(Refusal(rules, "alert_to", good), "");
    for (const char* const bad : {"a", "a@example.org,", "Taro <a@example.org>", "a@example.org b@example.org",
                                  "a@example.org\r\nBcc: b@example.org", "\xE5\xA4\xAA@example.org"}) {
        EXPECT_THAT(Refusal(rules, "alert_to", bad), HasSubstr("is not a mail address")) << bad;
        EXPECT_THAT(Refusal(rules, "alert_from", bad), HasSubstr("is not a mail address")) << bad;
    }
    EXPECT_EQ(Refusal(rules, "alert_from", "a@example.org"), "");
    EXPECT_THAT(Refusal(rules, "alert_from", "none"), HasSubstr("is not a mail address"));
    EXPECT_THAT(Refusal(rules, "alert_from", "a@example.org,b@example.org"), HasSubstr("at most 1 address"));
    std::string many = "a0@example.org";
    for (int i = 1; i <= 20; ++i) many += ",a" + std::to_string(i) + "@example.org";
    EXPECT_THAT(Refusal(rules, "alert_to", many), HasSubstr("at most 20 addresses"));
}

// What a hand has written into the file.
TEST(AlertKeys, AreReadWithoutWhatIsNoAddress) {
    EXPECT_THAT(host::MailboxesIn(" a@example.org ,x, b@example.org,a@example.org,c@example.org\nBcc: d@example.org"),
                ElementsAre("a@example.org", "b@example.org"));
    EXPECT_THAT(host::MailboxesIn("none"), ElementsAre());
}

TEST(AlertKeys, OfAFileThatNamesAServerAreAWholeAccount) {
    HostRules tree;
    tree.alert_to = "ops@example.org";
    tree.alert_server = "relay.example.org";
    tree.alert_port = 587;
    tree.alert_tls = 2;
    tree.alert_user = "ops";
    tree.alert_password = "secret";
    for (const RulesPlace place : {RulesPlace::User, RulesPlace::Profile}) {
        const HostRules login = host::RulesIn("[alert_user]\nme\n", "", tree, place);
        EXPECT_EQ(login.alert_password, "secret");
        EXPECT_EQ(login.alert_user, "me");
        const HostRules own = host::RulesIn("[alert_server]\nmail.example.net\n", "", tree, place);
        EXPECT_EQ(own.alert_password, "") << "that of the tree goes to the server of the tree alone";
        EXPECT_EQ(own.alert_user, "");
        EXPECT_EQ(own.alert_port, 25);
        EXPECT_EQ(own.alert_tls, 0);
        EXPECT_EQ(own.alert_to, "ops@example.org");
    }
}

TEST(AlertKeys, AreSetForTreeUserAndProfileAndThePasswordIsScrambled) {
    const TempDir folder;
    const std::string root = folder / "tree";
    CRootPath tree;
    ASSERT_EQ(tree.SetRootPath(root), 1);
    ASSERT_TRUE(tree.CreateNewUser("taro", "", 0)->CreateNewPopProfile("", "me@example.org"));
    WriteFile(folder.Path() / "tree" / "host.def", "[version]\n0\n");
    host::Reply reply;
    const auto set = [&](const std::vector<std::string>& words,
                         const std::map<std::string, std::string>& secrets = {}) {
        EXPECT_EQ(host::Edit(tree, EditOf(words, secrets), reply), 0) << reply.error;
    };
    set({"rules", "set", "", "alert_to=ops@example.org", "alert_server=relay.example.org", "alert_port=587",
         "alert_user=ops"},
        {{"alert_password", "swordfish"}});
    EXPECT_THAT(reply.printed, Not(HasSubstr("swordfish")));
    const std::string text = ReadFile(root + "/host.def");
    EXPECT_THAT(text, HasSubstr("[alert_password]"));
    EXPECT_THAT(text, Not(HasSubstr("swordfish")));
    const std::string profile = root + "\\user0\\from0";
    EXPECT_EQ(host::RulesOf(root, profile)->alert_password, "swordfish");
    // The same port as in the tree belongs to the account all the same.
    set({"rules", "set", "user0/from0", "alert_to=me@example.org", "alert_server=own.example.org", "alert_port=587"});
    EXPECT_EQ(host::RulesOf(root, profile)->alert_port, 587);
    EXPECT_EQ(host::RulesOf(root, profile)->alert_password, "");
    EXPECT_EQ(host::RulesOf(root, profile)->alert_to, "me@example.org");
    set({"rules", "set", "user0/from0", "alert_server="});
    EXPECT_EQ(host::RulesOf(root, profile)->alert_server, "relay.example.org") << "the account of the tree again";
    EXPECT_EQ(host::RulesOf(root, profile)->alert_password, "swordfish");
    set({"rules", "set", "", "alert_server="});
    EXPECT_THAT(ReadFile(root + "/host.def"), Not(HasSubstr("alert_password")));
}

}  // namespace
}  // namespace tarvex::testing
