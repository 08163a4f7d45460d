// What a run does with a real mailbox: logging in, telling new mail from old, deleting.

#include <gmock/gmock.h>

#include "tests/real/servers/servers_fixture.h"

namespace tarvex::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

class RealMailbox : public RealServersTest {};

TEST_F(RealMailbox, UserAndPasswordLogin) {
    PopServer pop;
    const SmtpServer smtp;
    Forwarding forwarding(pop, smtp.PlainPort());
    const GeneratedMail mail = MakeMail("ascii", 1, 4096);
    pop.Deliver(kAlice, mail);

    const std::string log = forwarding.Run();

    const std::vector<ArrivedMail> arrived = smtp.WaitForMails(1);
    ASSERT_THAT(arrived, SizeIs(1)) << log;
    EXPECT_EQ(arrived[0].text, mail.text);
    EXPECT_EQ(arrived[0].sender, kSender);
    EXPECT_EQ(arrived[0].recipient, kPhone);
    EXPECT_THAT(log, HasSubstr("USER alice\r\n"));
    EXPECT_THAT(log, HasSubstr("PASS " + std::string(kAlice.password.size(), '*') + "\r\n"));
    EXPECT_THAT(log, Not(HasSubstr(kAlice.password)));
    EXPECT_THAT(pop.Log(), HasSubstr("user=<alice>, method=PLAIN"));
}

TEST_F(RealMailbox, ApopLoginSendsNoPassword) {
    PopServer pop;
    const SmtpServer smtp;
    Forwarding forwarding(pop, smtp.PlainPort());
    forwarding.Profile().setting.apop = 1;
    const GeneratedMail mail = MakeMail("jis", 1, 4096);
    pop.Deliver(kAlice, mail);

    const std::string log = forwarding.Run();

    EXPECT_EQ(Texts(smtp.WaitForMails(1)), Texts(std::vector{mail}));
    EXPECT_THAT(log, HasSubstr("APOP \r\n+OK"));
    EXPECT_THAT(log, Not(HasSubstr("PASS ")));
    EXPECT_THAT(pop.Log(), HasSubstr("user=<alice>, method=APOP"));
}

TEST_F(RealMailbox, WrongPasswordIsRefusedAndTheMailComesWithTheRightOne) {
    for (int apop : {0, 1}) {
        PopServer pop;
        const SmtpServer smtp;
        Forwarding forwarding(pop, smtp.PlainPort());
        forwarding.Profile().setting.apop = apop;
        forwarding.Profile().setting.poppassword = "wrong";
        const GeneratedMail mail = MakeMail("ascii", 1, 4096);
        pop.Deliver(kAlice, mail);

        const std::string refused = forwarding.Run();
        EXPECT_THAT(refused, HasSubstr("-ERR [AUTH] Authentication failed."));
        EXPECT_THAT(refused, HasSubstr(std::string("* POP Process error : ") + kSender));
        EXPECT_THAT(refused, Not(HasSubstr("MAIL FROM")));

        forwarding.Profile().setting.poppassword = kAlice.password;
        forwarding.Run();
        EXPECT_EQ(Texts(smtp.WaitForMails(1)), Texts(std::vector{mail}));
    }
}

TEST_F(RealMailbox, SecondRunSendsNothingAndThirdOnlyTheNewMail) {
    PopServer pop;
    const SmtpServer smtp;
    Forwarding forwarding(pop, smtp.PlainPort());
    std::vector<GeneratedMail> mails = MakeOrdinaryMails(24, 3000);
    pop.Deliver(kAlice, mails);

    EXPECT_EQ(CountOf(forwarding.Run(), " received\r\n"), 24);
    EXPECT_THAT(forwarding.Uidls(), SizeIs(24));

    const std::string second = forwarding.Run();
    EXPECT_THAT(second, HasSubstr("You have no mail to Forward"));
    EXPECT_EQ(CountOf(second, "RETR "), 0);

    mails.push_back(MakeMail("alternative_jis", 25, 3000));
    pop.Deliver(kAlice, mails.back());
    const std::string third = forwarding.Run();
    EXPECT_EQ(CountOf(third, "RETR "), 1);
    EXPECT_THAT(third, HasSubstr("RETR 25\r\n"));
    EXPECT_THAT(forwarding.Uidls(), SizeIs(25));

    EXPECT_EQ(Texts(smtp.WaitForMails(25)), Texts(mails));
    EXPECT_EQ(pop.Count(kAlice), 25);
}

TEST_F(RealMailbox, DeletesOnlyInTheRunAfterTheDelivery) {
    PopServer pop;
    const SmtpServer smtp;
    Forwarding forwarding(pop, smtp.PlainPort());
    forwarding.Profile().setting.deletemail = 1;
    const std::vector<GeneratedMail> first = MakeOrdinaryMails(3, 3000);
    pop.Deliver(kAlice, first);

    EXPECT_EQ(CountOf(forwarding.Run(), "DELE "), 0);
    EXPECT_EQ(pop.Count(kAlice), 3);

    std::vector<GeneratedMail> all = first;
    all.push_back(MakeMail("ascii", 4, 3000));
    pop.Deliver(kAlice, all.back());
    const std::string second = forwarding.Run();
    EXPECT_EQ(CountOf(second, "DELE "), 3);
    EXPECT_EQ(CountOf(second, "RETR "), 1);
    EXPECT_EQ(pop.Count(kAlice), 1);
    EXPECT_THAT(forwarding.Uidls(), SizeIs(1));

    EXPECT_EQ(CountOf(forwarding.Run(), "DELE "), 1);
    EXPECT_EQ(pop.Count(kAlice), 0);
    EXPECT_THAT(forwarding.Uidls(), IsEmpty());
    EXPECT_EQ(Texts(smtp.WaitForMails(4)), Texts(all));
}

TEST_F(RealMailbox, IdsOfMailThatSomebodyElseRemovedAreForgotten) {
    PopServer pop;
    const SmtpServer smtp;
    Forwarding forwarding(pop, smtp.PlainPort());
    pop.Deliver(kAlice, MakeOrdinaryMails(3, 3000));
    forwarding.Run();
    const std::vector<std::string> before = forwarding.Uidls();
    ASSERT_THAT(before, SizeIs(3));

    pop.Remove(kAlice, 2);
    forwarding.Run();
    EXPECT_THAT(forwarding.Uidls(), ElementsAre(before[0], before[2]));
}

TEST_F(RealMailbox, TwoAddressesEachReceiveEachMessageOnce) {
    PopServer pop;
    const SmtpServer smtp;
    Forwarding forwarding(pop, smtp.PlainPort());
    const std::vector<GeneratedMail> mails = MakeOrdinaryMails(8, 3000);
    pop.Deliver(kAlice, mails);
    forwarding.Run();
    // A second address later on receives what is still there, and the first one nothing again.
    forwarding.AddAddress("\"Tablet\" <" + std::string(kTablet) + "> (at home)");
    const GeneratedMail late = MakeMail("ascii", 9, 3000);
    pop.Deliver(kAlice, late);
    forwarding.Run();

    std::vector<ArrivedMail> phone;
    std::vector<ArrivedMail> tablet;
    for (const ArrivedMail& mail : smtp.WaitForMails(18)) {
        EXPECT_EQ(mail.sender, kSender);
        ASSERT_TRUE(mail.recipient == kPhone || mail.recipient == kTablet) << mail.recipient;
        (mail.recipient == kPhone ? phone : tablet).push_back(mail);
    }
    std::vector<GeneratedMail> all = mails;
    all.push_back(late);
    EXPECT_EQ(Texts(phone), Texts(all));
    EXPECT_EQ(Texts(tablet), Texts(all));
    EXPECT_EQ(forwarding.Uidls(0).size(), 9U);
    EXPECT_EQ(forwarding.Uidls(1).size(), 9U);
}

TEST(RealLargeMailbox, TenThousandMessagesThenNothingNewThenOneNew) {
    for (const std::string& reason : {PopServer::Missing(), SmtpSink::Missing()}) {
        if (!reason.empty()) GTEST_SKIP() << reason;
    }
    PopServer pop;
    const SmtpSink sink;
    Forwarding forwarding(pop, sink.Port());
    pop.Deliver(kAlice, MakeOrdinaryMails(10'000, 0));

    EXPECT_EQ(CountOf(forwarding.Run(), " received\r\n"), 10'000);
    EXPECT_TRUE(WaitUntil([&] { return sink.Messages() == 10'000; })) << sink.Messages();
    EXPECT_THAT(forwarding.Uidls(), SizeIs(10'000));

    EXPECT_THAT(forwarding.Run(), HasSubstr("You have no mail to Forward"));
    EXPECT_EQ(sink.Messages(), 10'000);

    pop.Deliver(kAlice, MakeMail("ascii", 10'001, 4096));
    const std::string third = forwarding.Run();
    EXPECT_EQ(CountOf(third, "RETR "), 1);
    EXPECT_THAT(third, HasSubstr("RETR 10001\r\n"));
    EXPECT_TRUE(WaitUntil([&] { return sink.Messages() == 10'001; })) << sink.Messages();
    EXPECT_THAT(forwarding.Uidls(), SizeIs(10'001));
}

}  // namespace
}  // namespace tarvex::testing
