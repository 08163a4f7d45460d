// Trees with rules between servers that refuse what Postfix takes, or keep mailboxes as Dovecot does not.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tests/real/forwarding.h"
#include "tests/real/servers/rooted_servers.h"

namespace tarvex::testing {
namespace {

constexpr int kServerTrouble = 69;

GeneratedMail Letter(int number, const std::string& header = "", const std::string& body = "hello") {
    return {number, "plain",
            "From: shop@example.test\r\n" + header + "Subject: letter " + std::to_string(number) + "\r\n\r\n" + body +
                "\r\n"};
}

std::vector<GeneratedMail> Letters(int count) {
    std::vector<GeneratedMail> letters;
    for (int number = 1; number <= count; ++number) letters.push_back(Letter(number));
    return letters;
}

// How often each letter has arrived, by its subject; waits until there are `count` mails.
std::map<std::string, int> Copies(const SmtpServer& server, std::size_t count) {
    std::map<std::string, int> copies;
    for (const ArrivedMail& mail : server.WaitForMails(count)) {
        const std::size_t start = mail.text.find("Subject: ");
        ++copies[start == std::string::npos ? ""
                                            : mail.text.substr(start + 9, mail.text.find('\r', start) - start - 9)];
    }
    return copies;
}

// Each of the letters 1 to `last` but `without`, once.
std::map<std::string, int> OnceEach(int last, int without = 0) {
    std::map<std::string, int> copies;
    for (int number = 1; number <= last; ++number) {
        if (number != without) copies["letter " + std::to_string(number)] = 1;
    }
    return copies;
}

// A tree between two servers.
class Tree {
public:
    Tree(int pop_port, int smtp_port, bool with_rules) : forwarding_(pop_port, smtp_port) {
        if (with_rules) WriteFile(forwarding_.RootDirectory() + "/host.def", "[setaside]\r\n1\r\n");
    }

    CPopProfileSetting& Setting() { return forwarding_.Profile().setting; }
    int Run() { return forwarding_.TellHost({"run", "--quiet", "--now", "user0/from0"}).status; }
    std::string Held() { return forwarding_.TellHost({"held", "list", "--json"}).output; }
    std::string Status() { return forwarding_.TellHost({"status"}).output; }

private:
    Forwarding forwarding_;
};

class OtherServers : public ::testing::Test {
protected:
    void SetUp() override {
        for (const std::string& reason : {PopServer::Missing(), SmtpServer::Missing(), RootedServer::Missing()}) {
            if (!reason.empty()) GTEST_SKIP() << reason;
        }
    }
};

// ---- Relays

using Relay = std::function<std::unique_ptr<RootedServer>(int next_port)>;

std::unique_ptr<RootedServer> Exim(int next_port) { return std::make_unique<EximServer>(next_port); }
std::unique_ptr<RootedServer> OpenSmtpd(int next_port) { return std::make_unique<OpenSmtpdServer>(next_port); }

struct Refusal {
    const char* name;
    Relay relay;
    GeneratedMail mail;  // the second of three
    const char* reply;
};

void PrintTo(const Refusal& refusal, std::ostream* out) { *out << refusal.name; }

class OtherRelays : public OtherServers, public ::testing::WithParamInterface<Refusal> {};

TEST_P(OtherRelays, RefuseOneMessageWhichIsSetAsideAndTheRestFlows) {
    const SmtpServer target;
    const auto relay = GetParam().relay(target.PlainPort());
    PopServer pop;
    pop.Deliver(kAlice, {Letter(1), GetParam().mail, Letter(3)});
    Tree without(pop.Port(), relay->Port(), false);
    EXPECT_EQ(without.Run(), kServerTrouble);
    EXPECT_EQ(Copies(target, 1), OnceEach(1)) << "without rules it blocks the rest";

    pop.Remove(kAlice, 1);
    Tree with(pop.Port(), relay->Port(), true);
    for (int run = 0; run < 2; ++run) {
        EXPECT_EQ(with.Run(), 0);
        EXPECT_EQ(Copies(target, 2), OnceEach(3, 2));
        EXPECT_EQ(CountOfHeld(with.Held(), GetParam().reply), 1) << with.Held();
    }
}

INSTANTIATE_TEST_SUITE_P(, OtherRelays,
                         ::testing::Values(Refusal{"EximALongLine", Exim, Letter(2, "", std::string(999, 'x')),
                                                   "550 maximum allowed line length is 998 octets, got 999"},
                                           Refusal{"EximABadlyFormedAddress", Exim,
                                                   Letter(2, "Cc: a@example.test b@example.test\r\n"),
                                                   "550 header syntax"},
                                           Refusal{"OpenSmtpdAMessageWithoutHeader",
                                                   OpenSmtpd,
                                                   {2, "plain", "nothing but text\r\n"},
                                                   "Message is not RFC 2822 compliant"},
                                           Refusal{"OpenSmtpdALineBeyondItsMemory", OpenSmtpd,
                                                   Letter(2, "", std::string(70'000, 'x')), "500 5.0.0 Line too long"}),
                         [](const auto& refusal) { return refusal.param.name; });

struct Limit {
    const char* name;
    Relay relay;
    int messages;       // that it takes in one connection
    const char* reply;  // to the MAIL of the next
};

void PrintTo(const Limit& limit, std::ostream* out) { *out << limit.name; }

class LimitedRelays : public OtherServers, public ::testing::WithParamInterface<Limit> {};

TEST_P(LimitedRelays, TakeTheOthersInFurtherConnectionsEachOnce) {
    const int letters = GetParam().messages * 3 / 2;
    const SmtpServer target;
    const auto relay = GetParam().relay(target.PlainPort());
    PopServer pop;
    pop.Deliver(kAlice, Letters(letters));
    Tree tree(pop.Port(), relay->Port(), true);
    EXPECT_EQ(tree.Run(), 0);
    EXPECT_EQ(Copies(target, static_cast<std::size_t>(letters)), OnceEach(letters));
    EXPECT_EQ(CountOfHeld(tree.Held(), GetParam().reply), 0) << "it says nothing about a message";
}

INSTANTIATE_TEST_SUITE_P(, LimitedRelays,
                         ::testing::Values(Limit{"OpenSmtpd", OpenSmtpd, 100, "452"},
                                           Limit{"EximWithALowLimit",
                                                 [](int next_port) {
                                                     return std::make_unique<EximServer>(
                                                         next_port, "smtp_accept_max_per_connection = 10");
                                                 },
                                                 10, "421"}),
                         [](const auto& limit) { return limit.param.name; });

// ---- Mailboxes

// A mailbox that a backup was restored into, or whose index was lost: every message has another id.
TEST_F(OtherServers, RenumberedMailboxSendsNothingTwice) {
    constexpr int kLetters = 60;  // more than a mailbox may have that looks new
    for (const bool with_rules : {false, true}) {
        const SmtpServer target;
        PopServer pop;
        pop.Deliver(kAlice, Letters(kLetters));
        Tree tree(pop.Port(), target.PlainPort(), with_rules);
        EXPECT_EQ(tree.Run(), 0);
        EXPECT_EQ(Copies(target, kLetters), OnceEach(kLetters));

        pop.Renumber(kAlice);
        pop.Deliver(kAlice, Letter(kLetters + 1));
        EXPECT_EQ(tree.Run(), 0);
        if (with_rules) {
            EXPECT_EQ(Copies(target, kLetters + 1), OnceEach(kLetters + 1)) << tree.Status();
        } else {
            EXPECT_EQ(Copies(target, 2 * kLetters + 1)["letter 1"], 2) << "without rules it all goes out again";
        }
    }
}

// Solid POP3 says +OK to DELE and QUIT although it may not remove a file.
TEST_F(OtherServers, MailboxThatCannotBeWrittenSendsNothingTwiceAndIsTold) {
    for (const bool with_rules : {false, true}) {
        const SmtpServer target;
        SolidPopServer pop(SolidPopServer::Mailbox::Maildir);
        pop.Deliver(Letters(3));
        pop.ForbidWriting();
        Tree tree(pop.Port(), target.PlainPort(), with_rules);
        tree.Setting().deletemail = 1;
        for (int run = 0; run < 4; ++run) EXPECT_EQ(tree.Run(), 0);
        EXPECT_EQ(pop.Count(), 3);
        if (with_rules) {
            EXPECT_EQ(Copies(target, 3), OnceEach(3));
            EXPECT_EQ(CountOf(tree.Status(), "cannot be deleted on the server"), 3) << tree.Status();
        } else {
            EXPECT_EQ(Copies(target, 6)["letter 1"], 2) << "without rules it all goes out every other run";
        }
    }
}

// Solid POP3 makes the ids of a mailbox file from the headers.
TEST_F(OtherServers, TwoMessagesOfOneHeaderAreBothSentAndNeitherIsDeleted) {
    const std::string header = "Date: Mon, 5 Jan 2026 10:00:00 +0000\r\n";
    for (const bool with_rules : {false, true}) {
        const SmtpServer target;
        SolidPopServer pop(SolidPopServer::Mailbox::File);
        pop.Deliver({Letter(1, header), Letter(1, header, "another text"), Letter(2)});
        Tree tree(pop.Port(), target.PlainPort(), with_rules);
        tree.Setting().deletemail = 1;
        const std::map<std::string, int> all = {{"letter 1", 2}, {"letter 2", 1}};
        if (with_rules) {
            for (int run = 0; run < 3; ++run) EXPECT_EQ(tree.Run(), 0);
            EXPECT_EQ(Copies(target, 3), all);
        } else {
            EXPECT_EQ(tree.Run(), kServerTrouble) << "without rules they block the mailbox";
        }
    }
}

}  // namespace
}  // namespace tarvex::testing
