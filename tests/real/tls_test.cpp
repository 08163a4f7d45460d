// TLS to a real SMTP server, with the system's trust store replaced by a test authority.

#include <gmock/gmock.h>
#include <stdlib.h>

#include "tests/real/servers/servers_fixture.h"

namespace tarvex::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr int kTlsFromTheFirstByte = 1;
constexpr int kStartTls = 2;

// Each test is a process of its own, so the trust store is read afresh.
void Trust(const std::string& ca_file) { setenv("SSL_CERT_FILE", ca_file.c_str(), 1); }

struct Security {
    int mode;
    std::string name;
    int Port(const SmtpServer& smtp) const { return mode == kTlsFromTheFirstByte ? smtp.TlsPort() : smtp.AuthPort(); }
};

void PrintTo(const Security& value, std::ostream* out) { *out << value.name; }

class RealTls : public RealServersTest, public ::testing::WithParamInterface<Security> {
protected:
    void Prepare(const PopServer& pop, const SmtpServer& smtp) {
        forwarding_ = std::make_unique<Forwarding>(pop, GetParam().Port(smtp));
        CPopProfileSetting& setting = forwarding_->Profile().setting;
        setting.smtpserver = "localhost";
        setting.sslsmtp = GetParam().mode;
        setting.smtpauth = 1;
    }

    void ExpectRefused(const std::string& log, const std::string& reason) const {
        EXPECT_THAT(log, HasSubstr(reason));
        EXPECT_THAT(log, HasSubstr("\t!!Connect error\r\n* SMTP Process - error to create socket : "));
        EXPECT_THAT(log, Not(HasSubstr("MAIL FROM")));
        EXPECT_THAT(forwarding_->Uidls(), IsEmpty());
    }

    std::unique_ptr<Forwarding> forwarding_;
    const std::vector<GeneratedMail> mails_ = MakeOrdinaryMails(8, 20'000);
};

TEST_P(RealTls, DeliversThroughIt) {
    PopServer pop;
    pop.Deliver(kAlice, mails_);
    const SmtpServer smtp;
    Trust(smtp.CaFile());
    Prepare(pop, smtp);

    const std::string log = forwarding_->Run();

    EXPECT_EQ(Texts(smtp.WaitForMails(8)), Texts(mails_)) << log;
    for (const ArrivedMail& mail : smtp.WaitForMails(8)) {
        EXPECT_THAT(mail.added, HasSubstr("with ESMTPSA"));  // TLS, and authenticated
    }
}

TEST_P(RealTls, ServerKnownByItsAddress) {
    PopServer pop;
    pop.Deliver(kAlice, mails_);
    const SmtpServer smtp;
    Trust(smtp.CaFile());
    Prepare(pop, smtp);
    forwarding_->Profile().setting.smtpserver = "127.0.0.1";
    forwarding_->Run();
    EXPECT_EQ(Texts(smtp.WaitForMails(8)), Texts(mails_));
}

TEST_P(RealTls, UnknownAuthorityIsRefusedAndTheMailComesWhenItIsTrusted) {
    PopServer pop;
    pop.Deliver(kAlice, mails_);
    const SmtpServer smtp;
    Trust(smtp.OtherCaFile());
    Prepare(pop, smtp);
    ExpectRefused(forwarding_->Run(), "certificate: unable to get local issuer certificate");

    forwarding_->RunHost({"SSL_CERT_FILE=" + smtp.CaFile()});
    EXPECT_EQ(Texts(smtp.WaitForMails(8)), Texts(mails_));
}

TEST_P(RealTls, WrongNameIsRefusedAndTheMailComesUnderTheRightOne) {
    PopServer pop;
    pop.Deliver(kAlice, mails_);
    SmtpServer::Options options;
    options.certificate.names = {"mail.example.test"};
    const SmtpServer smtp(options);  // known as mail.example.test and by its address
    Trust(smtp.CaFile());
    Prepare(pop, smtp);
    ExpectRefused(forwarding_->Run(), "certificate: hostname mismatch");

    forwarding_->Profile().setting.smtpserver = "127.0.0.1";
    forwarding_->Run();
    EXPECT_EQ(Texts(smtp.WaitForMails(8)), Texts(mails_));
}

INSTANTIATE_TEST_SUITE_P(Each, RealTls,
                         ::testing::Values(Security{kTlsFromTheFirstByte, "FromTheFirstByte"},
                                           Security{kStartTls, "StartTls"}),
                         [](const auto& security) { return security.param.name; });

class RealTlsMissing : public RealServersTest {};

TEST_F(RealTlsMissing, ServerWithoutStartTlsIsNeverUsedInPlain) {
    PopServer pop;
    const GeneratedMail mail = MakeMail("ascii", 1, 4096);
    pop.Deliver(kAlice, mail);
    const SmtpServer smtp;
    Trust(smtp.CaFile());
    Forwarding forwarding(pop, smtp.PlainPort());
    forwarding.Profile().setting.sslsmtp = kStartTls;

    const std::string log = forwarding.Run();
    EXPECT_THAT(log, HasSubstr("\t!!Connect error"));
    EXPECT_THAT(log, Not(HasSubstr("MAIL FROM")));

    forwarding.Profile().setting.smtpserver = "localhost";
    forwarding.Profile().setting.smtpport = smtp.AuthPort();
    forwarding.Profile().setting.smtpauth = 1;
    forwarding.Run();
    EXPECT_EQ(Texts(smtp.WaitForMails(1)), Texts(std::vector{mail}));
}

}  // namespace
}  // namespace tarvex::testing
