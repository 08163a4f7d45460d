// What a guard decides in a run: both conversations word for word, what is logged, what is told and what is on disk.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/os/system.h"
#include "tests/support/conversation.h"
#include "tests/support/forwarding.h"

namespace tarvex::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

// A guard whose answers are given one by one; those that are not are the defaults. It notes what it is told.
struct TestGuard : CRunGuard {
    std::optional<bool> begins, listed, goes_on, delivers_after;
    bool wants_sizes = false;
    std::function<bool(const CMailOnServer&, bool)> is_handled;
    std::function<bool(const CMailOnServer&)> deletes;
    std::function<bool(const CMailOnServer&)> comes_last;
    std::function<std::optional<CString>(const CMailOnServer&)> kept;
    std::function<bool(const CMailOnServer&, std::int64_t)> fetches;
    std::function<CSending(const CReceiveMail&, const CForwardAddress&, bool)> sends;
    std::function<bool(const CReceiveMail&, const CForwardAddress&)> offers;
    std::function<CRefusal(const CForwardAddress&, const CRunFailure&)> refused;
    int header_bytes = 0;
    int end_of_data_s = 0;
    std::function<void(CSmtpAccount&)> changes_account;
    std::vector<std::string> told;

    CSmtpAccount SendsThrough(const CPopProfile& p) override {
        CSmtpAccount account = CRunGuard::SendsThrough(p);
        if (changes_account) changes_account(account);
        return account;
    }
    bool Begins(const CPopProfile& p) override { return begins.value_or(CRunGuard::Begins(p)); }
    bool Listed(const CPopProfile& p, std::span<const CMailOnServer> listing) override {
        for (const CMailOnServer& mail : listing) told.push_back("listed " + std::string(mail.uidl));
        return listed.value_or(CRunGuard::Listed(p, listing));
    }
    bool IsHandled(const CPopProfile& p, const CMailOnServer& mail, bool received) override {
        return is_handled ? is_handled(mail, received) : CRunGuard::IsHandled(p, mail, received);
    }
    bool Deletes(const CPopProfile& p, const CMailOnServer& mail) override {
        return deletes ? deletes(mail) : CRunGuard::Deletes(p, mail);
    }
    bool GoesOnAfter(const CPopProfile& p, const CRunFailure& refused_deletion) override {
        told.push_back("not deleted " + refused_deletion.uidl + ": " + refused_deletion.reply);
        return goes_on.value_or(CRunGuard::GoesOnAfter(p, refused_deletion));
    }
    bool WantsSizes(const CPopProfile& p) override { return wants_sizes || CRunGuard::WantsSizes(p); }
    bool ComesLast(const CPopProfile& p, const CMailOnServer& mail) override {
        return comes_last ? comes_last(mail) : CRunGuard::ComesLast(p, mail);
    }
    std::optional<CString> Kept(const CPopProfile& p, const CMailOnServer& mail) override {
        return kept ? kept(mail) : CRunGuard::Kept(p, mail);
    }
    bool Fetches(const CPopProfile& p, const CMailOnServer& mail, std::int64_t held_bytes) override {
        return fetches ? fetches(mail, held_bytes) : CRunGuard::Fetches(p, mail, held_bytes);
    }
    bool DeliversAfter(const CPopProfile& p, const CRunFailure& failed) override {
        told.push_back("failed at " + failed.uidl);
        return delivers_after.value_or(CRunGuard::DeliversAfter(p, failed));
    }
    CSending Sends(const CPopProfile& p, const CReceiveMail& mail, const CForwardAddress& to, bool received) override {
        return sends ? sends(mail, to, received) : CRunGuard::Sends(p, mail, to, received);
    }
    bool Offers(const CPopProfile& p, const CReceiveMail& mail, const CForwardAddress& to) override {
        return offers ? offers(mail, to) : CRunGuard::Offers(p, mail, to);
    }
    int TextMailHeaderBytes(const CPopProfile& p) override {
        return header_bytes != 0 ? header_bytes : CRunGuard::TextMailHeaderBytes(p);
    }
    int EndOfDataSeconds(const CPopProfile& p) override {
        return end_of_data_s != 0 ? end_of_data_s : CRunGuard::EndOfDataSeconds(p);
    }
    CRefusal Refused(const CPopProfile& p, const CReceiveMail& mail, const CForwardAddress& to,
                     const CRunFailure& refusal) override {
        told.push_back("refused " + mail.uidl + " " + to.setting.address + " " +
                       std::to_string(static_cast<int>(refusal.stage)) + ": " + refusal.reply);
        return refused ? refused(to, refusal) : CRunGuard::Refused(p, mail, to, refusal);
    }
    void Taken(const CPopProfile& p, const CReceiveMail& mail, std::span<CForwardAddress* const> to,
               std::string_view reply) override {
        for (const CForwardAddress* address : to) {
            told.push_back("taken " + mail.uidl + " " + address->setting.address + ": " + std::string(reply));
        }
        CRunGuard::Taken(p, mail, to, reply);
    }
    void NotReached(const CPopProfile& p, std::span<CReceiveMail* const> mails) override {
        for (const CReceiveMail* mail : mails)
            told.push_back("not reached " + mail->uidl + " of " + std::to_string(mail->listed_bytes));
        CRunGuard::NotReached(p, mails);
    }
};

CRefusal HoldIt(const CForwardAddress& /*to*/, const CRunFailure& /*refusal*/) { return CRefusal::HostHasIt; }

constexpr const char* kMail = "S: \nS: Subject: x\nS: \nS: text\nS: .\n";

std::string Retr(const std::string& number) { return "C: RETR " + number + "\nS: +OK\n" + kMail; }

// The POP3 script of a mailbox with these ids: what is said from the answer to UIDL on.
std::string Mailbox(const Ids& ids, const std::string& rest) {
    std::string script = "S: +OK\nC: USER alice\nS: +OK\nC: PASS secret\nS: +OK\nC: UIDL\nS: +OK\n";
    for (std::size_t i = 0; i < ids.size(); ++i) script += "S: " + std::to_string(i + 1) + " " + ids[i] + "\n";
    return script + "S: .\n" + rest;
}

constexpr const char* kPopQuit = "C: QUIT\nS: +OK\n";
constexpr const char* kOpening = "S: 220 ready\nC: EHLO {host}\nS: 250 fine\n";
constexpr const char* kSmtpQuit = "C: QUIT\nS: 221 bye\n";
constexpr const char* kSender = "C: MAIL FROM:<me@example.org>\nS: 250 fine\n";
constexpr const char* kData = "C: DATA\nS: 354 go on\nC: (message)\nS: 250 taken\n";

std::string Rcpt(const std::string& name, const std::string& reply = "250 fine") {
    return "C: RCPT TO:<" + name + "@x>\nS: " + reply + "\n";
}
std::string Sent(const std::string& name) { return kSender + Rcpt(name) + kData; }

// A run of a profile with addresses a@x, b@x, ... between two scripted servers.
struct GuardedRun {
    DataTree tree;
    TestGuard guard;
    CPopProfile copy;
    std::vector<Ids> lists;  // of the addresses: before the run, then after it
    std::vector<int> textonly;
    bool deletemail = false;
    int timeout = kAmpleTimeOut_s;

    // Without an SMTP script nobody may connect there.
    void RunBetween(const std::string& pop_script, const std::string& smtp_script = "") {
        Conversation pop(pop_script);
        std::optional<Conversation> smtp;
        if (!smtp_script.empty()) smtp.emplace(smtp_script);
        CPopProfile& profile = tree.AddProfile(pop.Port(), smtp ? smtp->Port() : UnusedPort());
        profile.setting.deletemail = deletemail ? 1 : 0;
        profile.setting.timeout = timeout;
        for (std::size_t i = 0; i < lists.size(); ++i) {
            CForwardAddress& address = AddAddress(profile, std::string(1, static_cast<char>('a' + i)) + "@x");
            address.setting.textonly = i < textonly.size() ? textonly[i] : 0;
            WriteUidls(address, lists[i]);
        }
        copy = profile;
        copy.guard = &guard;
        copy.DoOperation();
        EXPECT_EQ(pop.Transcript(), Conversation::Expected(pop_script));
        EXPECT_EQ(smtp ? smtp->Transcript() : "", Conversation::Expected(smtp_script));
        for (std::size_t i = 0; i < lists.size(); ++i) lists[i] = UidlsOnDisk(*copy.forward_addresses[i]);
    }

    CRunEnding Ending() const { return copy.result.ending; }
};

class Guard : public ::testing::Test, public GuardedRun {};

TEST_F(Guard, OfDefaultsIsToldWhatTheServerTook) {
    lists = {{}, {}};
    RunBetween(Mailbox({"m"}, Retr("1") + kPopQuit),
               std::string(kOpening) + kSender + Rcpt("a") + Rcpt("b") + kData + kSmtpQuit);
    EXPECT_EQ(Ending(), CRunEnding::Delivered);
    EXPECT_THAT(guard.told, ElementsAre("listed m", "taken m a@x: 250 taken", "taken m b@x: 250 taken"));
}

TEST_F(Guard, MaySendThroughAnotherAccountThatIsSavedNowhere) {
    lists = {{}};
    guard.changes_account = [](CSmtpAccount& account) {
        EXPECT_EQ(account.user, "alice") << "the profile's own, with the login of POP3";
        account.user = "relay";
        account.password = "pw";
        account.logs_in = true;
        account.method = 1;
    };
    RunBetween(Mailbox({"m"}, Retr("1") + kPopQuit),
               "S: 220 ready\nC: EHLO {host}\nS: 250-fine\nS: 250-AUTH PLAIN\nS: 250 8BITMIME\nC: AUTH PLAIN\n"
               "S: 334 \nC: cmVsYXkAcmVsYXkAcHc=\nS: 235 in\n" +
                   Sent("a") + kSmtpQuit);
    EXPECT_EQ(Ending(), CRunEnding::Delivered);
    CPopProfileSetting saved;
    ASSERT_EQ(saved.Load(copy.path), 1);
    EXPECT_EQ(saved.smtpuser + saved.smtppassword, "");
    EXPECT_EQ(saved.smtpauth, 0);
}

TEST_F(Guard, MayKeepARunFromBeginning) {
    lists = {{"x"}};
    guard.begins = false;
    const ScriptedServer nobody([](Peer&) {});
    CPopProfile& profile = tree.AddProfile(nobody.Port(), nobody.Port());
    WriteUidls(AddAddress(profile, "a@x"), lists[0]);
    ASSERT_EQ(StartRun(tree.root, profile, &guard), CStartResult::Started);
    tree.root.WaitThread(-1);
    EXPECT_EQ(tree.root.running_copies[0]->result.ending, CRunEnding::KeptBack);
    EXPECT_EQ(nobody.Connections(), 0);
    EXPECT_THAT(UidlsOnDisk(*profile.forward_addresses[0]), ElementsAre("x"));
}

TEST_F(Guard, OfTheRootDecidesInTheRunsOfTheEntry) {
    guard.begins = false;
    CPopProfile& profile = tree.AddProfile(UnusedPort(), UnusedPort());
    AddAddress(profile, "a@x");
    tree.root.guard = &guard;
    Tarvex(&tree.root);
    tree.root.WaitThread(-1);
    ASSERT_EQ(tree.root.running_copies.size(), 1U);
    EXPECT_EQ(tree.root.running_copies[0]->result.ending, CRunEnding::KeptBack);
}

TEST_F(Guard, MayEndARunBeforeAnythingIsDeletedOrFetched) {
    lists = {{"gone", "m"}};
    deletemail = true;
    guard.listed = false;
    RunBetween(Mailbox({"m", "n"}, kPopQuit));
    EXPECT_EQ(Ending(), CRunEnding::KeptBack);
    EXPECT_EQ(copy.result.messages_listed, 2);
    EXPECT_THAT(lists[0], ElementsAre("gone", "m"));
}

TEST_F(Guard, MayHaveAHandledMessageFetched) {
    lists = {{"m"}};
    guard.is_handled = [](const CMailOnServer&, bool received) { return !received; };
    guard.sends = [](const CReceiveMail&, const CForwardAddress&, bool) { return CSending::Send; };
    RunBetween(Mailbox({"m", "n"}, Retr("1") + kPopQuit), kOpening + Sent("a") + kSmtpQuit);
    EXPECT_THAT(lists[0], ElementsAre("m"));
}

TEST_F(Guard, MayLeaveAHandledMessageOnTheServer) {
    lists = {{"m", "n"}};
    deletemail = true;
    guard.deletes = [](const CMailOnServer& mail) { return mail.uidl != "m"; };
    RunBetween(Mailbox({"m", "n"}, std::string("C: DELE 2\nS: +OK\n") + kPopQuit));
    EXPECT_THAT(lists[0], ElementsAre("m"));
}

TEST_F(Guard, MayGoOnAfterARefusedDeletion) {
    lists = {{"m"}};
    deletemail = true;
    guard.goes_on = true;
    RunBetween(Mailbox({"m", "n"}, "C: DELE 1\nS: -ERR read-only\n" + Retr("2") + kPopQuit),
               kOpening + Sent("a") + kSmtpQuit);
    EXPECT_EQ(Ending(), CRunEnding::Delivered);
    EXPECT_THAT(guard.told,
                ElementsAre("listed m", "listed n", "not deleted m: -ERR read-only", "taken n a@x: 250 taken"));
    EXPECT_EQ(copy.result.mailbox.stage, CRunStage::None);
    EXPECT_THAT(lists[0], ElementsAre("m", "n"));
}

TEST_F(Guard, IsNotAskedAboutADeletionThatHadNoAnswer) {
    lists = {{"m"}};
    deletemail = true;
    guard.goes_on = true;
    RunBetween(Mailbox({"m"}, "C: DELE 1\nS: (closed)\n"));
    EXPECT_EQ(Ending(), CRunEnding::MailboxFailed);
    EXPECT_THAT(guard.told, ElementsAre("listed m"));
}

TEST_F(Guard, ChoosesWhatIsFetchedLastAndNotAtAllByTheSizes) {
    lists = {{}};
    guard.wants_sizes = true;
    guard.comes_last = [](const CMailOnServer& mail) { return mail.uidl == "m"; };
    guard.fetches = [this](const CMailOnServer& mail, std::int64_t held_bytes) {
        guard.told.push_back(std::string(mail.uidl) + " of " + std::to_string(mail.size_bytes) + " beside " +
                             std::to_string(held_bytes));
        return mail.size_bytes < 1000;
    };
    RunBetween(
        Mailbox({"m", "n", "o"}, "C: LIST\nS: +OK\nS: 3 9999\nS: 1 30\nS: .\n" + Retr("2") + Retr("1") + kPopQuit),
        kOpening + Sent("a") + Sent("a") + kSmtpQuit);
    EXPECT_THAT(guard.told, ElementsAre("listed m", "listed n", "listed o", "n of -1 beside 0", "o of 9999 beside 27",
                                        "m of 30 beside 27", "taken n a@x: 250 taken", "taken m a@x: 250 taken"));
    EXPECT_EQ(copy.result.messages_put_off, 1);
    EXPECT_EQ(copy.result.messages_not_fetched, 0);
    EXPECT_THAT(lists[0], ElementsAre("n", "m"));
}

TEST_F(Guard, KnowsTheSizesBeforeAnythingIsDeleted) {
    lists = {{"m", "n"}};
    deletemail = true;
    guard.wants_sizes = true;
    guard.is_handled = [](const CMailOnServer& mail, bool received) { return received && mail.size_bytes != 20; };
    guard.sends = [](const CReceiveMail&, const CForwardAddress&, bool) { return CSending::Send; };
    RunBetween(
        Mailbox({"m", "n"}, "C: LIST\nS: +OK\nS: 1 20\nS: 2 30\nS: .\nC: DELE 2\nS: +OK\n" + Retr("1") + kPopQuit),
        kOpening + Sent("a") + kSmtpQuit);
    EXPECT_EQ(Ending(), CRunEnding::Delivered);
}

TEST_F(Guard, DoesNotAskForSizesWhereNothingIsNew) {
    lists = {{"m"}};
    deletemail = true;
    guard.deletes = [](const CMailOnServer&) { return false; };
    guard.wants_sizes = true;
    RunBetween(Mailbox({"m"}, kPopQuit));
    EXPECT_EQ(Ending(), CRunEnding::NothingNew);
}

TEST_F(Guard, IsNotBlamedOnAMessageWhenTheServerDoesNotTellTheSizes) {
    lists = {{}};
    timeout = kStallTimeOut_s;
    guard.wants_sizes = true;
    RunBetween(Mailbox({"m"}, "C: LIST\nC: (closed)\n"));
    EXPECT_EQ(Ending(), CRunEnding::MailboxFailed);
    EXPECT_EQ(copy.result.mailbox.stage, CRunStage::List);
    EXPECT_EQ(copy.result.mailbox.failure_class, CFailureClass::TimeOut);
    EXPECT_THAT(copy.result.not_fetched, IsEmpty());
}

TEST_F(Guard, MayHaveDeliveredWhatCameBeforeAStall) {
    lists = {{}};
    timeout = kStallTimeOut_s;
    guard.delivers_after = true;
    RunBetween(Mailbox({"m", "n"}, Retr("1") + "C: RETR 2\nS: +OK\nS: half\nC: (closed)\n"),
               kOpening + Sent("a") + kSmtpQuit);
    EXPECT_EQ(Ending(), CRunEnding::Delivered);
    EXPECT_EQ(copy.result.mailbox.uidl, "n");
    EXPECT_THAT(guard.told, ElementsAre("listed m", "listed n", "failed at n", "taken m a@x: 250 taken"));
    EXPECT_THAT(lists[0], ElementsAre("m"));
}

TEST_F(Guard, SaysForEachAddressWhetherAMessageIsSent) {
    lists = {{}, {}, {"m"}};
    guard.sends = [](const CReceiveMail&, const CForwardAddress& to, bool received) {
        EXPECT_EQ(received, to.setting.address == "c@x");
        if (to.setting.address == "a@x") return CSending::HasIt;
        return to.setting.address == "b@x" ? CSending::KeepBack : CSending::Send;
    };
    RunBetween(Mailbox({"m"}, Retr("1") + kPopQuit), kOpening + Sent("c") + kSmtpQuit);
    EXPECT_THAT(lists, ElementsAre(ElementsAre("m"), IsEmpty(), ElementsAre("m")));
}

TEST_F(Guard, MessageThatItKeepsFromEverybodyDoesNotGoToTheServer) {
    lists = {{}, {}};
    guard.sends = [](const CReceiveMail&, const CForwardAddress&, bool) { return CSending::HasIt; };
    RunBetween(Mailbox({"m"}, Retr("1") + kPopQuit));
    EXPECT_EQ(Ending(), CRunEnding::NothingNew);
    EXPECT_THAT(lists, ElementsAre(ElementsAre("m"), ElementsAre("m")));
}

TEST_F(Guard, MaySendTheSecondOfTwoMessagesWithOneId) {
    lists = {{}};
    guard.sends = [](const CReceiveMail&, const CForwardAddress&, bool) { return CSending::Send; };
    RunBetween(Mailbox({"m", "m"}, Retr("1") + Retr("2") + kPopQuit), kOpening + Sent("a") + Sent("a") + kSmtpQuit);
    EXPECT_THAT(lists[0], ElementsAre("m"));
}

TEST_F(Guard, KeptBackMessageIsNewForTheSecondOfItsId) {
    lists = {{}};
    int asked = 0;
    guard.sends = [&asked](const CReceiveMail&, const CForwardAddress&, bool received) {
        EXPECT_FALSE(received);
        return ++asked == 1 ? CSending::KeepBack : CSending::AsAlways;
    };
    RunBetween(Mailbox({"m", "m"}, Retr("1") + Retr("2") + kPopQuit), kOpening + Sent("a") + kSmtpQuit);
    EXPECT_EQ(asked, 2);
    EXPECT_THAT(lists[0], ElementsAre("m"));
}

// One message without RETR, in its turn.
TEST_F(Guard, MayHaveAMessageThatIsNotFetchedAgain) {
    lists = {{"old"}};
    deletemail = guard.wants_sizes = true;
    guard.kept = [this](const CMailOnServer& mail) -> std::optional<CString> {
        guard.told.push_back("kept " + std::string(mail.uidl) + " of " + std::to_string(mail.size_bytes));
        return mail.uidl == "n" ? std::optional<CString>("\r\nSubject: kept\r\n\r\ntext\r\n.\r\n") : std::nullopt;
    };
    guard.fetches = [this](const CMailOnServer& mail, std::int64_t held_bytes) {
        guard.told.push_back("fetches " + std::string(mail.uidl) + " beside " + std::to_string(held_bytes));
        return mail.uidl != "o";
    };
    const std::string data = "C: DATA\nS: 354 go on\nC: Subject: kept\nC: \nC: text\nC: .\nS: 250 taken\n";
    RunBetween(
        Mailbox({"old", "m", "n", "o"}, "C: LIST\nS: +OK\nS: 3 30\nS: .\nC: DELE 1\nS: +OK\n" + Retr("2") + kPopQuit),
        kOpening + Sent("a") + kSender + Rcpt("a") + data + kSmtpQuit);
    EXPECT_THAT(guard.told, ElementsAre("listed old", "listed m", "listed n", "listed o", "kept m of -1",
                                        "fetches m beside 0", "kept n of 30", "kept o of -1", "fetches o beside 55",
                                        "taken m a@x: 250 taken", "taken n a@x: 250 taken"));
    EXPECT_THAT(LogText(copy), HasSubstr("m received\n* kept : n\nQUIT\n"));
    EXPECT_EQ(copy.result.messages_fetched, 2);
    EXPECT_EQ(copy.result.messages_kept, 1);
    EXPECT_EQ(copy.result.messages_put_off, 1);
    EXPECT_EQ(copy.result.messages_not_fetched, 0);
    EXPECT_EQ(copy.observer.messages_fetched, 2);
    EXPECT_THAT(lists[0], ElementsAre("m", "n"));
}

TEST_F(Guard, IsToldWhatTheDeliveryDidNotReach) {
    lists = {{}};
    guard.wants_sizes = true;
    RunBetween(Mailbox({"m", "n", "o"},
                       "C: LIST\nS: +OK\nS: 1 30\nS: 2 40\nS: .\n" + Retr("1") + Retr("2") + Retr("3") + kPopQuit),
               kOpening + Sent("a") + "C: MAIL FROM:<me@example.org>\nS: 421 enough\n" + kSmtpQuit);
    EXPECT_EQ(Ending(), CRunEnding::DeliveryFailed);
    EXPECT_THAT(guard.told, ElementsAre("listed m", "listed n", "listed o", "taken m a@x: 250 taken",
                                        "not reached n of 40", "not reached o of -1"));
    EXPECT_THAT(lists[0], ElementsAre("m"));
}

// The refusals.

TEST_F(Guard, TakesOverARefusedRecipientAndTheOthersGetTheMessage) {
    lists = {{}, {}, {}};
    guard.refused = HoldIt;
    RunBetween(Mailbox({"m"}, Retr("1") + kPopQuit),
               std::string(kOpening) + kSender + Rcpt("a") + Rcpt("b", "550 unknown") + Rcpt("c") + kData + kSmtpQuit);
    EXPECT_EQ(Ending(), CRunEnding::Delivered);
    EXPECT_THAT(guard.told, ElementsAre("listed m", "refused m b@x 9: 550 unknown", "taken m a@x: 250 taken",
                                        "taken m c@x: 250 taken"));
    EXPECT_EQ(copy.result.delivery.stage, CRunStage::None);
    EXPECT_EQ(copy.result.copies, 2);
    EXPECT_EQ(copy.result.copies_set_aside, 1);
    EXPECT_EQ(copy.result.messages_delivered, 0);
    EXPECT_THAT(lists, ElementsAre(ElementsAre("m"), ElementsAre("m"), ElementsAre("m")));
    EXPECT_THAT(LogText(copy), HasSubstr("RCPT TO:<b@x>\n550 unknown\n* set aside : b@x\nRCPT TO:<c@x>\n"));
}

TEST_F(Guard, RefusalOfEveryRecipientIsFollowedByRsetAndTheNextMessage) {
    lists = {{}, {}};
    guard.refused = [](const CForwardAddress&, const CRunFailure& refusal) {
        return refusal.uidl == "m" ? CRefusal::HostHasIt : CRefusal::EndDelivery;
    };
    RunBetween(Mailbox({"m", "n"}, Retr("1") + Retr("2") + kPopQuit),
               std::string(kOpening) + kSender + Rcpt("a", "450 later") + Rcpt("b", "550 no") +
                   "C: RSET\nS: 250 fine\n" + kSender + Rcpt("a") + Rcpt("b") + kData + kSmtpQuit);
    EXPECT_EQ(copy.result.copies_set_aside, 2);
    EXPECT_EQ(copy.result.messages_delivered, 1);
    EXPECT_THAT(lists[1], ElementsAre("m", "n"));
}

class GuardAtStages : public Guard, public ::testing::WithParamInterface<int> {};

// The message goes to all at once, or to each on its own.
INSTANTIATE_TEST_SUITE_P(Ways, GuardAtStages, ::testing::Values(0, -1),
                         [](const auto& way) { return way.param == 0 ? "Together" : "OneByOne"; });

TEST_P(GuardAtStages, TakesOverARefusedMessage) {
    lists = {{}};
    textonly = {GetParam()};
    guard.refused = HoldIt;
    const std::string begin = std::string(kSender) + Rcpt("a");
    const std::string reset = "C: RSET\nS: 250 fine\n";
    RunBetween(Mailbox({"k", "l", "m", "n"}, Retr("1") + Retr("2") + Retr("3") + Retr("4") + kPopQuit),
               std::string(kOpening) + kSender + Rcpt("a", "550 no") + reset + begin + "C: DATA\nS: 552 too much\n" +
                   reset + begin + "C: DATA\nS: 354 go on\nC: (message)\nS: 554 spam\n" + reset + Sent("a") +
                   kSmtpQuit);
    EXPECT_EQ(Ending(), CRunEnding::Delivered);
    EXPECT_THAT(guard.told,
                ElementsAre("listed k", "listed l", "listed m", "listed n", "refused k a@x 9: 550 no",
                            "refused l a@x 10: 552 too much", "refused m a@x 11: 554 spam", "taken n a@x: 250 taken"));
    EXPECT_EQ(copy.result.copies_set_aside, 3);
    EXPECT_THAT(lists[0], ElementsAre("k", "l", "m", "n"));
}

TEST_P(GuardAtStages, ThatDoesNotTakeARefusalOverEndsTheDelivery) {
    lists = {{}, {}};
    textonly = {GetParam(), GetParam()};
    guard.refused = [](const CForwardAddress& to, const CRunFailure&) {
        return to.setting.address == "a@x" ? CRefusal::HostHasIt : CRefusal::EndDelivery;
    };
    const std::string between = GetParam() == 0 ? "" : std::string("C: RSET\nS: 250 fine\n") + kSender;
    RunBetween(Mailbox({"m"}, Retr("1") + kPopQuit),
               kOpening + (kSender + Rcpt("a", "550 no")) + between + Rcpt("b", "551 no") + kSmtpQuit);
    EXPECT_EQ(Ending(), CRunEnding::DeliveryFailed);
    EXPECT_EQ(copy.result.delivery.reply, "551 no");
    EXPECT_THAT(lists, ElementsAre(IsEmpty(), IsEmpty()));
}

TEST_P(GuardAtStages, MayHaveTheServerNotAsked) {
    lists = {{}, {}};
    textonly = {GetParam(), GetParam()};
    guard.offers = [](const CReceiveMail& mail, const CForwardAddress& to) {
        return mail.uidl == "n" && to.setting.address == "b@x";
    };
    RunBetween(Mailbox({"m", "n"}, Retr("1") + Retr("2") + kPopQuit), kOpening + Sent("b") + kSmtpQuit);
    EXPECT_EQ(Ending(), CRunEnding::Delivered);
    EXPECT_EQ(copy.result.copies_set_aside, 3);
    EXPECT_EQ(copy.result.copies, 1);
    EXPECT_THAT(lists, ElementsAre(ElementsAre("m", "n"), ElementsAre("m", "n")));
}

TEST_F(Guard, IsNotAskedAboutWhatIsNotTheMessagesFault) {
    for (const char* rest :
         {"C: MAIL FROM:<me@example.org>\nS: 550 not you\nC: QUIT\nS: 221 bye\n",
          "C: MAIL FROM:<me@example.org>\nS: 250 fine\nC: RCPT TO:<a@x>\nS: 421 busy\nC: QUIT\nS: 221\n",
          "C: MAIL FROM:<me@example.org>\nS: 250 fine\nC: RCPT TO:<a@x>\nS: (closed)\n",
          "C: MAIL FROM:<me@example.org>\nS: 250 fine\nC: RCPT TO:<a@x>\nS: 354 hm\nC: QUIT\nS: 221\n"}) {
        GuardedRun one;
        one.lists = {{}};
        one.guard.refused = HoldIt;
        one.RunBetween(Mailbox({"m"}, Retr("1") + kPopQuit), std::string(kOpening) + rest);
        EXPECT_EQ(one.Ending(), CRunEnding::DeliveryFailed) << rest;
        EXPECT_THAT(one.guard.told, ElementsAre("listed m", "not reached m of -1")) << rest;
        EXPECT_THAT(one.lists[0], IsEmpty());
    }
}

TEST_F(Guard, GivesTheServerMoreTimeForTheAnswerToAMessage) {
    lists = {{}};
    timeout = kStallTimeOut_s;
    guard.end_of_data_s = kAmpleTimeOut_s;
    RunBetween(Mailbox({"m"}, Retr("1") + kPopQuit), std::string(kOpening) + kSender + Rcpt("a") +
                                                         "C: DATA\nS: 354 go on\nC: (message)\nS~ " +
                                                         std::string("250 ") + std::string(70, 'x') + "\n" + kSmtpQuit);
    EXPECT_EQ(Ending(), CRunEnding::Delivered);
}

}  // namespace
}  // namespace tarvex::testing
