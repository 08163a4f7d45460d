// `tarvex setup` on a terminal and in scripts, against servers that follow the test: what is asked again, what ends it,
// and what is left behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "host/service/service_starter.h"
#include "host/tokens/login_speaker.h"
#include "testing/dns_server.h"
#include "testing/scripted_server.h"
#include "tests/host/tokens/posix/authorization_server.h"
#include "tests/support/conversing.h"
#include "tests/support/environment.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using Words = std::vector<std::string>;
using Output = ChildProcess::Output;

constexpr const char* kMailbox = "me@localhost";
constexpr const char* kPassword = "open sesame";

// A mailbox that holds two messages, and a relay, both with TLS, for one login.
class Provider {
public:
    std::string capabilities = "USER\r\n";
    std::string user = kMailbox;
    bool takes_mail = true;

    int MailboxPort() const { return mailbox_.Port(); }
    int RelayPort() const { return relay_.Port(); }
    const TlsIdentity& Identity() const { return identity_; }
    int Logins() const {
        const std::lock_guard lock(mutex_);
        return logins_;
    }
    int TokenLogins() const {
        const std::lock_guard lock(mutex_);
        return token_logins_;
    }
    std::string Mail() const {
        const std::lock_guard lock(mutex_);
        return mail_;
    }

private:
    void ServeMailbox(Peer& peer) {
        if (!peer.StartTls(identity_, "+OK ready\r\n")) return;
        std::string named;
        for (;;) {
            const std::string line = peer.ReadLine();
            if (line == "CAPA") peer.Send("+OK\r\n" + capabilities + ".\r\n");
            if (line.starts_with("USER ")) named = line.substr(5);
            if (line.starts_with("USER ") || line == "QUIT") peer.Send("+OK\r\n");
            if (line.starts_with("PASS ")) {
                const std::lock_guard lock(mutex_);
                ++logins_;
                const bool good = named == user && line == std::string("PASS ") + kPassword;
                peer.Send(good ? "+OK\r\n" : "-ERR [AUTH] who are you?\r\n");
            }
            if (line == "AUTH XOAUTH2") TakeToken(peer, "+ \r\n", "+OK\r\n");
            if (line == "UIDL") peer.Send("+OK\r\n1 id-1\r\n2 id-2\r\n.\r\n");
            if (line == "LIST") peer.Send("+OK\r\n1 10\r\n2 10\r\n.\r\n");
        }
    }

    void TakeToken(Peer& peer, const char* challenge, const char* welcome) {
        peer.Send(challenge);
        const std::string response = host::Base64Decoded(peer.ReadLine());
        const std::lock_guard lock(mutex_);
        token_logins_ += response == "user=" + user +
                                         "\x01"
                                         "auth=Bearer access\x01\x01"
                             ? 1
                             : 0;
        peer.Send(welcome);
    }

    void ServeRelay(Peer& peer) {
        if (!peer.StartTls(identity_, "220 ready\r\n")) return;
        for (;;) {
            const std::string line = peer.ReadLine();
            if (line.starts_with("EHLO")) {
                peer.Send("250-localhost\r\n250-AUTH PLAIN XOAUTH2\r\n250 8BITMIME\r\n");
            } else if (line == "AUTH XOAUTH2") {
                TakeToken(peer, "334 \r\n", "235 welcome\r\n");
            } else if (line == "AUTH PLAIN") {
                peer.Send("334 \r\n");
                peer.ReadLine();
                peer.Send("235 welcome\r\n");
            } else if (line.starts_with("RCPT TO") && !takes_mail) {
                peer.Send("550 5.7.1 not here\r\n");
            } else if (line == "DATA") {
                peer.Send("354 go on\r\n");
                const std::string message = peer.ReadMessage();
                const std::lock_guard lock(mutex_);
                mail_ += message;
                peer.Send("250 taken\r\n");
            } else {
                peer.Send("250 ok\r\n");
            }
        }
    }

    const TlsIdentity identity_ = MakeTlsIdentity();
    mutable std::mutex mutex_;
    int logins_ = 0;
    int token_logins_ = 0;
    std::string mail_;
    ScriptedServer mailbox_{[this](Peer& peer) { ServeMailbox(peer); }};
    ScriptedServer relay_{[this](Peer& peer) { ServeRelay(peer); }};
};

class SettingUp : public ::testing::Test {
protected:
    SettingUp() {
        WriteFile(home_ / "ca.pem", provider_.Identity().ca_certificate);
        Name("localhost", provider_.MailboxPort(), provider_.RelayPort());
    }

    void Name(const std::string& domain, int pop_port, int smtp_port) {
        const auto add = [&](const std::string& service, int port) {
            dns_.Add(service + "._tcp." + domain,
                     ServiceRecordOf(0, 0, static_cast<unsigned short>(port), "localhost"));
        };
        add("_pop3s", pop_port);
        add("_submissions", smtp_port);
    }

    std::unique_ptr<ChildProcess> Start(const Words& words, Output output = Output::Dialogue) const {
        Words all{TARVEX_HOST, "setup", "--dns", dns_.Address(), "--tls_authority", home_ / "ca.pem"};
        all.insert(all.end(), words.begin(), words.end());
        return std::make_unique<ChildProcess>(
            all, output,
            Words{"HOME=" + home_.String(), "XDG_CONFIG_HOME=" + (home_ / "config"),
                  "XDG_DATA_HOME=" + (home_ / "data"), "SSL_CERT_FILE=" + (home_ / "ca.pem")});
    }

    // What it prints, errors last.
    std::string Do(const Words& words, int exit_code) const {
        const auto command = Start(words, Output::Pipe);
        command->Wait();
        EXPECT_EQ(command->ExitCode(), exit_code) << command->Printed() << command->Errors();
        return command->Printed() + command->Errors();
    }

    std::string Talk(const Words& words, const Dialogue& answers, int exit_code) const {
        const auto command = Start(words);
        Converse(*command, answers);
        command->Wait();
        EXPECT_EQ(command->ExitCode(), exit_code) << command->Printed();
        return command->Printed();
    }

    Words Script(const Words& more = {}) const {
        WriteFile(home_ / "password", std::string(kPassword) + "\n");
        Words words{kMailbox, "--password-file", home_ / "password", "--to", kPhone, "--yes"};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }

    std::string Tree() const { return home_ / "data/tarvex"; }
    std::string Profile() const { return Tree() + "/user0/from0"; }
    bool IsOn() const { return ReadFile(Profile() + "/popprofile.def").find("[status]\r\n1") != std::string::npos; }

    TempDir home_;
    Provider provider_;
    DnsServer dns_;
};

TEST_F(SettingUp, WrongAnswersAreAskedForAgainWithTheReasonAndThePlanIsChangedByWords) {
    const std::string said = Talk({},
                                  {{"Mail address:", "nonsense"},
                                   {"is not a mail address", kMailbox},
                                   {"Password:", "wrong"},
                                   {"who are you?", {}},
                                   {"Password:", kPassword},
                                   {"Forward to", kMailbox},
                                   {"That is the mailbox itself", "phone@example.net, other@example.net"},
                                   {"always\r\n", "blah"},
                                   {"To change it", "text 500"},
                                   {"text of at most 500 bytes", "mon 9:00-10:00"},
                                   {"when        mon 9:00-10:00", "all"},
                                   {"all: the 2 messages", "yes"},
                                   {"Did it arrive at phone@example.net?", "what"},
                                   {"Please type y or n", "y"},
                                   {"Did it arrive at other@example.net?", "y"}},
                                  0);
    EXPECT_THAT(said, AllOf(Not(HasSubstr(kPassword)), HasSubstr("No service runs yet"), HasSubstr("serve")));
    EXPECT_TRUE(IsOn());
    EXPECT_THAT(ReadFile(Profile() + "/forwardto1/forwardaddress.def"), HasSubstr("[textonly]\r\n500"));
    EXPECT_TRUE(fs::exists(Profile() + "/forwardto1/schedule.def"));
    EXPECT_EQ(ReadFile(Profile() + "/forwardto1/uidl.def"), "");
    EXPECT_THAT(provider_.Mail(), HasSubstr("This is a test mail"));
}

TEST_F(SettingUp, ScriptIsAskedNothingAndOnlyNewMailIsForwarded) {
    provider_.user = "me";  // the second name that is tried
    const std::string said = Do(Script({"--when", "mon-fri 9:00-17:30", "--when", "sun"}), 0);
    EXPECT_THAT(said, HasSubstr("Logged in as me: 2 messages."));
    EXPECT_TRUE(IsOn());
    EXPECT_EQ(ReadFile(Profile() + "/forwardto0/uidl.def"), "id-1\r\nid-2\r\n");
    EXPECT_THAT(Do(Script(), 64), HasSubstr("has that address already"));
    Do(Script({"--again"}), 0);
    EXPECT_TRUE(fs::exists(Tree() + "/user0/from1/forwardto0"));
}

TEST_F(SettingUp, SmtpServerOfTheTreeIsUsedAndNoneIsLookedFor) {
    ChildProcess init({TARVEX_HOST, "--root", Tree(), "init"});
    init.Wait();
    ChildProcess rules({TARVEX_HOST, "--root", Tree(), "rules", "set", "--smtpserver", "localhost", "--smtpport",
                        std::to_string(provider_.RelayPort()), "--sslsmtp", "tls"});
    rules.Wait();
    ASSERT_EQ(rules.ExitCode(), 0) << rules.Errors();
    EXPECT_THAT(Do(Script(), 0), AllOf(HasSubstr("of the tree, without login"), Not(HasSubstr("  SMTP  "))));
    EXPECT_THAT(dns_.Asked(), Not(::testing::Contains("_submissions._tcp.localhost")));
    EXPECT_THAT(provider_.Mail(), HasSubstr("This is a test mail"));
    EXPECT_THAT(ReadFile(Profile() + "/popprofile.def"), HasSubstr("[smtpserver]\r\n\r\n"));
}

TEST_F(SettingUp, WithoutATerminalTheOptionThatIsMissingIsNamed) {
    EXPECT_THAT(Do({}, 64), HasSubstr("ADDRESS"));
    EXPECT_THAT(Do({kMailbox}, 64), HasSubstr("--password-file"));
    WriteFile(home_ / "password", std::string(kPassword) + "\n");
    const Words words{kMailbox, "--password-file", home_ / "password"};
    EXPECT_THAT(Do(words, 64), HasSubstr("--to"));
    EXPECT_THAT(Do({words[0], words[1], words[2], "--to", kPhone}, 64), HasSubstr("--yes"));
    EXPECT_FALSE(fs::exists(Tree()));
}

TEST_F(SettingUp, PasswordIsAskedForThreeTimesAndNothingIsWritten) {
    Talk({kMailbox},
         {{"Password:", "a"}, {"who are you?", {}}, {"Password:", "b"}, {"who are you?", {}}, {"Password:", "c"}}, 77);
    EXPECT_EQ(provider_.Logins(), 6);  // under two names each
    EXPECT_FALSE(fs::exists(Tree()));
}

TEST_F(SettingUp, NoPasswordIsAskedForWhenNoServerCanBeTrusted) {
    WriteFile(home_ / "ca.pem", MakeTlsIdentity().ca_certificate);
    EXPECT_THAT(Do(Script(), 69), AllOf(HasSubstr("No POP3 server can be used"), HasSubstr("TLS: "),
                                        HasSubstr("pop.localhost port 995"), HasSubstr("--popserver")));
    const auto dialogue = Start({kMailbox});
    ASSERT_NO_FATAL_FAILURE(Converse(
        *dialogue, {{"POP3 server (NAME", "localhost:" + std::to_string(UnusedPort())}, {"connect: ", "localhost"}}));
    dialogue->Signal(SIGINT);
    dialogue->Wait();
    EXPECT_THAT(dialogue->Printed(), Not(HasSubstr("Password")));
    EXPECT_EQ(provider_.Logins(), 0);
    EXPECT_FALSE(fs::exists(Tree()));
}

TEST_F(SettingUp, ServerOfAnotherDomainIsAskedAboutFirst) {
    Name("example.test", provider_.MailboxPort(), provider_.RelayPort());
    Words words = Script();
    words[0] = provider_.user = "me@example.test";
    EXPECT_THAT(Do(words, 77), AllOf(HasSubstr("of another domain"), HasSubstr("--accept-other-domain")));
    Talk({words[0]}, {{"Is that your provider's server?", "n"}}, 77);
    EXPECT_EQ(provider_.Logins(), 0);
    words.emplace_back("--accept-other-domain");
    Do(words, 0);
}

TEST_F(SettingUp, ServiceThatIsNotOfferedOrWantsTokensEndsIt) {
    provider_.capabilities = "SASL XOAUTH2\r\n";
    EXPECT_THAT(Do({kMailbox, "--to", kPhone, "--yes"}, 78), HasSubstr("tokens and no password"));
    dns_.Add("_pop3s._tcp.example.test", ServiceRecordOf(0, 0, 0, "."));
    EXPECT_THAT(Do({"me@example.test", "--yes"}, 69), HasSubstr("says that there is no POP3"));
}

// A provider of tokens only, described in the tree.
class SettingUpWithTokens : public SettingUp {
protected:
    void Describe(const AuthorizationServer& server) {
        provider_.capabilities = "SASL XOAUTH2\r\n";
        ChildProcess init({TARVEX_HOST, "--root", Tree(), "init"});
        init.Wait();
        fs::create_directories(Tree() + "/providers.d");
        WriteFile(Tree() + "/providers.d/p.def", server.ProviderFile());
    }
};

TEST_F(SettingUpWithTokens, LogsInAtTheProviderWithoutAPassword) {
    const AuthorizationServer server([](const ProviderRequest& request) {
        return ProviderAnswer{200, request.path == "/device"
                                       ? R"({"device_code":"d","user_code":"ABCD","verification_uri":"u","interval":1})"
                                       : R"({"access_token":"access","refresh_token":"r","expires_in":3600})"};
    });
    Describe(server);
    const std::string said =
        Talk({kMailbox}, {{"Forward to", kPhone}, {"Write this?", ""}, {"ABCD", {}}, {"Did it arrive", "y"}}, 0);
    EXPECT_THAT(said, AllOf(HasSubstr("with a token"), Not(HasSubstr("Password"))));
    EXPECT_EQ(provider_.Logins(), 0);
    EXPECT_GE(provider_.TokenLogins(), 4);  // what is in the mailbox, both checks, the test mail
    EXPECT_TRUE(IsOn());
    EXPECT_EQ(ReadFile(Profile() + "/forwardto0/uidl.def"), "id-1\r\nid-2\r\n");
}

// Ctrl-C while it is being written: the profile is there already, and the login waits for a person.
TEST_F(SettingUpWithTokens, InterruptedLoginLeavesNothingOfTheProfile) {
    const AuthorizationServer server([](const ProviderRequest& request) {
        return request.path == "/device"
                   ? ProviderAnswer{200, R"({"device_code":"d","user_code":"ABCD","verification_uri":"u"})"}
                   : ProviderAnswer{400, R"({"error":"authorization_pending"})"};
    });
    Describe(server);
    const auto dialogue = Start({kMailbox, "--to", kPhone, "--yes"});
    ASSERT_NO_FATAL_FAILURE(Converse(*dialogue, {{"Added profile", {}}, {"ABCD", {}}}));
    EXPECT_TRUE(fs::exists(Profile()));
    dialogue->Signal(SIGINT);
    dialogue->Wait();
    EXPECT_EQ(dialogue->ExitCode(), 77) << dialogue->Printed();
    EXPECT_FALSE(fs::exists(Tree() + "/user0"));
}

TEST_F(SettingUpWithTokens, LoginThatFailsLeavesNothingOfTheProfile) {
    const AuthorizationServer server([](const ProviderRequest&) {
        return ProviderAnswer{400, R"({"error":"invalid_scope"})"};
    });
    Describe(server);
    EXPECT_THAT(Do({kMailbox, "--to", kPhone, "--yes"}, 78), HasSubstr("Added profile"));
    EXPECT_FALSE(fs::exists(Tree() + "/user0"));
}

TEST_F(SettingUp, MailThatCannotBeSentOrDoesNotArriveLeavesTheProfileOff) {
    WriteFile(home_ / "password", std::string(kPassword) + "\n");
    const Words words{kMailbox, "--password-file", home_ / "password", "--to", kPhone};
    const Dialogue arrives_not{{"Write this?", ""}, {"Did it arrive", "n"}};
    EXPECT_THAT(Talk(words, arrives_not, 1), HasSubstr("--status on"));
    EXPECT_FALSE(IsOn());
    fs::remove_all(Tree());
    provider_.takes_mail = false;
    EXPECT_THAT(Do(Script(), 69), AllOf(HasSubstr("not here"), HasSubstr("--status on")));
    EXPECT_FALSE(IsOn());
}

TEST_F(SettingUp, CtrlCLeavesNothingOrTheWhole) {
    WriteFile(home_ / "password", std::string(kPassword) + "\n");
    for (const auto& [question, words] :
         {std::pair{"Mail address:", Words{}}, std::pair{"Password:", Words{kMailbox}},
          std::pair{"Write this?", Words{kMailbox, "--password-file", home_ / "password", "--to", kPhone}}}) {
        const auto dialogue = Start(words);
        ASSERT_TRUE(dialogue->WaitForOutput(question, 30s)) << dialogue->Printed();
        dialogue->Signal(SIGINT);
        dialogue->Wait();
        EXPECT_EQ(dialogue->ExitCode(), 128 + SIGINT);
        EXPECT_FALSE(fs::exists(Tree())) << question;
    }
    const auto dialogue = Start({kMailbox, "--password-file", home_ / "password", "--to", kPhone});
    ASSERT_NO_FATAL_FAILURE(Converse(*dialogue, {{"Write this?", "y"}}));
    ASSERT_TRUE(dialogue->WaitForOutput("Did it arrive", 30s)) << dialogue->Printed();
    dialogue->Signal(SIGINT);
    dialogue->Wait();
    EXPECT_EQ(dialogue->ExitCode(), 128 + SIGINT);
    EXPECT_THAT(dialogue->Printed(), HasSubstr("is written, and switched on"));
    EXPECT_TRUE(IsOn());
}

TEST_F(SettingUp, MailboxThatNeverAnswersEndsInTime) {
    const ScriptedServer silent([&](Peer& peer) {
        if (peer.StartTls(provider_.Identity())) peer.WaitForClose();
    });
    Name("silent.localhost", silent.Port(), provider_.RelayPort());
    Words words = Script();
    words[0] = "me@silent.localhost";
    words.emplace_back("--accept-other-domain");
    EXPECT_THAT(Do(words, 69), HasSubstr("it does not speak POP3"));
}

// ---- the service

TEST(ServiceStarters, AskSystemctlWhereTheTreeIsThatOfAUnit) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser starts services";
    const TempDir folder;
    for (const char* const name : {"systemd", "units", "bin"}) fs::create_directory(folder / name);
    WriteFile(folder / "units/tarvex.service", "[Service]\nExecStart=/usr/bin/tarvex --root /srv/mail serve\n");
    WriteFile(folder / "bin/systemctl",
              "#!/bin/sh\necho \"$@\" >" + (folder / "asked") + "\n[ ! -e " + (folder / "refused") + " ]\n");
    fs::permissions(folder / "bin/systemctl", fs::perms::owner_all);
    const Variable units("SYSTEMD_UNIT_PATH", folder / "units");
    const Variable path("PATH", (folder / "bin") + ":" + std::getenv("PATH"));

    host::ServiceStarter shop("/srv/mail-shop", folder / "systemd");
    EXPECT_EQ(shop.Unit(), "tarvex@shop");
    EXPECT_TRUE(shop.Start());
    EXPECT_EQ(ReadFile(folder / "asked"), "enable --now tarvex@shop\n");
    WriteFile(folder / "refused", "");
    host::ServiceStarter own("/srv/mail", folder / "systemd");
    EXPECT_EQ(own.Unit(), "tarvex");
    EXPECT_FALSE(own.Start());

    EXPECT_EQ(host::ServiceStarter("/srv/other", folder / "systemd").Unit(), "");
    EXPECT_EQ(host::ServiceStarter("/srv/mail", folder / "none").Unit(), "");
}

}  // namespace
}  // namespace tarvex::testing
