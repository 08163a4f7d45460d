// What real servers refuse, in a tree with rules: it is set aside, and the rest flows.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "tests/real/forwarding.h"
#include "tests/real/servers/real_servers.h"

namespace tarvex::testing {
namespace {

constexpr int kMails = 5;
constexpr int kRefusedMail = 2;  // its subject and size are others
constexpr int kServerTrouble = 69;

std::vector<GeneratedMail> Mails() {
    std::vector<GeneratedMail> mails;
    for (int number = 1; number <= kMails; ++number) {
        const bool refused = number == kRefusedMail;
        std::string text = "From: shop@example.test\r\nSubject: ";
        text += (refused ? "special offer " : "letter ") + std::to_string(number) + "\r\n\r\n";
        for (int line = 0; line < (refused ? 1000 : 3); ++line) text += "a line of the body\r\n";
        mails.push_back({number, "plain", text});
    }
    return mails;
}

// A Postfix that refuses, a full mailbox, and a tree between them.
class Between {
public:
    Between(const std::string& settings, bool with_rules) : server({.settings = settings}) {
        if (with_rules) WriteFile(forwarding.RootDirectory() + "/host.def", "[setaside]\r\n1\r\n");
        pop.Deliver(kAlice, Mails());
    }

    int Run() { return forwarding.TellHost({"run", "--quiet", "--now", "user0/from0"}).status; }
    std::string Held() { return forwarding.TellHost({"held", "list", "--json"}).output; }

    // "letter 1" and the like, in the order of the numbers.
    std::vector<std::string> Arrived(const std::string& recipient, std::size_t count) const {
        std::vector<std::string> subjects;
        for (const ArrivedMail& mail : server.WaitForMails(count)) {
            if (mail.recipient != recipient) continue;
            const std::size_t start = mail.text.find("Subject: ") + 9;
            subjects.push_back(mail.text.substr(start, mail.text.find('\r', start) - start));
        }
        std::ranges::sort(subjects, {}, [](const std::string& subject) { return subject.back(); });
        return subjects;
    }

    // Waits until Postfix has noticed that every client that it greeted has left.
    bool WaitUntilLeft() const {
        return WaitUntil([&] {
            const std::string log = server.Log();
            return CountOf(log, " connect from ") == CountOf(log, " disconnect from ");
        });
    }

    PopServer pop;
    SmtpServer server;
    Forwarding forwarding{pop, server.PlainPort()};
};

class RealRules : public ::testing::Test {
protected:
    void SetUp() override {
        for (const std::string& reason : {PopServer::Missing(), SmtpServer::Missing()}) {
            if (!reason.empty()) GTEST_SKIP() << reason;
        }
    }
};

const std::vector<std::string> kOthers = {"letter 1", "letter 3", "letter 4", "letter 5"};

struct Refusal {
    const char* name;
    const char* settings;  // of Postfix
    const char* reply;
};

void PrintTo(const Refusal& refusal, std::ostream* out) { *out << refusal.name; }

class RealRefusal : public RealRules, public ::testing::WithParamInterface<Refusal> {};

TEST_P(RealRefusal, SetsOneMessageAsideAndTheRestFlows) {
    Between with(GetParam().settings, true);
    EXPECT_EQ(with.Run(), 0);
    EXPECT_EQ(with.Arrived(kPhone, kMails - 1), kOthers);
    EXPECT_EQ(CountOfHeld(with.Held(), GetParam().reply), 1) << with.Held();
    EXPECT_EQ(with.Run(), 0);
    EXPECT_EQ(with.Arrived(kPhone, kMails - 1), kOthers);
}

TEST_P(RealRefusal, BlocksTheRestWithoutRules) {
    Between without(GetParam().settings, false);
    EXPECT_EQ(without.Run(), kServerTrouble);
    EXPECT_EQ(without.Run(), kServerTrouble);
    EXPECT_EQ(without.Arrived(kPhone, 1), std::vector<std::string>{"letter 1"});
}

INSTANTIATE_TEST_SUITE_P(
    , RealRefusal,
    ::testing::Values(Refusal{"OfAHeader", "header_checks = regexp:{{/^Subject: special offer/ REJECT no offers}}",
                              "550 5.7.1 no offers"},
                      Refusal{"OfASize", "message_size_limit = 10000", "552 5.3.4"}),
    [](const auto& refusal) { return refusal.param.name; });

TEST_F(RealRules, AddressThatPostfixDoesNotKnowCostsTheOtherNothing) {
    Between with("smtpd_recipient_restrictions = check_recipient_access inline:{{" + std::string(kTablet) +
                     " = 550 5.1.1 nobody here}}",
                 true);
    with.forwarding.AddAddress(kTablet);
    EXPECT_EQ(with.Run(), 0);
    EXPECT_EQ(with.Arrived(kPhone, kMails).size(), kMails);
    EXPECT_EQ(CountOfHeld(with.Held(), "nobody here"), kMails);
    EXPECT_EQ(CountOf(with.server.Log(), "nobody here"), 1) << "it is asked once";
}

// The one address is known, the other one is told to come again later.
TEST_F(RealRules, GreylistedAddressCostsTheOtherNoSecondCopy) {
    constexpr const char* kPostgrey = "/usr/sbin/postgrey";
    if (!std::filesystem::exists(kPostgrey)) GTEST_SKIP() << "postgrey is not installed (package postgrey)";
    const int port = FreePorts(1).front();
    const ServerFolder folder;
    folder.MakeFolder("state");
    const ServerAccount account = AccountForServers();
    const ServerProcess postgrey(
        {.words = {kPostgrey, "--inet=127.0.0.1:" + std::to_string(port), "--delay=300",
                   "--dbdir=" + (folder / "state").string(), "--user=" + account.user, "--group=" + account.group},
         .output = folder / "output"});
    ASSERT_TRUE(WaitUntil([&] { return Answers(port, ""); })) << ReadFile(folder / "output");

    Between with("smtpd_recipient_restrictions = check_recipient_access inline:{{" + std::string(kPhone) +
                     " = OK}}, check_policy_service inet:127.0.0.1:" + std::to_string(port),
                 true);
    with.forwarding.AddAddress(kTablet);
    for (int run = 0; run < 2; ++run) {
        EXPECT_EQ(with.Run(), 0);
        EXPECT_EQ(with.Arrived(kPhone, kMails).size(), kMails);
        EXPECT_EQ(CountOfHeld(with.Held(), "Greylisted"), kMails);
    }
}

// 421 in the greeting says nothing about a message.
TEST_F(RealRules, NothingIsSetAsideWhilePostfixTakesNoMoreConnections) {
    Between with("smtpd_client_connection_count_limit = 1\nsmtpd_client_event_limit_exceptions =", true);
    ASSERT_TRUE(with.WaitUntilLeft());
    auto* const other = with.forwarding.Profile().CreateSmtpConnection();
    ASSERT_TRUE(other);
    EXPECT_EQ(with.Run(), kServerTrouble);
    EXPECT_EQ(CountOfHeld(with.Held(), "421"), 0);
    CloseSmtpConnection(other);
    ASSERT_TRUE(with.WaitUntilLeft());
    EXPECT_EQ(with.Run(), 0);
    EXPECT_EQ(with.Arrived(kPhone, kMails).size(), kMails);
}

}  // namespace
}  // namespace tarvex::testing
