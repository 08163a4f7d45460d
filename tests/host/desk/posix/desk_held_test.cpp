// What the desk gives away of held mail.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/tokens/login_speaker.h"
#include "tests/host/desk/posix/desk_fixture.h"

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

}  // namespace
}  // namespace tarvex::testing
