// What a run tells of itself: every ending, every stage and class of a failure, the counts, and what was saved.

#include "tarvex/result.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/conversation.h"
#include "tests/support/forwarding.h"

namespace tarvex::testing {
namespace {

// The words of the enumerations, for messages and tables.
constexpr std::array kEndings = {"not ended",   "could not begin", "nobody takes part", "mailbox failed",
                                 "nothing new", "delivered",       "delivery failed",   "exception"};
constexpr std::array kClasses = {"none", "permanent", "transient", "connection", "time-out", "protocol", "local"};
constexpr std::array kStages = {"none",   "connect",  "TLS",       "greeting", "login", "list",
                                "delete", "retrieve", "MAIL FROM", "RCPT TO",  "DATA",  "end of data"};

template <class Names, class Enumeration>
std::string Name(const Names& names, Enumeration value) {
    return names.at(static_cast<std::size_t>(value));
}

// "RCPT TO permanent u1 me@example.org -> a@example.net: 550 no", and "(reason)" where no answer came.
std::string Told(const CRunFailure& failure) {
    std::string text = Name(kStages, failure.stage) + " " + Name(kClasses, failure.failure_class);
    if (!failure.uidl.empty()) text += " " + failure.uidl;
    if (!failure.sender.empty()) text += " " + failure.sender + " -> " + failure.recipient;
    if (!failure.reply.empty()) text += ": " + Visible(failure.reply);
    return text + (failure.reason.empty() ? "" : " (reason)");
}

// A run between two scripts.

const std::string kLogin = "S: +OK ready\nC: USER alice\nS: +OK\nC: PASS secret\nS: +OK\n";
const std::string kListing = kLogin + "C: UIDL\nS: +OK\nS: 1 u1\nS: 2 u2\nS: .\n";
const std::string kMessage = "S: +OK\nS: x: 1\nS: \nS: .\n";
const std::string kBoth = kListing + "C: RETR 1\n" + kMessage + "C: RETR 2\n" + kMessage;
const std::string kMailbox = kBoth + "C: QUIT\nS: +OK\n";

const std::string kHello = "S: 220 ready\nC: EHLO {host}\n";
const std::string kReady = kHello + "S: 250 host\n";
const std::string kAuth = kHello + "S: 250-host\nS: 250-AUTH LOGIN\nS: 250 ok\nC: AUTH LOGIN\n";
const std::string kMail = "C: MAIL FROM:<me@example.org>\n";
const std::string kTo = kMail + "S: 250 ok\nC: RCPT TO:<a@example.net>\n";
const std::string kData = kTo + "S: 250 ok\nC: DATA\n";
const std::string kMessageEnds = kData + "S: 354 go on\nC: (message)\n";
const std::string kTaken = kMessageEnds + "S: 250 taken\n";
const std::string kStalls = "C: (closed)\n";
const std::string kCloses = "S: (closed)\n";
const std::string kNobody;  // a script for a port on which nobody listens

struct FailureCase {
    std::string told;
    std::string script;  // of the server that fails
    std::function<void(CPopProfile&)> change = [](CPopProfile&) {};
};

// A run whose servers are these; what it left in its result.
CRunResult ResultOf(
    const std::string& pop_script, const std::string& smtp_script,
    const std::function<void(CPopProfile&)>& change = [](CPopProfile&) {}) {
    Conversation pop(pop_script), smtp(smtp_script);
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(pop_script.empty() ? UnusedPort() : pop.Port(),
                                           smtp_script.empty() ? UnusedPort() : smtp.Port());
    AddAddress(profile, "a@example.net").setting.textonly = 0;
    const bool stalls = pop_script.ends_with(kStalls) || smtp_script.ends_with(kStalls);
    profile.setting.timeout = stalls ? kStallTimeOut_s : kAmpleTimeOut_s;
    change(profile);
    CPopProfile copy;
    copy = profile;
    copy.DoOperation();
    return copy.result;
}

TEST(RunResult, TellsStageAndClassOfWhatEndedTheMailbox) {
    const auto delete_handled = [](CPopProfile& profile) {
        profile.setting.deletemail = 1;
        WriteUidls(*profile.forward_addresses[0], {"u1"});
    };
    const std::vector<FailureCase> cases = {
        {"connect connection (reason)", kNobody},
        {"greeting permanent: -ERR no", "S: -ERR no\n"},
        {"greeting connection (reason)", kCloses},
        {"greeting time-out (reason)", kStalls},
        {"login permanent: -ERR no", "S: +OK ready\nC: USER alice\nS: -ERR no\n"},
        {"login transient: -ERR [IN-USE] wait", "S: +OK ready\nC: USER alice\nS: -ERR [IN-USE] wait\n"},
        {"login permanent: -ERR Disconnected", "S: +OK ready\nC: USER alice\nS: -ERR Disconnected\n"},
        {"login connection (reason)", "S: +OK ready\nC: USER alice\nS: +OK\nC: PASS secret\n" + kCloses},
        {"login local (reason)", "S: +OK ready\n", [](CPopProfile& p) { p.setting.popuser = "a\rb"; }},
        {"list permanent: -ERR neither", kLogin + "C: UIDL\nS: -ERR no\nC: LIST\nS: -ERR neither\n"},
        {"list time-out (reason)", kLogin + "C: UIDL\n" + kStalls},
        {"delete permanent u1: -ERR no", kListing + "C: DELE 1\nS: -ERR no\n", delete_handled},
        {"delete connection u1 (reason)", kListing + "C: DELE 1\n" + kCloses, delete_handled},
        {"retrieve time-out u1 (reason)", kListing + "C: RETR 1\n" + kStalls},
    };
    const auto run = [](const FailureCase& one) { return ResultOf(one.script, kNobody, one.change); };
    RunAll(cases, run, [](const FailureCase& one, const CRunResult& result) {
        SCOPED_TRACE(one.told);
        EXPECT_EQ(Told(result.mailbox), one.told);
        EXPECT_EQ(Name(kEndings, result.ending), "mailbox failed");
        EXPECT_EQ(Told(result.delivery), "none none");
        EXPECT_EQ(result.lists, CSaved::NotTried);
        EXPECT_EQ(result.addresses.at(0).list, CSaved::NotTried);
        EXPECT_EQ(result.log, CSaved::Saved);
        EXPECT_EQ(result.settings, CSaved::Saved);
    });
}

TEST(RunResult, TellsEverythingAboutTheFirstRefusalOfTheDelivery) {
    const auto log_in = [](CPopProfile& profile) { profile.setting.smtpauth = 1; };
    const std::string who = " u1 me@example.org -> a@example.net";
    const std::string second = " u2 me@example.org -> a@example.net";
    const std::vector<FailureCase> cases = {
        {"connect connection (reason)", kNobody},
        {"TLS connection (reason)", "S: 220 ready\n", [](CPopProfile& p) { p.setting.sslsmtp = 1; }},
        {"TLS connection (reason)", kReady, [](CPopProfile& p) { p.setting.sslsmtp = 2; }},
        {"greeting permanent: 554 no", "S: 554 no\n"},
        {"greeting permanent: 554 no", "S: 554 no\n", [](CPopProfile& p) { p.setting.sslsmtp = 2; }},
        {"greeting connection: 421 busy", "S: 421 busy\n"},
        {"greeting time-out (reason)", kStalls},
        {"greeting transient: 450-not\\r\\n450 now", kHello + "S: 450-not\nS: 450 now\n"},
        {"greeting permanent: 550 no", kHello + "S: 500 what\nC: RSET\nS: 250 ok\nC: HELO {host}\nS: 550 no\n"},
        {"login permanent: 535 no", kAuth + "S: 535 no\n", log_in},
        {"login transient: 454 later", kAuth + "S: 454 later\n", log_in},
        {"login connection (reason)", kAuth + kCloses, log_in},
        {"MAIL FROM transient" + who + ": 451 later", kReady + kMail + "S: 451 later\n"},
        {"RCPT TO permanent" + who + ": 550 no", kReady + kTo + "S: 550 no\n"},
        {"RCPT TO protocol" + who + ": 220 what", kReady + kTo + "S: 220 what\n"},
        {"RCPT TO local u1 me@example.org -> a\\rb (reason)", kReady + kMail + "S: 250 ok\n",
         [](CPopProfile& profile) { profile.forward_addresses[0]->setting.address = "a\rb"; }},
        {"DATA transient" + who + ": 452 full", kReady + kData + "S: 452 full\n"},
        {"DATA protocol" + who + " (reason)", kReady + kData + "S: 250 ok\n"},
        {"end of data permanent" + who + ": 554 spam", kReady + kMessageEnds + "S: 554 spam\n"},
        {"end of data connection" + who + " (reason)", kReady + kMessageEnds + kCloses},
        {"end of data time-out" + who + " (reason)", kReady + kMessageEnds + kStalls},
        {"DATA transient" + second + ": 452 full", kReady + kTaken + kData + "S: 452 full\n"},
    };
    const auto run = [](const FailureCase& one) { return ResultOf(kMailbox, one.script, one.change); };
    RunAll(cases, run, [&](const FailureCase& one, const CRunResult& result) {
        SCOPED_TRACE(one.told + " after " + one.script);
        EXPECT_EQ(Visible(Told(result.delivery)), one.told);
        EXPECT_EQ(Name(kEndings, result.ending), "delivery failed");
        EXPECT_EQ(Told(result.mailbox), "none none");
        const int delivered = result.delivery.uidl == "u2" ? 1 : 0;
        EXPECT_EQ(result.messages_delivered, delivered);
        EXPECT_EQ(result.copies, delivered);
        EXPECT_EQ(result.addresses.at(0).copies, delivered);
        EXPECT_EQ(result.lists, CSaved::Saved);
    });
}

TEST(RunResult, TellsOfEachMessageThatWasNotFetched) {
    struct Case {
        const char* ending;
        std::string script;
        std::vector<std::string> told;
    };
    const std::string long_answer = "-ERR " + std::string(2'000, 'x');
    const std::vector<Case> cases = {
        {"delivered",
         kListing + "C: RETR 1\nS: -ERR locked\nC: RETR 2\n" + kMessage + "C: QUIT\nS: +OK\n",
         {"u1 permanent: -ERR locked"}},
        {"delivered",
         kListing + "C: RETR 1\n" + kMessage + "C: RETR 2\nS: " + long_answer + "\nC: QUIT\nS: +OK\n",
         {"u2 permanent: " + long_answer.substr(0, 1'000)}},
        {"nothing new", kListing + "C: RETR 1\n" + kCloses, {"u1 connection (reason)", "u2 connection (reason)"}},
        {"mailbox failed", kListing + "C: RETR 1\n" + kStalls, {"u1 time-out (reason)", "u2 time-out"}},
    };
    const auto run = [](const Case& one) { return ResultOf(one.script, kReady + kTaken + "C: QUIT\nS: 221 bye\n"); };
    RunAll(cases, run, [](const Case& one, const CRunResult& result) {
        SCOPED_TRACE(one.script);
        EXPECT_EQ(Name(kEndings, result.ending), one.ending);
        std::vector<std::string> told;
        for (const CNotFetchedMail& mail : result.not_fetched) {
            told.push_back(mail.uidl + " " + Name(kClasses, mail.failure_class) +
                           (mail.reply.empty() ? "" : ": " + mail.reply) + (mail.reason.empty() ? "" : " (reason)"));
        }
        EXPECT_EQ(told, one.told);
        EXPECT_EQ(result.messages_listed, 2);
        EXPECT_EQ(result.messages_not_fetched, static_cast<int>(one.told.size()));
        EXPECT_EQ(result.messages_fetched, 2 - static_cast<int>(one.told.size()));
        EXPECT_EQ(result.messages_delivered, result.messages_fetched);
    });
}

TEST(RunResult, TellsOfNoMoreThanTenThousandMessagesThatWereNotFetched) {
    MailboxServer mailbox("alice", "secret");
    SinkServer sink;
    for (int i = 0; i < 10'001; ++i) mailbox.Add(Mail("u" + std::to_string(i)));
    mailbox.SetFault([](const std::string& command) { return command.starts_with("RETR") ? "-ERR no" : ""; });
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(mailbox.Port(), sink.Port());
    AddAddress(profile, "a@example.net");
    profile.DoOperation();
    EXPECT_EQ(profile.result.messages_not_fetched, 10'001);
    EXPECT_EQ(profile.result.not_fetched.size(), 10'000U);
}

// A run between a mailbox and a sink, on a copy whose result is kept.
class RunResultTest : public ::testing::Test {
protected:
    void Run() {
        copy_.emplace();
        *copy_ = profile;
        copy_->DoOperation();
    }
    const CRunResult& Result() const { return copy_->result; }
    std::string Ending() const { return Name(kEndings, Result().ending); }

    MailboxServer mailbox{"alice", "secret"};
    SinkServer sink;
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(mailbox.Port(), sink.Port());

private:
    std::optional<CPopProfile> copy_;
};

TEST_F(RunResultTest, CountsMessagesAndTheCopiesOfEachAddress) {
    CForwardAddress& a = AddAddress(profile, "A <a@example.net>");
    CForwardAddress& b = AddAddress(profile, "b@example.net");
    AddAddress(profile, "off@example.net").setting.status = 0;
    a.setting.textonly = b.setting.textonly = 0;
    mailbox.Add(Mail("u0"));
    mailbox.Add(Mail("u1"));
    mailbox.Add(Mail("u2"));
    WriteUidls(a, {"u0"});
    WriteUidls(b, {"u0", "u1"});
    for (const int text_limit : {0, -100}) {  // once to all, once to each
        SCOPED_TRACE(text_limit);
        a.setting.textonly = text_limit;
        WriteUidls(a, {"u0"});
        WriteUidls(b, {"u0", "u1"});
        Run();
        EXPECT_EQ(Ending(), "delivered");
        EXPECT_EQ(Result().messages_listed, 3);
        EXPECT_EQ(Result().messages_fetched, 2);
        EXPECT_EQ(Result().messages_not_fetched, 0);
        EXPECT_EQ(Result().messages_delivered, 2);
        EXPECT_EQ(Result().copies, 3);
        ASSERT_EQ(Result().addresses.size(), 3U);
        const std::array expected = {2, 1, 0};
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(Result().addresses[i].path, profile.forward_addresses[i]->path);
            EXPECT_EQ(Result().addresses[i].address, profile.forward_addresses[i]->setting.address);
            EXPECT_EQ(Result().addresses[i].copies, expected[i]) << i;
            EXPECT_EQ(Result().addresses[i].list, CSaved::Saved);
        }
        EXPECT_GT(Result().bytes_received, 200);
        EXPECT_GT(Result().bytes_sent, 200);
    }
}

// A refusal after the first of two copies: that copy is counted, the message is not delivered.
TEST_F(RunResultTest, CopyOfAMessageThatIsNotDeliveredCounts) {
    AddAddress(profile, "a@example.net");
    AddAddress(profile, "b@example.net");
    mailbox.Add(Mail("u1"));
    sink.SetFault([](const std::string& command) { return command.starts_with("RCPT TO:<b@") ? "550 no" : ""; });
    Run();
    EXPECT_EQ(Told(Result().delivery), "RCPT TO permanent u1 me@example.org -> b@example.net: 550 no");
    EXPECT_EQ(Result().messages_delivered, 0);
    EXPECT_EQ(Result().copies, 1);
    EXPECT_EQ(Result().addresses.at(0).copies, 1);
    EXPECT_EQ(Result().addresses.at(1).copies, 0);
}

TEST_F(RunResultTest, RefusalOfACommandForSeveralRecipientsNamesNone) {
    AddAddress(profile, "a@example.net").setting.textonly = 0;
    AddAddress(profile, "b@example.net").setting.textonly = 0;
    mailbox.Add(Mail("u1"));
    sink.SetFault([](const std::string& command) { return command == "." ? "451 later" : ""; });
    Run();
    EXPECT_EQ(Told(Result().delivery), "end of data transient u1 me@example.org -> : 451 later");
}

TEST_F(RunResultTest, NobodyTakesPart) {
    AddAddress(profile, "a@example.net").setting.status = 0;
    Run();
    EXPECT_EQ(Ending(), "nobody takes part");
    EXPECT_EQ(Result().bytes_sent, 0);
    EXPECT_EQ(Result().lists, CSaved::NotTried);
    EXPECT_EQ(Result().log, CSaved::Saved);
    EXPECT_EQ(Result().settings, CSaved::Saved);
}

TEST_F(RunResultTest, NothingNewForAListThatIsOnDiskAlready) {
    WriteUidls(AddAddress(profile, "a@example.net"), {"u1"});
    mailbox.Add(Mail("u1"));
    Run();
    EXPECT_EQ(Ending(), "nothing new");
    EXPECT_EQ(Result().messages_listed, 1);
    EXPECT_EQ(Result().messages_fetched + Result().messages_not_fetched, 0);
    EXPECT_EQ(Result().lists, CSaved::Saved);
}

TEST_F(RunResultTest, LogThatIsSwitchedOffIsNotSaved) {
    profile.setting.logmode = 0;
    Run();
    EXPECT_EQ(Result().log, CSaved::NotTried);
    EXPECT_EQ(Result().settings, CSaved::Saved);
}

// What cannot be replaced: a file in whose place a folder stands.
TEST_F(RunResultTest, TellsWhatCouldNotBeSaved) {
    CForwardAddress& unsaved = AddAddress(profile, "a@example.net");
    AddAddress(profile, "b@example.net");
    mailbox.Add(Mail("u1"));
    std::filesystem::create_directory(UidlFile(unsaved));
    Run();
    EXPECT_EQ(Ending(), "delivered");
    EXPECT_EQ(Result().lists, CSaved::Failed);
    EXPECT_EQ(Result().addresses.at(0).list, CSaved::Failed);
    EXPECT_EQ(Result().addresses.at(1).list, CSaved::Saved);
    EXPECT_EQ(Result().log, CSaved::Saved);

    for (const std::string& file : {ProfileFile(profile), OnDisk(profile.path) + "/profile.log"}) {
        std::filesystem::remove(file);
        std::filesystem::create_directory(file);
    }
    Run();
    EXPECT_EQ(Result().log, CSaved::Failed);
    EXPECT_EQ(Result().settings, CSaved::Failed);
}

// The host may delete what a run works for while it goes on.
TEST_F(RunResultTest, TellsWhichListWasLeftAlone) {
    AddAddress(profile, "a@example.net");
    const std::string gone = OnDisk(AddAddress(profile, "b@example.net").path);
    mailbox.SetFault([gone](const std::string& command) {
        if (command == "QUIT") std::filesystem::remove_all(gone);
        return "";
    });
    Run();
    EXPECT_EQ(Result().lists, CSaved::LeftAlone);
    EXPECT_EQ(Result().addresses.at(0).list, CSaved::Saved);
    EXPECT_EQ(Result().addresses.at(1).list, CSaved::LeftAlone);
    EXPECT_EQ(Result().log, CSaved::Saved);
}

TEST_F(RunResultTest, TellsThatTheWholeProfileWasLeftAlone) {
    AddAddress(profile, "a@example.net");
    mailbox.SetFault([folder = OnDisk(profile.path)](const std::string& command) {
        if (command == "QUIT") std::filesystem::remove_all(folder);
        return "";
    });
    Run();
    EXPECT_EQ(Result().lists, CSaved::LeftAlone);
    EXPECT_EQ(Result().log, CSaved::LeftAlone);
    EXPECT_EQ(Result().settings, CSaved::LeftAlone);
}

TEST_F(RunResultTest, EachRunBeginsWithAnEmptyResult) {
    AddAddress(profile, "a@example.net");
    mailbox.Add(Mail("u1"));
    sink.SetFault([](const std::string& command) { return command.starts_with("MAIL") ? "451 later" : ""; });
    profile.DoOperation();
    EXPECT_EQ(Name(kEndings, profile.result.ending), "delivery failed");
    const std::int64_t received = profile.result.bytes_received;
    sink.SetFault({});
    profile.DoOperation();
    EXPECT_EQ(Name(kEndings, profile.result.ending), "delivered");
    EXPECT_EQ(Told(profile.result.delivery), "none none");
    EXPECT_EQ(profile.result.copies, 1);
    EXPECT_LT(profile.result.bytes_received, received + received / 2);
}

TEST_F(RunResultTest, IsNotAssignedAndGoesWithReset) {
    Run();
    CPopProfile source;
    source.result = Result();
    ASSERT_EQ(source.result.ending, CRunEnding::NobodyTakesPart);
    CPopProfile target;
    target = source;
    EXPECT_EQ(target.result.ending, CRunEnding::NotEnded);
    source.Reset();
    EXPECT_EQ(source.result.ending, CRunEnding::NotEnded);
}

}  // namespace
}  // namespace tarvex::testing
