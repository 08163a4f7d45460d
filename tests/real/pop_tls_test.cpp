// POP3 over TLS to a real server by the host alone: from the first byte, and by STLS.

#include <gmock/gmock.h>

#include "tests/real/servers/servers_fixture.h"

namespace tarvex::testing {
namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

struct Way {
    int pop_tls;
    std::string name;
    int Port(const PopServer& pop) const { return pop_tls == 1 ? pop.TlsPort() : pop.Port(); }
};

void PrintTo(const Way& way, std::ostream* out) { *out << way.name; }

// A run changes that alone.
std::string WithoutLastTime(std::string settings) {
    const std::size_t begin = settings.find("[lasttime]");
    return settings.erase(begin, settings.find("\r\n\r\n", begin) - begin);
}

class RealPopTls : public RealServersTest, public ::testing::WithParamInterface<Way> {
protected:
    void Prepare(Forwarding& forwarding, const std::string& authority) const {
        forwarding.Profile().setting.popserver = "localhost";
        forwarding.Profile().SaveSetting();
        WriteFile(forwarding.RootDirectory() + "/host.def", "[pop_tls]\r\n" + std::to_string(GetParam().pop_tls) +
                                                                "\r\n\r\n[tls_authority]\r\n" + authority + "\r\n");
    }

    const std::vector<GeneratedMail> mails_ = MakeOrdinaryMails(20, 20'000);
};

TEST_P(RealPopTls, HostFetchesThroughIt) {
    PopServer pop(TlsOptions{.names = {"localhost"}});
    pop.Deliver(kAlice, mails_);
    const SmtpServer smtp;
    Forwarding forwarding(GetParam().Port(pop), smtp.PlainPort());
    Prepare(forwarding, pop.CaFile());

    const std::string log = forwarding.RunHost();

    EXPECT_EQ(Texts(smtp.WaitForMails(mails_.size())), Texts(mails_)) << log << pop.Log();
    EXPECT_THAT(log, HasSubstr("connecting.. localhost"));
    EXPECT_THAT(pop.Log(), AllOf(HasSubstr("Login:"), HasSubstr(", TLS")));
    EXPECT_THAT(forwarding.TellHost({"check", "--no-dns"}).output,
                ContainsRegex("certificate for localhost, 127.0.0.1, (29|30) days left"));
}

// The profile names no SMTP server: the tree has one for all, with a login, and TLS likewise.
TEST_P(RealPopTls, PasswordsGoThroughTlsToBothServersAndTheSettingsStay) {
    PopServer pop(TlsOptions{.names = {"localhost"}});
    pop.Deliver(kAlice, mails_);
    const SmtpServer smtp;
    Forwarding forwarding(GetParam().Port(pop), 25);
    forwarding.Profile().setting.smtpserver.clear();
    Prepare(forwarding, pop.CaFile());
    WriteFile(forwarding.RootDirectory() + "/password", kBob.password + '\n');
    const int port = GetParam().pop_tls == 1 ? smtp.TlsPort() : smtp.AuthPort();
    const Finished set = forwarding.TellHost(
        {"rules", "set", "--smtpserver", "localhost", "--smtpport", std::to_string(port), "--sslsmtp",
         GetParam().pop_tls == 1 ? "tls" : "starttls", "--smtpauth", "on", "--smtpuser", kBob.user,
         "--smtp-password-file", forwarding.RootDirectory() + "/password"});
    ASSERT_EQ(set.status, 0) << set.output;
    const std::string file = forwarding.RootDirectory() + "/user0/from0/popprofile.def";
    const std::string before = ReadFile(file);

    const std::string log = forwarding.RunHost({"SSL_CERT_FILE=" + smtp.CaFile()});

    const std::vector<ArrivedMail> arrived = smtp.WaitForMails(mails_.size());
    EXPECT_EQ(Texts(arrived), Texts(mails_)) << log << pop.Log() << smtp.Log();
    for (const ArrivedMail& mail : arrived) EXPECT_THAT(mail.added, HasSubstr("with ESMTPSA"));
    EXPECT_THAT(smtp.Log(), HasSubstr("sasl_username=" + kBob.user));
    EXPECT_EQ(WithoutLastTime(ReadFile(file)), WithoutLastTime(before));
}

TEST_P(RealPopTls, CertificateThatHasExpiredIsToldInStatus) {
    PopServer pop(TlsOptions{.names = {"localhost"}, .expired = true});
    const SmtpServer smtp;
    Forwarding forwarding(GetParam().Port(pop), smtp.PlainPort());
    Prepare(forwarding, pop.CaFile());
    forwarding.TellHost({"run", "--quiet"});
    EXPECT_THAT(forwarding.TellHost({"status"}).output, HasSubstr("TLS: the certificate has expired"));
}

TEST_P(RealPopTls, ServerOfAnotherNameOrAuthorityNeverHearsThePassword) {
    PopServer pop(TlsOptions{.names = {"pop.example.org"}});
    const PopServer other(TlsOptions{.names = {"localhost"}});
    pop.Deliver(kAlice, mails_);
    const SmtpServer smtp;
    Forwarding forwarding(GetParam().Port(pop), smtp.PlainPort());
    for (const auto& [authority, reason] : {std::pair{pop.CaFile(), "the certificate is for another host"},
                                            std::pair{other.CaFile(), "an authority that is not trusted here"}}) {
        Prepare(forwarding, authority);
        EXPECT_THAT(forwarding.TellHost({"run", "--quiet"}).output,
                    AllOf(HasSubstr("-ERR [SYS/PERM] TLS: "), HasSubstr(reason)));
        EXPECT_THAT(forwarding.TellHost({"status"}).output, AllOf(HasSubstr("[SYS/PERM] TLS"), HasSubstr(reason)));
    }
    EXPECT_THAT(forwarding.Uidls(), IsEmpty());
    EXPECT_THAT(pop.Log(), Not(HasSubstr("Login: user=<alice>")));
}

INSTANTIATE_TEST_SUITE_P(Each, RealPopTls, ::testing::Values(Way{1, "FromTheFirstByte"}, Way{2, "ByStls"}),
                         [](const auto& way) { return way.param.name; });

}  // namespace
}  // namespace tarvex::testing
