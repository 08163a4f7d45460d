// Who is told of trouble, as the desk shows it; and the servers that profiles share.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/alerts/alert_memory.h"
#include "tests/host/desk/desk_fixture.h"

namespace tarvex::testing {
namespace {

using host::Json;
using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

// The operator is told of everything, and hanako of what is hers.
class DeskAlertsTest : public DeskTest {
protected:
    Json SetRules(const Json& who, const std::string& name, const Json& values) const {
        return AskAs(who, "change", {{"kind", "rules"}, {"verb", "set"}, {"name", name}, {"values", values}});
    }

    void NameReaders(const Json& taro) const {
        const std::string port = std::to_string(sink_.Port());
        ASSERT_EQ(
            SetRules(taro, "",
                     {{"alert_to", "ops@example.org"}, {"alert_server", "127.0.0.1"}, {"alert_port", port}})["status"],
            "ok");
    }

    // As the service keeps what it has told.
    void Remember(const host::Reader& reader, const host::ReaderState& state) const {
        host::AlertMemory memory(host_.Root(), [](const std::string& what) { ADD_FAILURE() << what; });
        memory.Begin({reader.Key()});
        memory.Of(reader.Key()) = state;
        memory.Save();
    }
};

TEST_F(DeskAlertsTest, AnAdministratorSeesWhoIsToldOfWhatAndThatItDoesNotArrive) {
    const Json taro = LogIn("taro");
    NameReaders(taro);
    service_.reset();  // which would tell, and forget what is not so
    const auto rules = host::RulesOf(host_.Root());
    host::ReaderState state;
    state.told[{"user1/from0", host::Problem::Failing, ""}] = 1'000'000'000;
    state.told[{"", host::Problem::DiskIsShort, ""}] = 0;
    state.last_alert = 1'000'000'000;
    state.tries = 2;
    state.failing_since = state.next_try = 1'000'000'000;
    state.words = "450 not now";
    Remember(host::ReadersOf(*rules).front(), state);
    Serve();
    const Json answer = AskAs(LogIn("taro"), "alerts");
    ASSERT_EQ(answer["status"], "ok") << answer;
    ASSERT_THAT(answer["readers"], SizeIs(1));
    const Json& reader = answer["readers"][0];
    EXPECT_EQ(reader["name"], "ops@example.org");
    EXPECT_EQ(reader["through"], "127.0.0.1:" + std::to_string(sink_.Port()));
    EXPECT_THAT(reader["last"].get<std::string>(), HasSubstr("2001-09-"));
    EXPECT_THAT(reader["open"].dump(), AllOf(HasSubstr("its runs fail"), HasSubstr("nearly full")));
    EXPECT_EQ(reader["trouble"]["words"], "450 not now");
    EXPECT_THAT(answer["keys"].dump(), HasSubstr("alert_after"));

    const Json hanako = LogIn("hanako");
    const Json of_user = AskAs(hanako, "alerts");
    ASSERT_THAT(of_user["readers"], SizeIs(1));
    EXPECT_THAT(of_user.dump(), AllOf(Not(HasSubstr("ops@")), Not(HasSubstr("nearly full")), Not(HasSubstr("450")),
                                      Not(HasSubstr("2001-09-09T")), HasSubstr("its runs fail")));
    EXPECT_FALSE(of_user.contains("keys"));
    EXPECT_THAT(AskAs(LogIn("taro"), "alerts", {{"name", "user0/from0"}})["readers"][0]["open"], IsEmpty());
}

TEST_F(DeskAlertsTest, AUserSeesTheOwnAlertsAlone) {
    const Json taro = LogIn("taro");
    NameReaders(taro);
    ASSERT_EQ(SetRules(taro, "user1/from0", {{"alert_to", "hanako@example.com"}})["status"], "ok");
    const Json hanako = LogIn("hanako");
    const Json own = AskAs(hanako, "alerts");
    ASSERT_THAT(own["readers"], SizeIs(1));
    EXPECT_EQ(own["readers"][0]["name"], "hanako@example.com");
    EXPECT_EQ(own["readers"][0]["through"], "");
    EXPECT_THAT(AskAs(taro, "alerts")["readers"], SizeIs(2));
    for (const char* const name : {"user0", "user0/from0", "user9"})
        EXPECT_EQ(AskAs(hanako, "alerts", {{"name", name}})["status"], "missing") << name;
    EXPECT_EQ(SetRules(hanako, "user1/from0", {{"alert_to", "x@example.com"}})["status"], "forbidden");
    EXPECT_EQ(AskAs(hanako, "test-alert", {{"name", "user1/from0"}})["status"], "forbidden");
}

TEST_F(DeskAlertsTest, ATestAlertGoesToEverybodyWhoIsTold) {
    const Json taro = LogIn("taro");
    Json none = Finish(taro, AskAs(taro, "test-alert"));
    EXPECT_NE(none["exit_code"], 0);
    EXPECT_THAT(none["printed"].get<std::string>(), HasSubstr("nobody is told"));
    NameReaders(taro);
    const Json sent = Finish(taro, AskAs(taro, "test-alert"));
    EXPECT_EQ(sent["exit_code"], 0) << sent;
    EXPECT_THAT(sent["printed"].get<std::string>(), HasSubstr("ops@example.org: told"));
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
    EXPECT_EQ(AskAs(taro, "test-alert", {{"name", "user9/from0"}})["status"], "missing");
    Json without = taro;
    without["token"] = "";
    EXPECT_EQ(AskAs(without, "test-alert")["status"], "forbidden");
}

TEST_F(DeskAlertsTest, ANewProfileIsToldWhatItSendsThrough) {
    const Json taro = LogIn("taro");
    EXPECT_FALSE(AskAs(taro, "new-profile", {{"name", "user1"}}).contains("shared"));
    ASSERT_EQ(SetRules(taro, "", {{"smtpserver", "smtp.example.org"}, {"smtpport", "587"}})["status"], "ok");
    const Json answer = AskAs(taro, "new-profile", {{"name", "user1"}});
    EXPECT_EQ(answer["shared"], "smtp.example.org:587");
    EXPECT_EQ(AskAs(taro, "new-profile", {{"name", "user9"}})["status"], "missing");
    EXPECT_EQ(AskAs(LogIn("hanako"), "new-profile", {{"name", "user1"}})["status"], "forbidden");
}

TEST_F(DeskAlertsTest, APasswordAndALoginNameAreTakenAway) {
    const auto change = [this](const Json& who, const char* what, const Json& values) {
        return AskAs(who, "change",
                     {{"kind", "profile"}, {"verb", "set"}, {"name", "user1/from0"}, {what, values}})["status"];
    };
    const auto shown = [this] { return host_.Tell({"profile", "show", "user1/from0"}); };
    const Json hanako = LogIn("hanako");
    EXPECT_EQ(change(hanako, "secrets", {{"poppassword", "a secret"}}), "ok");
    EXPECT_THAT(shown(), ContainsRegex("poppassword +\\(set\\)"));
    EXPECT_EQ(change(hanako, "secrets", {{"poppassword", ""}}), "ok");
    EXPECT_THAT(shown(), ContainsRegex("poppassword +\\(none\\)"));
    EXPECT_EQ(change(hanako, "values", {{"smtpuser", "mine"}}), "forbidden");
    const Json taro = LogIn("taro");
    EXPECT_EQ(change(taro, "values", {{"smtpuser", "another"}}), "ok");
    EXPECT_THAT(shown(), HasSubstr("another"));
    EXPECT_EQ(change(taro, "values", {{"smtpuser", ""}}), "ok");
    EXPECT_THAT(shown(), Not(HasSubstr("another")));
}

}  // namespace
}  // namespace tarvex::testing
