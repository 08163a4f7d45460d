// Removing users, mailboxes and addresses at the desk, and who may.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/desk/desk_fixture.h"

namespace tarvex::testing {
namespace {

using host::Json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

// Its mailbox holds mail that the server refuses.
class DeskPeopleTest : public DeskTest {
protected:
    DeskPeopleTest() {
        sink_.SetFault(
            [](const std::string& command) { return command.starts_with("RCPT") ? "550 5.1.1 no such user" : ""; });
    }

    void HoldAMail(const Json& taro, int number) {
        mailbox_.Add(MailNumber(number));
        AskAs(
            taro, "change",
            {{"kind", "profile"}, {"verb", "set"}, {"name", "user0/from0"}, {"secrets", {{"poppassword", "secret"}}}});
        ASSERT_EQ(Finish(taro, AskAs(taro, "start", {{"what", "run"}, {"profile", "user0/from0"}}))["exit_code"], 0);
    }

    // As the page does, which asks first.
    Json Remove(const Json& who, const char* kind, const std::string& name, const Json& asked) const {
        const Json& removal = asked["removal"];
        return Finish(who, AskAs(who, "change",
                                 {{"kind", kind},
                                  {"verb", "remove"},
                                  {"name", name},
                                  {"expected", removal["expected"]},
                                  {"expected_held", removal["held"]}}));
    }
};

TEST_F(DeskPeopleTest, WhatGoesWithARemovalIsSaidBeforeIt) {
    const Json taro = LogIn("taro");
    HoldAMail(taro, 1);
    const Json user = AskAs(taro, "removal", {{"name", "user1"}})["removal"];
    EXPECT_EQ(user["title"], "hanako");
    EXPECT_EQ(user["expected"], "hanako, with 1 profile");
    EXPECT_EQ(user["held"], "");
    EXPECT_THAT(user["goes"], ElementsAre("hanako@example.org"));
    const Json profile = AskAs(taro, "removal", {{"name", "user0/from0"}})["removal"];
    EXPECT_EQ(profile["held"], "1 message set aside");
    EXPECT_THAT(profile["goes"], ElementsAre("phone@example.net"));
    const Json address = AskAs(taro, "removal", {{"name", "user0/from0/forwardto0"}, {"language", "ja"}})["removal"];
    EXPECT_EQ(address["title"], "phone@example.net");
    EXPECT_NE(address["held"], "");
    EXPECT_NE(address["held"], profile["held"]);  // in Japanese
    for (const char* const none : {"user9", "user0/from9", "user0/from0/forwardto9", "", "taro"})
        EXPECT_EQ(AskAs(taro, "removal", {{"name", none}})["status"], "missing") << none;
}

TEST_F(DeskPeopleTest, AnAddressGoesWithTheMailThatWasNamedAndWithNoOther) {
    const Json taro = LogIn("taro");
    const std::string name = "user0/from0/forwardto0";
    HoldAMail(taro, 1);
    const Json before = AskAs(taro, "removal", {{"name", name}});
    HoldAMail(taro, 2);
    Json removed = Remove(taro, "forward", name, before);
    EXPECT_EQ(removed["status"], "refused");
    EXPECT_THAT(removed["message"].get<std::string>(), HasSubstr("other mail set aside by now"));
    Json forgotten = AskAs(taro, "removal", {{"name", name}});
    forgotten["removal"]["expected"] = "something else";
    EXPECT_EQ(Remove(taro, "forward", name, forgotten)["status"], "refused");
    removed = Remove(taro, "forward", name, AskAs(taro, "removal", {{"name", name}, {"language", "en"}}));
    EXPECT_EQ(removed["status"], "ok") << removed;
    EXPECT_EQ(AskAs(taro, "held")["count"], 0);
    EXPECT_EQ(AskAs(taro, "removal", {{"name", name}})["status"], "missing");
}

TEST_F(DeskPeopleTest, AnAdministratorRemovesAMailboxAndAUserWhoIsOutThen) {
    const Json taro = LogIn("taro");
    const Json hanako = LogIn("hanako");
    for (const auto& [kind, name] : {std::pair("profile", "user1/from0"), std::pair("user", "user1")}) {
        EXPECT_EQ(AskAs(hanako, "overview")["status"], "ok");
        EXPECT_EQ(Remove(taro, kind, name, AskAs(taro, "removal", {{"name", name}}))["status"], "ok") << name;
    }
    EXPECT_EQ(AskAs(hanako, "overview")["status"], "login");
    EXPECT_EQ(LogIn("hanako")["status"], "refused");
    EXPECT_THAT(host_.Tell({"user", "list"}), Not(HasSubstr("hanako")));
    EXPECT_THAT(host_.Tell({"history", "--edits"}), HasSubstr("taro (console) (as "));
}

TEST_F(DeskPeopleTest, AUserRemovesNothingButAnAddressOfHisOwn) {
    const Json hanako = LogIn("hanako");
    for (const auto& [kind, name, status] :
         {std::tuple("user", "user1", "forbidden"), std::tuple("profile", "user1/from0", "forbidden"),
          std::tuple("user", "user0", "missing"), std::tuple("profile", "user0/from0", "missing"),
          std::tuple("forward", "user0/from0/forwardto0", "missing")}) {
        EXPECT_EQ(AskAs(hanako, "removal", {{"name", name}})["status"], status) << name;
        const Json asked{{"removal", {{"expected", ""}, {"held", ""}}}};
        EXPECT_EQ(Remove(hanako, kind, name, asked)["status"], status) << name;
    }
    const std::string own = "user1/from0/forwardto0";
    EXPECT_EQ(Remove(hanako, "forward", own, AskAs(hanako, "removal", {{"name", own}}))["status"], "ok");
}

// A page of administrators may ask what others may ask too: of their own account.
TEST_F(DeskPeopleTest, WhatAPageForAdministratorsAsksIsAnsweredToThemAlone) {
    for (const char* const ask : {"account", "overview", "removal"})
        EXPECT_EQ(AskAs(LogIn("hanako"), ask, {{"administrators", true}})["status"], "forbidden") << ask;
    EXPECT_EQ(AskAs(LogIn("taro"), "account", {{"administrators", true}})["status"], "ok");
}

TEST_F(DeskPeopleTest, AnAdministratorDoesNotLockHimselfOut) {
    const Json taro = LogIn("taro");
    EXPECT_EQ(AskAs(taro, "removal", {{"name", "user0"}})["status"], "refused");
    const Json removed = Remove(taro, "user", "user0", {{"removal", {{"expected", ""}, {"held", ""}}}});
    EXPECT_EQ(removed["status"], "refused");
    for (const char* const key : {"administrator", "status"}) {
        Json change{{"kind", "user"}, {"verb", "set"}, {"name", "user0"}, {"values", {{key, "off"}}}};
        EXPECT_EQ(AskAs(taro, "change", change)["status"], "refused") << key;
        change["name"] = "user1";
        EXPECT_EQ(AskAs(taro, "change", change)["status"], "ok") << key;
    }
    EXPECT_EQ(AskAs(taro, "overview")["user"]["administrator"], true);
}

TEST_F(DeskPeopleTest, NobodyIsAddedWhereTheSettingsAllowNoNewUsers) {
    const Json taro = LogIn("taro");
    const Json add{{"kind", "user"}, {"verb", "add"}, {"name", ""}, {"values", {{"loginname", "jiro"}}}};
    host_.Tell({"settings", "set", "--allowcreatenewuser", "off"});
    EXPECT_THAT(AskAs(taro, "change", add)["message"].get<std::string>(), HasSubstr("does not allow new users"));
    host_.Tell({"settings", "set", "--allowcreatenewuser", "on"});
    EXPECT_EQ(AskAs(taro, "change", add)["status"], "ok");
}

}  // namespace
}  // namespace tarvex::testing
