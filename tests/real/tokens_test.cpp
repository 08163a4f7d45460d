// Logins with tokens at real servers, by the host alone: Dovecot's POP3 behind TLS and by STLS, Postfix with Dovecot's
// authentication from the first byte and by STARTTLS.

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>

#include "tests/real/servers/servers_fixture.h"

namespace tarvex::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

struct TokenForm {
    int login;  // pop_login and smtp_login
    int tls;    // pop_tls and sslsmtp
    std::string name;
};

void PrintTo(const TokenForm& form, std::ostream* out) { *out << form.name; }

class RealTokens : public RealServersTest, public ::testing::WithParamInterface<TokenForm> {
protected:
    // Both servers are reached by a name of their certificates, which one authority has signed each.
    void Prepare(Forwarding& forwarding, const PopServer& pop, const SmtpServer& smtp, const std::string& token) const {
        const std::string folder = forwarding.RootDirectory();
        CPopProfileSetting& setting = forwarding.Profile().setting;
        setting.popserver = setting.smtpserver = "localhost";
        setting.popport = GetParam().tls == 1 ? pop.TlsPort() : pop.Port();
        setting.smtpport = GetParam().tls == 1 ? smtp.TlsPort() : smtp.AuthPort();
        setting.sslsmtp = GetParam().tls;
        setting.smtpauth = 1;
        setting.poppassword = "is sent to nobody";
        forwarding.Profile().SaveSetting();
        WriteFile(folder + "/ca.pem", ReadFile(pop.CaFile()) + ReadFile(smtp.CaFile()));
        WriteFile(folder + "/token", token + '\n');
        const std::string login = std::to_string(GetParam().login);
        WriteFile(folder + "/host.def", "[pop_tls]\n" + std::to_string(GetParam().tls) + "\n[pop_login]\n" + login +
                                            "\n[smtp_login]\n" + login + "\n[tls_authority]\n" + folder +
                                            "/ca.pem\n[token_command]\n" + PrintingOf(folder + "/token") + '\n');
    }

    // A command that prints the file.
    static std::string PrintingOf(std::string file) {
        if (!HostCommand().back().ends_with(".exe")) return "cat " + file;
        std::ranges::replace(file, '/', '\\');
        return "cmd /c type " + file;
    }

    const std::vector<GeneratedMail> mails_ = MakeOrdinaryMails(5, 2'000);
};

TEST_P(RealTokens, LogInToBothServers) {
    PopServer pop(TlsOptions{.names = {"localhost"}});
    pop.Deliver(kAlice, mails_);
    const SmtpServer smtp(SmtpServer::Options{.certificate = {.names = {"localhost"}}, .tokens = true});
    Forwarding forwarding(pop.Port(), smtp.AuthPort());
    const std::string token = MakeToken(kAlice.user, 600);
    Prepare(forwarding, pop, smtp, token);

    const std::string log = forwarding.RunHost();

    EXPECT_EQ(Texts(smtp.WaitForMails(mails_.size())), Texts(mails_)) << log << pop.Log() << smtp.Log();
    EXPECT_THAT(log, Not(HasSubstr(token)));
    const std::string method = GetParam().login == 1 ? "XOAUTH2" : "OAUTHBEARER";
    EXPECT_THAT(pop.Log(), HasSubstr("Login: user=<alice>, method=" + method));
    EXPECT_THAT(smtp.Log(), HasSubstr("sasl_method=" + method + ", sasl_username=alice"));
    const std::string check = forwarding.TellHost({"check", "--no-dns"}).output;
    EXPECT_THAT(check, Not(HasSubstr("FAILED")));
    EXPECT_THAT(check, HasSubstr("certificate for localhost"));
}

TEST_P(RealTokens, OfSomebodyElseOrOutOfDateAreRefusedInPlainWords) {
    PopServer pop(TlsOptions{.names = {"localhost"}});
    pop.Deliver(kAlice, mails_);
    const SmtpServer smtp(SmtpServer::Options{.certificate = {.names = {"localhost"}}, .tokens = true});
    Forwarding forwarding(pop.Port(), smtp.AuthPort());
    for (const std::string& token : {MakeToken(kAlice.user, -60), MakeToken(kBob.user, 600)}) {
        Prepare(forwarding, pop, smtp, token);
        const std::string check = forwarding.TellHost({"check", "--no-dns"}).output;
        EXPECT_THAT(check, AllOf(HasSubstr("FAILED  -ERR [AUTH]"), HasSubstr("FAILED  535 5.7.8"))) << pop.Log();
    }
    EXPECT_THAT(forwarding.TellHost({"run", "--quiet"}).output, HasSubstr("-ERR [AUTH]"));
    EXPECT_THAT(forwarding.Uidls(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Each, RealTokens,
                         ::testing::Values(TokenForm{1, 1, "XOAuth2FromTheFirstByte"},
                                           TokenForm{1, 2, "XOAuth2ByStartTls"},
                                           TokenForm{2, 1, "OAuthBearerFromTheFirstByte"},
                                           TokenForm{2, 2, "OAuthBearerByStartTls"}),
                         [](const auto& form) { return form.param.name; });

}  // namespace
}  // namespace tarvex::testing
