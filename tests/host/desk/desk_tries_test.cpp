// What is typed at the console and tried before it is saved.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/desk/desk_fixture.h"

namespace tarvex::testing {
namespace {

using host::Json;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

class DeskTriesTest : public DeskTest {
protected:
    Json Try(const Json& session, const Json& more, const std::string& kind = "forward",
             const std::string& name = "user0/from0/forwardto0") const {
        Json question = {{"kind", kind}, {"verb", "set"}, {"name", name}};
        question.update(more);
        return Finish(session, AskAs(session, "try", question));
    }

    void SetPassword(const Json& session) const {
        AskAs(
            session, "change",
            {{"kind", "profile"}, {"verb", "set"}, {"name", "user0/from0"}, {"secrets", {{"poppassword", "secret"}}}});
    }

    std::string Settings() const { return ReadFile(host_.Root() + "/user0/from0/popprofile.def"); }
};

TEST_F(DeskTriesTest, APreviewShowsTheNewestMessageAsTypedAndLeavesEverythingAsItIs) {
    const Json taro = LogIn("taro");
    SetPassword(taro);
    host_.Tell({"profile", "set", "user0/from0", "--deletemail", "on", "--replacefrom", "on"});
    mailbox_.Add(MailNumber(1));
    mailbox_.Add({"newest", "From: a@example.org\r\nSubject: =?UTF-8?B?5pel5pys?=\r\n\r\n" + std::string(300, 'x') +
                                "\r\n..dots\r\n"});
    const std::string before = Settings();
    const Json job = Try(taro, {{"values", {{"textonly", "128"}}}});
    ASSERT_EQ(job["status"], "ok") << job;
    const Json& found = job["found"];
    EXPECT_EQ(found["text"], std::string(128, 'x'));
    EXPECT_EQ(found["bytes"], 128);
    EXPECT_GT(found["all_bytes"], 300);
    EXPECT_EQ(found["subject"], "日本");
    EXPECT_THAT(found["from"].get<std::string>(), HasSubstr("taro@example.org"));
    EXPECT_EQ(found["address"], "phone@example.net");
    const Json all = Try(taro, {{"values", {{"textonly", "unlimited"}}}})["found"];
    EXPECT_THAT(all["text"].get<std::string>(), AllOf(StartsWith("xxx"), Not(EndsWith("\n."))));
    EXPECT_EQ(all["bytes"], all["all_bytes"]);
    EXPECT_EQ(Try(taro, Json::object())["found"]["whole"], true);  // as it is set

    EXPECT_THAT(mailbox_.Mails(), SizeIs(2));
    EXPECT_EQ(mailbox_.Received("DELE"), 0);
    EXPECT_EQ(mailbox_.Received("RETR"), 3);
    EXPECT_EQ(Settings(), before);
    EXPECT_THAT(host_.Tell({"forward", "show", "user0/from0/forwardto0"}), HasSubstr("whole"));
    EXPECT_EQ(Uidls(host_.Root() + "/user0/from0"), "");
    EXPECT_EQ(ReadFile(host_.Root() + "/user0/from0/profile.log").find("RETR"), std::string::npos);
    host_.Tell({"run", "--now", "user0/from0"});
    EXPECT_THAT(sink_.Delivered(), SizeIs(2));
}

TEST_F(DeskTriesTest, WhatCannotBeShownIsSaid) {
    const Json taro = LogIn("taro");
    EXPECT_THAT(Try(taro, Json::object())["message"].get<std::string>(),
                HasSubstr("cannot be fetched"));  // no password
    SetPassword(taro);
    EXPECT_THAT(Try(taro, Json::object())["message"].get<std::string>(), HasSubstr("empty"));
    EXPECT_THAT(Try(taro, {{"held", 7}})["message"].get<std::string>(), HasSubstr("not set aside"));
    EXPECT_EQ(Try(taro, {{"values", {{"textonly", "many"}}}})["status"], "refused");
    EXPECT_EQ(Try(LogIn("hanako"), Json::object())["status"], "missing");
    EXPECT_EQ(Try(taro, {{"verb", "remove"}})["status"], "bad");
}

TEST_F(DeskTriesTest, ServersAreTriedAsTypedAndSavedAfterwardsWithThePassword) {
    const Json taro = LogIn("taro");
    const std::string before = Settings();
    MailboxServer other("jiro", "a typed secret");
    const Json draft = {{"values", {{"popport", std::to_string(other.Port())}, {"popuser", "jiro"}}},
                        {"secrets", {{"poppassword", "a typed secret"}}}};
    const Json job = Try(taro, draft, "profile", "user0/from0");
    ASSERT_EQ(job["status"], "ok") << job;
    EXPECT_EQ(job["exit_code"], 0) << job;
    EXPECT_THAT(job["printed"].get<std::string>(), AllOf(HasSubstr("log in"), HasSubstr("POP3"), HasSubstr("SMTP")));
    EXPECT_THAT(job.dump(), Not(HasSubstr("a typed secret")));
    EXPECT_EQ(job["draft"]["secrets"], Json({"poppassword"}));
    EXPECT_EQ(Settings(), before);
    EXPECT_EQ(other.Received("PASS") + other.Received("APOP"), 1);

    // Back in the form the password need not be typed again; it goes to nobody else.
    const Json form = AskAs(taro, "profile", {{"profile", "user0/from0"}, {"draft", job["job"]}});
    EXPECT_EQ(form["draft"]["values"]["popuser"], "jiro");
    EXPECT_THAT(form.dump(), Not(HasSubstr("a typed secret")));
    Json again = {{"values", draft["values"]}, {"draft", job["job"]}};
    EXPECT_EQ(Try(taro, again, "profile", "user0/from0")["exit_code"], 0);
    again.erase("draft");
    EXPECT_NE(Try(taro, again, "profile", "user0/from0")["exit_code"], 0);
    for (const char* const ask : {"job", "save-tried"})
        EXPECT_EQ(AskAs(LogIn("hanako"), ask, {{"job", job["job"]}})["status"], "missing");

    EXPECT_EQ(Finish(taro, AskAs(taro, "save-tried", {{"job", job["job"]}}))["status"], "ok");
    EXPECT_THAT(host_.Tell({"check", "--no-dns", "user0/from0"}), HasSubstr("log in"));
    EXPECT_THAT(AskAs(taro, "history").dump() + service_->Printed(), Not(HasSubstr("a typed secret")));
}

// Who writes passwords may not read them, at a server of his own.
TEST_F(DeskTriesTest, AStoredPasswordGoesToNoOtherServer) {
    const Json taro = LogIn("taro");
    SetPassword(taro);
    host_.Tell({"profile", "set", "user0/from0", "--smtpauth", "on"});
    for (const char* const key : {"popserver", "smtpserver"}) {
        const Json job = Try(taro, {{"values", {{key, "localhost"}}}}, "profile", "user0/from0");
        EXPECT_THAT(job["message"].get<std::string>(), HasSubstr("type it again")) << job;
    }
    const Json shared = {{"verb", "add"}, {"values", {{"address", "x@example.org"}}}, {"rules", {{"smtpserver", "x"}}}};
    EXPECT_EQ(Try(taro, shared, "profile", "user0")["status"], "bad");
    EXPECT_EQ(mailbox_.Received("QUIT") + sink_.Received("QUIT"), 0);
    const Json typed = {{"values", {{"popserver", "localhost"}}}, {"secrets", {{"poppassword", "secret"}}}};
    Try(taro, typed, "profile", "user0/from0");
    EXPECT_EQ(mailbox_.Received("QUIT"), 1);
}

TEST_F(DeskTriesTest, AServerThatStallsKeepsTheServiceFromNoEnd) {
    const Json taro = LogIn("taro");
    SetPassword(taro);
    mailbox_.Add(MailNumber(1));
    mailbox_.SetFault([](const std::string& command) { return command.starts_with("RETR") ? "stall" : ""; });
    const Json preview = {{"kind", "forward"}, {"verb", "set"}, {"name", "user0/from0/forwardto0"}};
    EXPECT_EQ(AskAs(taro, "try", preview)["status"], "working");
    for (const auto end = std::chrono::steady_clock::now() + kDeskPatience;
         mailbox_.Received("RETR") == 0 && std::chrono::steady_clock::now() < end;)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    service_->Interrupt();
    EXPECT_TRUE(service_->WaitFor(kDeskPatience));  // the server is given 30 s
}

TEST_F(DeskTriesTest, EachStepIsShownWhileTheServerTakesItsTime) {
    const Json taro = LogIn("taro");
    SetPassword(taro);
    mailbox_.SetFault([](const std::string& command) { return command.starts_with("PASS") ? "stall" : ""; });
    Json job = AskAs(taro, "try", {{"kind", "profile"}, {"verb", "set"}, {"name", "user0/from0"}});
    for (const auto end = std::chrono::steady_clock::now() + kDeskPatience;
         job["begun"] != "log in" && std::chrono::steady_clock::now() < end;)
        job = AskAs(taro, "job", {{"job", job["job"]}});
    EXPECT_EQ(job["status"], "working");
    EXPECT_EQ(job["begun"], "log in");
    EXPECT_THAT(job["printed"].get<std::string>(),
                AllOf(StartsWith("POP3, "), HasSubstr("connect"), HasSubstr("+OK"), Not(HasSubstr("log in"))));
    service_->Interrupt();
    EXPECT_TRUE(service_->WaitFor(kDeskPatience));
}

TEST_F(DeskTriesTest, AdviceIsForWhoReadsTheConsole) {
    const Json taro = LogIn("taro");
    const Json typed = {{"secrets", {{"poppassword", "wrong"}}}};
    const Json tried = Try(taro, typed, "profile", "user0/from0");
    const Json check = Finish(taro, AskAs(taro, "start", {{"what", "check"}, {"profile", "user0/from0"}}));
    const Json plan = Finish(taro, AskAs(taro, "start", {{"what", "plan"}, {"profile", "user0/from0"}}));
    for (const Json& job : {tried, check, plan})
        EXPECT_THAT(job["printed"].get<std::string>(), AllOf(HasSubstr("POP3 password"), Not(HasSubstr("`tarvex"))))
            << job;
    EXPECT_THAT(host_.Tell({"check", "--no-dns", "user0/from0"}, 69), HasSubstr("`tarvex profile set`"));
}

TEST_F(DeskTriesTest, AMailboxThatIsNotThereYetIsTried) {
    const Json taro = LogIn("taro");
    const MailboxServer other("jiro", "secret");
    const Json draft = {{"verb", "add"},
                        {"values",
                         {{"address", "t2@example.org"},
                          {"popserver", "127.0.0.1"},
                          {"popport", std::to_string(other.Port())},
                          {"popuser", "jiro"},
                          {"smtpserver", "127.0.0.1"},
                          {"smtpport", std::to_string(sink_.Port())}}},
                        {"secrets", {{"poppassword", "secret"}}}};
    const Json job = Try(taro, draft, "profile", "user0");
    EXPECT_EQ(job["exit_code"], 0) << job;
    EXPECT_EQ(AskAs(taro, "overview")["all"], 2);
    Json bad = draft;
    bad["values"]["popport"] = "none";
    EXPECT_EQ(Try(taro, bad, "profile", "user0")["status"], "refused");
    EXPECT_EQ(Finish(taro, AskAs(taro, "save-tried", {{"job", job["job"]}}))["status"], "ok");
    EXPECT_EQ(AskAs(taro, "overview")["all"], 3);
}

TEST_F(DeskTriesTest, AUserHasTheServiceConnectToNoServerOfHisChoice) {
    const Json hanako = LogIn("hanako");
    const MailboxServer other("hanako", "secret");
    for (const Json& values :
         {Json{{"popserver", "localhost"}}, Json{{"popport", std::to_string(other.Port())}},
          Json{{"smtpserver", "127.0.0.1"}}, Json{{"smtpport", std::to_string(other.Port())}}, Json{{"popuser", "x"}}})
        EXPECT_EQ(Try(hanako, {{"values", values}}, "profile", "user1/from0")["status"], "forbidden") << values;
    for (const Json& more : {Json{{"rules", {{"pop_tls", "off"}}}}, Json{{"verb", "add"}}})
        EXPECT_NE(Try(hanako, more, "profile", "user1/from0")["status"], "ok") << more;
    EXPECT_EQ(Try(hanako, {{"verb", "add"}}, "profile", "user1")["status"], "forbidden");
    EXPECT_EQ(other.Received("QUIT"), 0);
    // The own password, at the server that there is.
    EXPECT_EQ(Try(hanako, {{"secrets", {{"poppassword", "secret"}}}}, "profile", "user1/from0")["status"], "ok");
}

}  // namespace
}  // namespace tarvex::testing
