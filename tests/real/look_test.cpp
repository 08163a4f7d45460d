// `tarvex check` and `tarvex plan` against real servers: what a person sees whose settings are right, and wrong.

#include <gmock/gmock.h>

#include <functional>

#include "tests/real/servers/servers_fixture.h"

namespace tarvex::testing {
namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr int kUnavailable = 69;
// A name that is refused before any name server is asked.
constexpr const char* kNoName = "pop..example";

// alice's mailbox with three messages, and an SMTP server at which she logs in; TLS from the first byte.
class RealLook : public RealServersTest {
protected:
    void SetUp() override {
        RealServersTest::SetUp();
        if (IsSkipped()) return;
        pop_ = std::make_unique<PopServer>(TlsOptions());
        smtp_ = std::make_unique<SmtpServer>();
        pop_->Deliver(kAlice, MakeOrdinaryMails(3, 3000));
        forwarding_ = std::make_unique<Forwarding>(*pop_, smtp_->TlsPort());
        Setting().smtpserver = "localhost";
        Setting().sslsmtp = 1;
        Setting().smtpauth = 1;
    }

    CPopProfileSetting& Setting() { return forwarding_->Profile().setting; }

    std::string Tell(const std::string& command, int code, const std::string& ca_file) {
        std::vector<std::string> words = {command};
        if (command == "check") words.emplace_back("--no-dns");
        const Finished host = forwarding_->TellHost(words, {"SSL_CERT_FILE=" + ca_file});
        EXPECT_EQ(host.status, code) << host.output;
        EXPECT_THAT(host.output, AllOf(Not(HasSubstr(kAlice.password)), Not(HasSubstr("wrong password"))));
        return host.output;
    }
    std::string Tell(const std::string& command, int code) { return Tell(command, code, smtp_->CaFile()); }

    std::unique_ptr<PopServer> pop_;
    std::unique_ptr<SmtpServer> smtp_;
    std::unique_ptr<Forwarding> forwarding_;
};

TEST_F(RealLook, AllIsWell) {
    const std::string checked = Tell("check", 0);
    for (const char* const step : {"find the server", "connect", "greeting", "log in", "quit"}) {
        EXPECT_EQ(CountOf(checked, std::string("\n    ") + step), 2) << checked;
    }
    EXPECT_THAT(checked, ContainsRegex("\n    list +[0-9]+ ms  .OK  .3 messages, [0-9.]+ KB.\n"));
    EXPECT_THAT(checked, ContainsRegex("\n    TLS +[0-9]+ ms\n"));
    EXPECT_THAT(checked, ContainsRegex("\n    log in +[0-9]+ ms  235 2.7.0 Authentication successful\n"));
    EXPECT_THAT(checked, Not(HasSubstr("FAILED")));
    EXPECT_THAT(smtp_->WaitForMails(0), IsEmpty());
}

TEST_F(RealLook, ThePlanIsWhatTheRunThenDoes) {
    EXPECT_THAT(Tell("plan", 0), HasSubstr("\n  3 messages in the mailbox, 3 to fetch\n"));
    EXPECT_EQ(CountOf(Tell("plan", 0), std::string("-> ") + kPhone), 3);
    EXPECT_THAT(smtp_->WaitForMails(0), IsEmpty());
    EXPECT_EQ(pop_->Count(kAlice), 3);
    EXPECT_THAT(forwarding_->Uidls(), IsEmpty());

    forwarding_->RunHost({"SSL_CERT_FILE=" + smtp_->CaFile()});
    EXPECT_EQ(smtp_->WaitForMails(3).size(), 3U);
    EXPECT_THAT(Tell("plan", 0), HasSubstr("\n  3 messages in the mailbox, 0 to fetch, 3 handled already\n"));
}

// What is set wrongly, and what is then said.
struct Mistake {
    std::string name;
    std::function<void(CPopProfileSetting&, const PopServer&, const SmtpServer&)> make;
    std::string step;    // the only one that fails, with what the server or the system says
    std::string advice;  // its beginning
    bool of_pop;
};

void PrintTo(const Mistake& value, std::ostream* out) { *out << value.name; }

class RealMistake : public RealLook, public ::testing::WithParamInterface<Mistake> {};

TEST_P(RealMistake, IsFoundAndExplained) {
    GetParam().make(Setting(), *pop_, *smtp_);
    const std::string checked = Tell("check", kUnavailable);
    EXPECT_THAT(checked, ContainsRegex("\n    " + GetParam().step + "[^\n]*\n      " + GetParam().advice));
    EXPECT_EQ(CountOf(checked, "FAILED"), 1) << checked;

    const std::string planned = Tell("plan", GetParam().of_pop ? kUnavailable : 0);
    EXPECT_THAT(planned, HasSubstr(GetParam().of_pop ? "The mailbox cannot be listed: " : "3 to fetch"));
    EXPECT_THAT(smtp_->WaitForMails(0), IsEmpty());
}

std::vector<Mistake> Mistakes() {
    using S = CPopProfileSetting;
    using P = PopServer;
    using T = SmtpServer;
    return {
        {"PopPassword",
         [](S& setting, const P&, const T&) {
             setting.smtpuser = kAlice.user;
             setting.smtppassword = kAlice.password;
             setting.poppassword = "wrong password";
         },
         "log in +[0-9]+ ms  FAILED  -ERR .AUTH. Authentication failed", "The server refused the login: set --popuser",
         true},
        {"PopPortOnWhichNobodyListens", [](S& setting, const P&, const T&) { setting.popport = UnusedPort(); },
         "connect +[0-9]+ ms  FAILED ", "Nothing listens there: popport may be wrong", true},
        {"PopPortOfSmtp",
         [](S& setting, const P&, const T& smtp) {
             setting.popport = smtp.PlainPort();
             setting.timeout = 4;  // SMTP has no answer of several lines
         },
         "list +[0-9]+ ms  FAILED ", "The server at port [0-9]+ does not speak POP3", true},
        {"PopPortThatWantsTls",
         [](S& setting, const P& pop, const T&) {
             setting.popport = pop.TlsPort();
             setting.timeout = 4;
         },
         "greeting +[0-9]+ ms  FAILED ", "The server accepts the connection and says nothing", true},
        {"PopServerThatDoesNotExist", [](S& setting, const P&, const T&) { setting.popserver = kNoName; },
         "find the server +[0-9]+ ms  FAILED ", "There is no server of this name: check popserver", true},
        {"SmtpPassword",
         [](S& setting, const P&, const T&) {
             setting.smtpuser = kAlice.user;
             setting.smtppassword = "wrong password";
         },
         "log in +[0-9]+ ms  FAILED  535 5.7.8 Error", "The server refused the login: set --smtpuser", false},
        {"SmtpPortOnWhichNobodyListens", [](S& setting, const P&, const T&) { setting.smtpport = UnusedPort(); },
         "connect +[0-9]+ ms  FAILED ", "Nothing listens there: smtpport may be wrong", false},
        {"SmtpPortWithoutTls", [](S& setting, const P&, const T& smtp) { setting.smtpport = smtp.AuthPort(); },
         "TLS +[0-9]+ ms  FAILED ", "The server does not speak TLS from the first byte", false},
        {"SmtpPortThatWantsTls",
         [](S& setting, const P&, const T&) {
             setting.sslsmtp = 0;
             setting.timeout = 4;
         },
         "greeting +[0-9]+ ms  FAILED ", "The server accepts the connection and says nothing", false},
        {"SmtpServerThatDoesNotExist", [](S& setting, const P&, const T&) { setting.smtpserver = kNoName; },
         "find the server +[0-9]+ ms  FAILED ", "There is no server of this name: check smtpserver", false},
    };
}

INSTANTIATE_TEST_SUITE_P(Each, RealMistake, ::testing::ValuesIn(Mistakes()),
                         [](const auto& mistake) { return mistake.param.name; });

TEST_F(RealLook, ACertificateThatIsNotTrustedIsExplained) {
    EXPECT_THAT(Tell("check", kUnavailable, smtp_->OtherCaFile()),
                ContainsRegex("TLS +[0-9]+ ms  FAILED  TLS handshake: certificate: unable to get local issuer[^\n]*\n"
                              "      This machine does not trust the authority"));
}

}  // namespace
}  // namespace tarvex::testing
