// What the desk gives away of held mail.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#include "host/tokens/login_speaker.h"
#include "tests/host/desk/desk_fixture.h"

namespace tarvex::testing {
namespace {

using host::Json;
using ::testing::HasSubstr;

using DeskHeldTest = DeskTest;

TEST_F(DeskHeldTest, AMessageIsGivenWholeToWhoMaySeeItUnlessItIsTooLarge) {
    sink_.SetFault(
        [](const std::string& command) { return command.starts_with("RCPT") ? "550 5.1.1 no such user" : ""; });
    mailbox_.Add(MailNumber(1));
    loopback::StoredMail large = MailNumber(2);
    for (int i = 0; i < 13 << 10; ++i) large.text += std::string(1022, 'x') + "\r\n";
    mailbox_.Add(large);
    const Json taro = LogIn("taro");
    AskAs(taro, "change",
          {{"kind", "profile"}, {"verb", "set"}, {"name", "user0/from0"}, {"secrets", {{"poppassword", "secret"}}}});
    Finish(taro, AskAs(taro, "start", {{"what", "run"}, {"profile", "user0/from0"}}));

    Json question = {{"profile", "user0/from0"}, {"id", 1}, {"whole", true}};
    const Json whole = AskAs(taro, "held-mail", question);
    ASSERT_EQ(whole["status"], "ok") << whole;
    EXPECT_EQ(host::Base64Decoded(whole["whole"].get<std::string>()), MailNumber(1).text);
    EXPECT_EQ(AskAs(LogIn("hanako"), "held-mail", question)["status"], "missing");
    question["id"] = 2;
    const Json refused = AskAs(taro, "held-mail", question);
    ASSERT_EQ(refused["status"], "refused");
    EXPECT_THAT(refused["message"].get<std::string>(), HasSubstr("too large for the browser"));
}

// Both users have a message set aside; all of it was refused.
class DeskRefusedTest : public DeskTest {
protected:
    DeskRefusedTest() {
        sink_.SetFault([this](const std::string& command) {
            return refuses_ && command.starts_with("RCPT") ? "550 5.1.1 no such user" : "";
        });
        mailbox_.Add(MailNumber(1));
        mailbox_.Add(MailNumber(2));
        host_.Tell({"profile", "set", "user1/from0", "--popuser", "taro"});
        taro_ = LogIn("taro");
        for (const char* const profile : {"user0/from0", "user1/from0"}) {
            AskAs(taro_, "change",
                  {{"kind", "profile"}, {"verb", "set"}, {"name", profile}, {"secrets", {{"poppassword", "secret"}}}});
            Finish(taro_, AskAs(taro_, "start", {{"what", "run"}, {"profile", profile}}));
        }
    }

    std::size_t Held(const Json& session) const { return AskAs(session, "held")["held"].size(); }

    std::atomic<bool> refuses_{true};
    Json taro_;
};

TEST_F(DeskRefusedTest, SeveralAreSentOrDroppedAtOnceButNoneOfAnother) {
    const Json hanako = LogIn("hanako");
    EXPECT_EQ(AskAs(taro_, "held")["held"][0]["subject"], "mail-2");
    EXPECT_EQ(AskAs(hanako, "held-change", {{"verb", "drop"}, {"mails", {"user1/from0/1", "user0/from0/1"}}})["status"],
              "missing");
    for (const Json& none : {Json(), Json::array(), Json{"user0/from0"}, Json{"user0/from0/9"}, Json{""}})
        EXPECT_EQ(AskAs(taro_, "held-change", {{"verb", "drop"}, {"mails", none}})["status"], "missing") << none;
    EXPECT_EQ(Held(taro_), 4U);
    refuses_ = false;
    const Json sent =
        Finish(taro_, AskAs(taro_, "held-change", {{"verb", "send"}, {"mails", {"user0/from0/1", "user1/from0/2"}}}));
    EXPECT_EQ(sent["status"], "ok") << sent;
    EXPECT_EQ(sink_.Delivered().size(), 2U);
    Finish(taro_, AskAs(taro_, "held-change", {{"verb", "drop"}, {"mails", {"user0/from0/2", "user1/from0/1"}}}));
    EXPECT_EQ(Held(taro_), 0U);
    EXPECT_EQ(sink_.Delivered().size(), 2U);
}

TEST_F(DeskRefusedTest, AMessageIsTracedAndSentAgainByWhoMaySeeIt) {
    const Json hanako = LogIn("hanako");
    const std::string mine = AskAs(hanako, "mails")["mails"][0]["message"];
    const std::string taros = AskAs(taro_, "mails", {{"profile", "user0/from0"}})["mails"][0]["message"];
    for (const std::string& other : {taros, std::string("M999"), std::string("x"), std::string()})
        for (const char* const ask : {"mail", "resend"})
            EXPECT_EQ(AskAs(hanako, ask, {{"message", other}})["status"], "missing") << ask << ' ' << other;
    EXPECT_EQ(AskAs(hanako, "resend", {{"message", mine}, {"to", "user0/from0/forwardto0"}})["status"], "missing");
    const Json mail = AskAs(hanako, "mail", {{"message", mine}});
    ASSERT_EQ(mail["status"], "ok") << mail;
    EXPECT_EQ(mail["mail"]["copies"][0]["fate"], "parked");  // after the refusal of the first
    EXPECT_EQ(mail["held"].size(), 1U);
    EXPECT_EQ(mail["addresses"][0]["path"], "user1/from0/forwardto0");
    EXPECT_EQ(mail["title"], "hanako@example.org");
    EXPECT_EQ(AskAs(hanako, "held-mail", {{"profile", "user1/from0"}, {"id", 1}})["title"], "hanako@example.org");
    for (const char* const ask : {"held", "mails"})
        EXPECT_EQ(AskAs(hanako, ask, {{"profile", "user1/from0"}})["title"], "hanako@example.org") << ask;

    refuses_ = false;
    const Json again = {{"message", mine}, {"to", "user1/from0/forwardto0"}};
    EXPECT_EQ(Finish(hanako, AskAs(hanako, "resend", again))["status"], "ok");  // from where it is set aside
    EXPECT_EQ(sink_.Delivered().size(), 1U);
    EXPECT_EQ(Finish(hanako, AskAs(hanako, "resend", again))["status"], "ok");  // out of the mailbox
    Finish(hanako, AskAs(hanako, "start", {{"what", "run"}, {"profile", "user1/from0"}}));
    EXPECT_EQ(sink_.Delivered().size(), 2U);
    for (const StoredMail& stored : mailbox_.Mails()) mailbox_.Remove(stored.uidl);
    EXPECT_THAT(Finish(hanako, AskAs(hanako, "resend", again))["message"].get<std::string>(), HasSubstr("neither"));
}

// Whoever has the folder now sees nothing of what its profile was before; an administrator sees it, and cannot send it.
TEST_F(DeskRefusedTest, AMessageOfARemovedMailboxIsNobodysElse) {
    const Json hanako = LogIn("hanako");
    const std::string mine = AskAs(hanako, "mails")["mails"][0]["message"];
    host_.Tell({"profile", "remove", "user1/from0", "--yes"});
    host_.Tell({"profile", "add", "hanako", "new@example.org", "--popserver", "127.0.0.1", "--popport",
                std::to_string(mailbox_.Port()), "--popuser", "new"});
    EXPECT_EQ(AskAs(hanako, "mail", {{"message", mine}})["status"], "missing");
    EXPECT_EQ(AskAs(taro_, "mail", {{"message", mine}})["is_there"], false);
    EXPECT_EQ(AskAs(taro_, "resend", {{"message", mine}})["status"], "missing");
}

}  // namespace
}  // namespace tarvex::testing
