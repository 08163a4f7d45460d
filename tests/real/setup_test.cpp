// `tarvex setup` on a terminal, with real servers that it finds by itself: from nothing to the first forwarded mail.

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>

#include "testing/child_process.h"
#include "testing/dns_server.h"
#include "tests/real/servers/servers_fixture.h"
#include "tests/support/conversing.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using Words = std::vector<std::string>;

constexpr const char* kMailbox = "alice@localhost";
constexpr std::size_t kQuestions = 5;

struct Way {
    std::string name;
    std::string mailbox_service;
    std::string relay_service;
    std::string words;  // of the summary
    bool upgrades;
};

void PrintTo(const Way& way, std::ostream* out) { *out << way.name; }

class RealSetup : public RealServersTest, public ::testing::WithParamInterface<Way> {
protected:
    ChildProcess Start(const Words& words, ChildProcess::Output output, const std::string& authority) const {
        Words all = HostCommand();
        all.insert(all.end(), words.begin(), words.end());
        return ChildProcess(all, output,
                            Words{"HOME=" + home_.String(), "XDG_CONFIG_HOME=" + (home_ / "config"),
                                  "XDG_DATA_HOME=" + (home_ / "data"), "SSL_CERT_FILE=" + authority});
    }

    TempDir home_;
};

TEST_P(RealSetup, TakesFiveQuestionsFromNothingToTheFirstForwardedMail) {
    PopServer pop(TlsOptions{.names = {"localhost"}});
    const SmtpServer smtp;
    pop.Deliver(kAlice, MakeOrdinaryMails(3, 3000));
    DnsServer dns;
    const auto port = [](int number) { return static_cast<unsigned short>(number); };
    const bool upgrades = GetParam().upgrades;
    dns.Add(GetParam().mailbox_service + "._tcp.localhost",
            ServiceRecordOf(0, 0, port(upgrades ? pop.Port() : pop.TlsPort()), "localhost"));
    dns.Add(GetParam().relay_service + "._tcp.localhost",
            ServiceRecordOf(0, 0, port(upgrades ? smtp.AuthPort() : smtp.TlsPort()), "localhost"));

    ChildProcess setup = Start({"setup", "--dns", dns.Address(), "--tls_authority", pop.CaFile()},
                               ChildProcess::Output::Dialogue, smtp.CaFile());
    const Dialogue answers{{"Mail address:", kMailbox},
                           {"Password:", kAlice.password},
                           {"Forward to", kPhone},
                           {"Write this?", ""},
                           {std::string("Did it arrive at ") + kPhone, "y"}};
    ASSERT_EQ(answers.size(), kQuestions);
    ASSERT_NO_FATAL_FAILURE(Converse(setup, answers));
    setup.Wait();  // it asks nothing more
    ASSERT_EQ(setup.ExitCode(), 0) << setup.Printed();
    EXPECT_THAT(setup.Printed(), AllOf(HasSubstr("Logged in as alice: 3 messages."), HasSubstr(GetParam().words),
                                       HasSubstr("not the 3 messages in the mailbox"), HasSubstr("log in"),
                                       HasSubstr("user0/from0 is set up"), Not(HasSubstr(kAlice.password))));
    EXPECT_THAT(pop.Log(), HasSubstr(", TLS"));
    const std::vector<ArrivedMail> tests = smtp.WaitForMails(1);
    ASSERT_THAT(tests, SizeIs(1));
    EXPECT_EQ(tests[0].recipient, kPhone);
    EXPECT_EQ(tests[0].sender, kMailbox);
    EXPECT_THAT(tests[0].text, HasSubstr("Subject: Tarvex test mail\r\n"));
    EXPECT_THAT(tests[0].added, HasSubstr("with ESMTPSA"));

    const GeneratedMail fresh = MakeMail("ascii", 77, 3000);
    pop.Deliver(kAlice, fresh);
    ChildProcess service = Start({"serve", "--every", "0.2"}, ChildProcess::Output::Together, smtp.CaFile());
    const std::vector<ArrivedMail> mails = smtp.WaitForMails(2);
    ASSERT_THAT(mails, SizeIs(2)) << service.Printed();
    EXPECT_THAT(Texts(mails), ::testing::Contains(Texts(std::vector{fresh}).front()));
    service.Signal(SIGTERM);
    EXPECT_TRUE(service.WaitFor(20s));
}

INSTANTIATE_TEST_SUITE_P(Each, RealSetup,
                         ::testing::Values(Way{"FromTheFirstByte", "_pop3s", "_submissions", " with TLS", false},
                                           Way{"ByUpgrade", "_pop3", "_submission", " with STARTTLS", true}),
                         [](const auto& way) { return way.param.name; });

TEST_F(RealSetup, PasswordOfAnotherIsAskedForAgainAndThenAScriptAddsASecondProfile) {
    PopServer pop(TlsOptions{.names = {"localhost"}});
    const SmtpServer smtp;
    const DnsServer dns;
    const Words servers{"--dns",
                        dns.Address(),
                        "--popserver",
                        "localhost",
                        "--popport",
                        std::to_string(pop.TlsPort()),
                        "--smtpserver",
                        "localhost",
                        "--smtpport",
                        std::to_string(smtp.TlsPort()),
                        "--tls_authority",
                        pop.CaFile(),
                        "--to",
                        kPhone,
                        "--no-service",
                        "--all-mail",
                        "--text",
                        "500",
                        "--when",
                        "mon-sun",
                        "--timer",
                        "5"};
    Words words{"setup", "a@example.test", "--popuser", "alice"};
    words.insert(words.end(), servers.begin(), servers.end());
    ChildProcess setup = Start(words, ChildProcess::Output::Dialogue, smtp.CaFile());
    ASSERT_NO_FATAL_FAILURE(Converse(setup, {{"Password:", "wrong"},
                                             {"uthentication failed", {}},
                                             {"Password:", kAlice.password},
                                             {"Write this?", "yes"},
                                             {"Did it arrive", "yes"}}));
    setup.Wait();
    ASSERT_EQ(setup.ExitCode(), 0) << setup.Printed();

    WriteFile(home_ / "password", kBob.password + "\n");
    words = {"setup", "b@example.test", "--popuser", "bob", "--password-file", home_ / "password", "--yes"};
    words.insert(words.end(), servers.begin(), servers.end());
    ChildProcess script = Start(words, ChildProcess::Output::Pipe, smtp.CaFile());
    script.Wait();
    EXPECT_EQ(script.ExitCode(), 0) << script.Printed();
    EXPECT_EQ(script.Errors(), "");
    EXPECT_THAT(smtp.WaitForMails(2), SizeIs(2));
    const std::string tree = home_ / "data/tarvex";
    EXPECT_THAT(ReadFile(tree + "/user0/from1/popprofile.def"),
                AllOf(HasSubstr("b@example.test"), HasSubstr("[timer]\r\n5")));
    EXPECT_THAT(ReadFile(tree + "/user0/from1/forwardto0/forwardaddress.def"), HasSubstr("[textonly]\r\n500"));
    EXPECT_THAT(ReadFile(tree + "/user0/from1/forwardto0/schedule.def"), Not(IsEmpty()));
    EXPECT_THAT(ReadFile(tree + "/user0/from1/host.def"), HasSubstr("[pop_tls]\r\n1"));
}

}  // namespace
}  // namespace tarvex::testing
