// What arrives is what was fetched, byte for byte.

#include <gmock/gmock.h>

#include <map>

#include "platform/net/sockets.h"
#include "tests/real/servers/servers_fixture.h"

namespace tarvex::testing {
namespace {

using ::testing::StartsWith;

// Every kind, the ordinary ones small and large.
std::vector<GeneratedMail> AllKinds() {
    std::vector<GeneratedMail> mails = MakeOrdinaryMails(16, 4096);
    for (const GeneratedMail& mail : MakeOrdinaryMails(8, 200'000, 17)) mails.push_back(mail);
    for (const GeneratedMail& mail : MakeAwkwardMails(25)) mails.push_back(mail);
    return mails;
}

// A message that does not end in a line end gets one on the way, since each protocol carries lines.
std::string AsFetched(const GeneratedMail& mail) {
    return mail.text.ends_with("\r\n") ? mail.text : mail.text + "\r\n";
}

std::string Unstuffed(const std::string& text) {
    std::string plain = text;
    for (std::size_t at = 0; (at = plain.find("\r\n.", at)) != std::string::npos; at += 2) plain.erase(at + 2, 1);
    return plain;
}

TEST(RealFidelity, PopSocketFetchesEachMessageByteForByte) {
    if (const std::string reason = PopServer::Missing(); !reason.empty()) GTEST_SKIP() << reason;
    PopServer pop;
    const std::vector<GeneratedMail> mails = AllKinds();
    pop.Deliver(kAlice, mails);

    CPopSocket socket;
    ASSERT_NE(socket.Create(0, 1, nullptr), 0);
    ASSERT_THAT(socket.PopConnect("127.0.0.1", pop.Port()), StartsWith("+OK"));
    ASSERT_THAT(socket.SendUser(kAlice.user), StartsWith("+OK"));
    ASSERT_THAT(socket.SendPassWord(kAlice.password), StartsWith("+OK"));
    for (std::size_t index = 0; index < mails.size(); ++index) {
        std::string answer;
        socket.SendRetr(std::to_string(index + 1), &answer);
        ASSERT_THAT(answer, StartsWith("+OK")) << mails[index].kind;
        ASSERT_TRUE(answer.ends_with("\r\n.\r\n")) << mails[index].kind;
        const std::size_t status_end = answer.find("\r\n");
        const std::string lines = Unstuffed(answer.substr(status_end, answer.size() - status_end - 3));
        EXPECT_EQ(lines.substr(2), AsFetched(mails[index])) << mails[index].kind;
    }
    EXPECT_THAT(socket.SendQuit(), StartsWith("+OK"));
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}

// What Postfix changes; everything else arrives as it is. (A message without a header arrives with its empty first
// line: that is taken off before the message is sent, and Postfix sets one between its own header lines and the body.)
std::string AsArrived(const GeneratedMail& mail) {
    std::string fetched = AsFetched(mail);
    // Postfix makes a header field of a line that an mbox file would begin a message with.
    if (mail.kind == "mailbox_line") return "X-Mailbox-Line: " + fetched;
    // Postfix takes out blanks before the colon of a header field.
    if (mail.kind == "odd_headers") return Replaced(fetched, "\r\nX-Odd : ", "\r\nX-Odd: ");
    return fetched;
}

class RealWholeWay : public RealServersTest {
protected:
    void SetUp() override {
        RealServersTest::SetUp();
        if (!IsSkipped()) mails_ = AllKinds();
    }

    // The arrived messages by what makes each unique among the generated ones: its text. Reports the kind of each that
    // is missing, and the length of those that nobody sent.
    void ExpectAllArrived(const std::vector<ArrivedMail>& arrived) const {
        std::map<std::string, int> left;
        for (const ArrivedMail& mail : arrived) ++left[mail.text];
        for (const GeneratedMail& mail : mails_) {
            const auto found = left.find(AsArrived(mail));
            if (found == left.end()) {
                ADD_FAILURE() << mail.kind << " (" << mail.text.size() << " bytes) did not arrive as it was sent";
            } else if (--found->second == 0) {
                left.erase(found);
            }
        }
        for (const auto& [text, count] : left) {
            ADD_FAILURE() << "nobody sent, " << count << " times: " << text.substr(0, 2000);
        }
    }

    std::vector<GeneratedMail> mails_;
};

TEST_F(RealWholeWay, EveryMessageArrivesByteForByte) {
    PopServer pop;
    const SmtpServer smtp;
    Forwarding forwarding(pop, smtp.PlainPort());
    pop.Deliver(kAlice, mails_);
    forwarding.Run();
    ExpectAllArrived(smtp.WaitForMails(mails_.size()));
}

TEST_F(RealWholeWay, EveryMessageArrivesByteForByteThroughTls) {
    PopServer pop;
    const SmtpServer smtp;
    setenv("SSL_CERT_FILE", smtp.CaFile().c_str(), 1);
    Forwarding forwarding(pop, smtp.TlsPort());
    forwarding.Profile().setting.sslsmtp = 1;
    forwarding.Profile().setting.smtpauth = 1;
    pop.Deliver(kAlice, mails_);
    forwarding.Run();
    ExpectAllArrived(smtp.WaitForMails(mails_.size()));
}

TEST_F(RealWholeWay, EveryMessageArrivesByteForByteByTheHost) {
    PopServer pop;
    const SmtpServer smtp;
    Forwarding forwarding(pop, smtp.PlainPort());
    pop.Deliver(kAlice, mails_);
    forwarding.RunHost();
    ExpectAllArrived(smtp.WaitForMails(mails_.size()));
    EXPECT_THAT(forwarding.RunHost(), ::testing::HasSubstr("You have no mail to Forward"));
    EXPECT_EQ(smtp.WaitForMails(mails_.size()).size(), mails_.size());
}

// With two addresses a message goes out once for both.
TEST_F(RealWholeWay, OneTransactionForTwoAddressesArrivesTwice) {
    PopServer pop;
    const SmtpServer smtp;
    Forwarding forwarding(pop, smtp.PlainPort());
    forwarding.AddAddress(kTablet);
    for (const auto& address : forwarding.Profile().forward_addresses) address->setting.textonly = 0;
    pop.Deliver(kAlice, mails_);

    const std::string log = forwarding.Run();

    EXPECT_EQ(CountOf(log, "\r\nDATA\r\n"), static_cast<int>(mails_.size()));
    std::vector<ArrivedMail> phone;
    std::vector<ArrivedMail> tablet;
    for (const ArrivedMail& mail : smtp.WaitForMails(mails_.size() * 2)) {
        (mail.recipient == kPhone ? phone : tablet).push_back(mail);
    }
    ExpectAllArrived(phone);
    ExpectAllArrived(tablet);
}

// SMTP knows no bare CR and no bare LF: a message that holds one arrives with a line end in its place, and whatever
// follows it cannot end the message early.
TEST_F(RealWholeWay, BareCarriageReturnsArriveAsLineEnds) {
    PopServer pop;
    const SmtpServer smtp;
    Forwarding forwarding(pop, smtp.PlainPort());
    pop.Deliver(kAlice, GeneratedMail{1, "bare_cr", "Subject: bare\r\n\r\none\rtwo\r.\rthree\r\r.\r\nend\r\n"});
    forwarding.Run();
    const std::vector<ArrivedMail> arrived = smtp.WaitForMails(1);
    ASSERT_EQ(arrived.size(), 1U);
    EXPECT_EQ(arrived[0].text, "Subject: bare\r\n\r\none\r\ntwo\r\n.\r\nthree\r\n\r\n.\r\nend\r\n");
}

}  // namespace
}  // namespace tarvex::testing
