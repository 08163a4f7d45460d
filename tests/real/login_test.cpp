// Greeting and authentication at a real SMTP server.

#include <gmock/gmock.h>

#include "tests/real/servers/servers_fixture.h"

namespace tarvex::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class RealSmtpLogin : public RealServersTest {
protected:
    // A profile that logs in at the SMTP server as bob, with one message waiting.
    void Prepare(const PopServer& pop, int smtp_port) {
        forwarding_ = std::make_unique<Forwarding>(pop, smtp_port);
        CPopProfileSetting& setting = forwarding_->Profile().setting;
        setting.smtpauth = 1;
        setting.smtpuser = kBob.user;
        setting.smtppassword = kBob.password;
    }

    std::unique_ptr<Forwarding> forwarding_;
    const GeneratedMail mail_ = MakeMail("utf8_base64", 1, 4096);
};

struct Method {
    int mode;
    std::string name;
};

void PrintTo(const Method& value, std::ostream* out) { *out << value.name; }

class RealSmtpMethod : public RealSmtpLogin, public ::testing::WithParamInterface<Method> {};

TEST_P(RealSmtpMethod, IsUsed) {
    PopServer pop;
    pop.Deliver(kAlice, mail_);
    const SmtpServer smtp;
    Prepare(pop, smtp.AuthPort());
    forwarding_->Profile().setting.smtpauth_mode = GetParam().mode;

    const std::string log = forwarding_->Run();

    EXPECT_EQ(Texts(smtp.WaitForMails(1)), Texts(std::vector{mail_})) << log;
    EXPECT_TRUE(smtp.WaitForLog("sasl_method=" + GetParam().name + ", sasl_username=bob")) << smtp.Log();
    EXPECT_THAT(log, Not(HasSubstr(kBob.password)));
}

INSTANTIATE_TEST_SUITE_P(EachMethod, RealSmtpMethod,
                         ::testing::Values(Method{0, "CRAM-MD5"}, Method{1, "PLAIN"}, Method{2, "LOGIN"},
                                           Method{3, "CRAM-MD5"}),
                         [](const auto& method) { return "Mode" + std::to_string(method.param.mode); });

TEST_F(RealSmtpLogin, WithoutItNothingIsRelayedAndTheMailComesLater) {
    PopServer pop;
    pop.Deliver(kAlice, mail_);
    const SmtpServer smtp;
    Prepare(pop, smtp.AuthPort());
    forwarding_->Profile().setting.smtpauth = 0;

    const std::string refused = forwarding_->Run();
    EXPECT_THAT(refused, HasSubstr("554 5.7.1 <" + std::string(kPhone) + ">"));
    EXPECT_THAT(refused, HasSubstr("* SMTP Process - error : "));
    EXPECT_THAT(forwarding_->Uidls(), IsEmpty());

    forwarding_->Profile().setting.smtpauth = 1;
    EXPECT_THAT(forwarding_->Run(), HasSubstr("* SMTP Process - success : "));
    EXPECT_EQ(Texts(smtp.WaitForMails(1)), Texts(std::vector{mail_}));
}

TEST_F(RealSmtpLogin, WrongPasswordIsRefusedAndTheMailComesLater) {
    for (int mode : {1, 2, 3}) {
        PopServer pop;
        pop.Deliver(kAlice, mail_);
        const SmtpServer smtp;
        Prepare(pop, smtp.AuthPort());
        forwarding_->Profile().setting.smtpauth_mode = mode;
        forwarding_->Profile().setting.smtppassword = "wrong";

        const std::string refused = forwarding_->Run();
        EXPECT_THAT(refused, HasSubstr("535 5.7.8 Error: authentication failed")) << mode;
        EXPECT_THAT(refused, HasSubstr("* SMTP Process - error to create socket : "));
        EXPECT_THAT(forwarding_->Uidls(), IsEmpty());

        forwarding_->Profile().setting.smtppassword = kBob.password;
        forwarding_->Run();
        EXPECT_EQ(Texts(smtp.WaitForMails(1)), Texts(std::vector{mail_})) << mode;
    }
}

TEST_F(RealSmtpLogin, WithoutOwnSmtpLoginThatOfTheMailboxIsUsed) {
    PopServer pop;
    pop.Deliver(kAlice, mail_);
    const SmtpServer smtp;
    Prepare(pop, smtp.AuthPort());
    forwarding_->Profile().setting.smtpuser.clear();
    forwarding_->Profile().setting.smtppassword.clear();
    forwarding_->Run();
    EXPECT_EQ(Texts(smtp.WaitForMails(1)), Texts(std::vector{mail_}));
    EXPECT_TRUE(smtp.WaitForLog("sasl_method=CRAM-MD5, sasl_username=alice"));
}

// An AUTH list on the last line of the answer is not looked at, so nobody logs in and the server does not relay.
TEST_F(RealSmtpLogin, AuthOnTheLastLineOfTheAnswerIsNotSeenAndTheMailComesLater) {
    PopServer pop;
    pop.Deliver(kAlice, mail_);
    const SmtpServer smtp;
    Prepare(pop, smtp.AuthLastPort());

    const std::string refused = forwarding_->Run();
    EXPECT_THAT(refused, HasSubstr("\r\n250 AUTH CRAM-MD5 LOGIN PLAIN\r\n"));
    EXPECT_THAT(refused, HasSubstr("554 5.7.1 <" + std::string(kPhone) + ">"));
    EXPECT_THAT(forwarding_->Uidls(), IsEmpty());

    forwarding_->Profile().setting.smtpport = smtp.AuthPort();
    forwarding_->Run();
    EXPECT_EQ(Texts(smtp.WaitForMails(1)), Texts(std::vector{mail_}));
}

TEST_F(RealSmtpLogin, ServerWithoutEhloIsGreetedWithHelo) {
    PopServer pop;
    pop.Deliver(kAlice, mail_);
    const SmtpServer smtp;
    Prepare(pop, smtp.NoEhloPort());

    const std::string log = forwarding_->Run();

    EXPECT_THAT(log, HasSubstr("\r\n500 5.5.2 Error: command not recognized\r\nRSET\r\n250 2.0.0 Ok\r\nHELO\r\n250 "
                               "smtp.example.test\r\nMAIL FROM: "));
    EXPECT_EQ(Texts(smtp.WaitForMails(1)), Texts(std::vector{mail_}));
}

}  // namespace
}  // namespace tarvex::testing
