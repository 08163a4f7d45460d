// Mail that was set aside is tried again: what is due, and what becomes of each answer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "host/held/held.h"
#include "host/held/held_sending.h"
#include "loopback/mail_servers.h"
#include "testing/temp_dir.h"
#include "tests/host/rules/held_mail.h"

namespace tarvex::testing {
namespace {

using host::HeldChoice;
using host::HeldOutcome;
using host::HeldRecord;
using host::HeldResult;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr CTime kMinute = 60;

// A profile with two addresses, phone (forwardto0) and office (forwardto1), and an SMTP server.
class HeldSending : public ::testing::Test {
protected:
    HeldSending() : root_(folder_.String()) {
        tree_.SetRootPath(root_);
        profile_ = tree_.CreateNewUser("taro", "", 0)->CreateNewPopProfile("", "me@example.org");
        profile_->setting.smtpserver = "127.0.0.1";
        profile_->setting.smtpport = sink_.Port();
        for (const char* const name : {"phone", "office"}) {
            profile_->CreateNewForwardAddress(name, name + std::string("@example.net"));
        }
    }

    CForwardAddress& Address(std::size_t number) const { return *profile_->forward_addresses[number]; }
    host::HeldStore Store() const { return host::HeldStore(profile_->path); }

    void Hold(const std::string& subject, const std::vector<std::size_t>& numbers,
              CRunStage stage = CRunStage::EndOfData, CFailureClass failure_class = CFailureClass::Transient,
              host::HeldKind kind = host::HeldKind::Refused) {
        HeldRecord record;
        record.digest = subject;
        record.kind = kind;
        for (const std::size_t number : numbers) {
            record.addresses.push_back(
                host::RefusedNow(*profile_, Address(number), stage, failure_class, "450 later", kNow));
        }
        ASSERT_EQ(Store().Hold(HeldText(subject), record, {}), host::HoldOutcome::Held);
    }

    // "1 forwardto0" for each that is due.
    std::vector<std::string> Due(CTime now) const {
        std::vector<std::string> due;
        for (const HeldChoice& one : host::DueHeld(*profile_, *Store().List(), now)) {
            due.push_back(std::to_string(one.id) + ' ' + one.folder);
        }
        return due;
    }

    std::vector<HeldResult> Send(const std::vector<HeldChoice>& choice, CTime now = kNow) const {
        CPopProfile copy;
        copy = *profile_;
        return host::SendHeld(copy, choice, {now, {}, memory_, 0});
    }
    std::vector<HeldResult> SendAll(CTime now = kNow) const { return Send(host::AllHeld(*Store().List()), now); }

    // The server's answer to commands that begin so.
    void Answer(const std::map<std::string, std::string>& answers) {
        sink_.SetFault([answers](const std::string& command) {
            for (const auto& [start, answer] : answers) {
                if (command.starts_with(start)) return answer;
            }
            return std::string();
        });
    }

    // "one to phone@example.net" for each that was delivered.
    std::vector<std::string> Delivered() const {
        std::vector<std::string> delivered;
        for (const auto& mail : sink_.Delivered()) {
            EXPECT_EQ(mail.recipients.size(), 1U);
            EXPECT_TRUE(mail.text.ends_with("\r\n\r\n.text\r\n")) << mail.text;
            const std::string start = "Subject: ";
            EXPECT_THAT(mail.text, StartsWith(start));
            delivered.push_back(mail.text.substr(start.size(), mail.text.find('\r') - start.size()) + " to " +
                                mail.recipients.front());
        }
        return delivered;
    }

    static std::vector<HeldOutcome> Outcomes(const std::vector<HeldResult>& results) {
        std::vector<HeldOutcome> outcomes;
        for (const HeldResult& result : results) outcomes.push_back(result.outcome);
        return outcomes;
    }

    TempDir folder_;
    std::string root_;
    loopback::SinkServer sink_;
    CRootPath tree_;
    CPopProfile* profile_ = nullptr;
    host::RuleMemory* memory_ = nullptr;
};

TEST_F(HeldSending, WhatIsTakenIsGoneWhenNoAddressWaitsAnyMore) {
    Hold("one", {0, 1});
    Hold("two", {1});
    EXPECT_THAT(Outcomes(Send({{1, "forwardto1", ""}})), ElementsAre(HeldOutcome::Taken));
    EXPECT_EQ(Store().Find(1)->addresses.size(), 1U);
    const auto results = SendAll();
    EXPECT_THAT(Outcomes(results), ElementsAre(HeldOutcome::Taken, HeldOutcome::Taken));
    EXPECT_EQ(results[0].digest, "one");
    EXPECT_EQ(results[0].address, "phone@example.net");
    EXPECT_THAT(*Store().List(), IsEmpty());
    EXPECT_THAT(Delivered(),
                ElementsAre("one to office@example.net", "one to phone@example.net", "two to office@example.net"));
    EXPECT_EQ(sink_.Received("QUIT"), 2) << "one connection for each call";
}

TEST_F(HeldSending, ARefusalKeepsTheMessageAndStopsNoOther) {
    Hold("one", {0});
    Hold("two", {0});
    Hold("three", {1});
    int ends = 0;
    sink_.SetFault([&ends](const std::string& command) {
        return command == "." && ++ends == 1 ? "451 4.3.0 too busy for this\r\n" : "";
    });
    const auto results = SendAll(kNow + 15 * kMinute);
    EXPECT_THAT(Outcomes(results), ElementsAre(HeldOutcome::Refused, HeldOutcome::Taken, HeldOutcome::Taken));
    EXPECT_EQ(sink_.Received("EHLO"), 1);
    ASSERT_THAT(Ids(*Store().List()), ElementsAre(1));
    const host::HeldAddress waiting = Store().Find(1)->addresses.front();
    EXPECT_THAT(waiting.reply, StartsWith("451 4.3.0 too busy for this"));
    EXPECT_EQ(waiting.stage, CRunStage::EndOfData);
    EXPECT_EQ(waiting.tries, 2);
    EXPECT_EQ(waiting.last_try, kNow + 15 * kMinute);
    EXPECT_EQ(waiting.next_try, kNow + 45 * kMinute);
}

TEST_F(HeldSending, APermanentRefusalIsLeftToAPerson) {
    Hold("one", {0});
    Answer({{"RCPT", "550 no such user\r\n"}});
    EXPECT_THAT(Outcomes(SendAll()), ElementsAre(HeldOutcome::Refused));
    EXPECT_EQ(Store().Find(1)->addresses.front().next_try, 0);
    EXPECT_THAT(Due(kNow + 365 * 24 * 60 * kMinute), IsEmpty());
}

TEST_F(HeldSending, AFailureOfTheServerEndsAllAndCountsAsNoTry) {
    struct Case {
        const char* command;
        const char* answer;
    };
    for (const auto& [command, answer] :
         {Case{"EHLO", "421 not now\r\n"}, Case{"MAIL", "550 not you\r\n"}, Case{"MAIL", "450 later\r\n"},
          Case{"RCPT", "421 closing\r\n"}, Case{"DATA", "close"}, Case{".", "lose"}, Case{".", "what?\r\n"}}) {
        SCOPED_TRACE(std::string(command) + ' ' + answer);
        Hold("one", {0, 1});
        Hold("two", {0});
        const auto before = *Store().List();
        Answer({{command, answer}});
        EXPECT_THAT(Outcomes(SendAll(kNow + 15 * kMinute)), ElementsAre(HeldOutcome::Failed));
        auto after = *Store().List();
        EXPECT_EQ(after[0].addresses[0].last_try, kNow + 15 * kMinute);
        after[0].addresses[0].last_try = kNow;
        for (std::size_t i = 0; i < 2; ++i) EXPECT_EQ(after[i].addresses, before[i].addresses);
        // Nothing else is tried for a while, and then all of it.
        EXPECT_THAT(Due(kNow + 30 * kMinute - 1), IsEmpty());
        EXPECT_THAT(Due(kNow + 30 * kMinute), ElementsAre("1 forwardto0", "1 forwardto1", "2 forwardto0"));
        EXPECT_TRUE(Store().Remove(1) && Store().Remove(2));
    }
}

TEST_F(HeldSending, WordsThatRefuseThreeInARowAreTheServers) {
    host::RuleMemory memory(root_, [](const std::string&) {});
    for (const bool remembers : {false, true}) {
        memory_ = remembers ? &memory : nullptr;
        for (const char* const subject : {"one", "two", "three", "four"}) Hold(subject, {0, 1});
        Answer({{".", "554 your network is listed\r\n"}});
        constexpr auto kRefused = HeldOutcome::Refused;
        constexpr auto kBlocked = HeldOutcome::Blocked;
        EXPECT_THAT(Outcomes(SendAll()), ElementsAre(kRefused, kRefused, kRefused, kRefused, kBlocked));
        EXPECT_EQ(Store().Find(2)->addresses[0].next_try, 0);
        EXPECT_EQ(Store().Find(3)->addresses[0].tries, 1) << "as it was";
        // What is due waits, and is tried with what is remembered of those words.
        const CTime later = kNow + 15 * kMinute;
        EXPECT_THAT(Due(later), ElementsAre("3 forwardto0", "3 forwardto1", "4 forwardto0", "4 forwardto1"));
        EXPECT_EQ(Outcomes(Send({{3, "forwardto0", ""}}, later)).front(), remembers ? kBlocked : kRefused);
        EXPECT_EQ(Due(later + 15 * kMinute - 1).empty(), remembers) << "nothing else is tried for a while";
        // One that goes through ends it.
        Answer({});
        EXPECT_THAT(Outcomes(Send({{1, "forwardto1", ""}}, later)), ElementsAre(HeldOutcome::Taken));
        Answer({{".", "554 your network is listed\r\n"}});
        EXPECT_THAT(Outcomes(Send({{4, "forwardto0", ""}}, later)), ElementsAre(kRefused));
        for (const int id : Ids(*Store().List())) EXPECT_TRUE(Store().Remove(id));
    }
}

TEST_F(HeldSending, AServerThatTakesOneMessageAConnectionIsAskedAgain) {
    for (const char* const subject : {"one", "two", "three"}) Hold(subject, {0});
    int senders = 0;
    sink_.SetFault([&senders](const std::string& command) {
        if (command.starts_with("EHLO")) senders = 0;
        return command.starts_with("MAIL") && ++senders == 2 ? "421 too much\r\n" : "";
    });
    EXPECT_THAT(Outcomes(SendAll()), ElementsAre(HeldOutcome::Taken, HeldOutcome::Taken, HeldOutcome::Taken));
    EXPECT_EQ(sink_.Received("EHLO"), 3);
}

TEST_F(HeldSending, WhatTheMemorySaysWasSentIsNotSentAgain) {
    host::RuleMemory memory(root_, [](const std::string&) {});
    memory_ = &memory;
    Hold("one", {0, 1});
    const CString phone = "phone@example.net";
    host::ProfileMemory remembered = memory.Of(profile_->path);
    remembered.RecordSent({&phone, 1}, memory.DigestOf(HeldText("one")), kNow);
    Answer({{"RCPT", "550 no such user\r\n"}});
    EXPECT_THAT(Outcomes(SendAll()), ElementsAre(HeldOutcome::Taken, HeldOutcome::Refused));
    EXPECT_TRUE(remembered.IsParked("office@example.net"));
    Answer({});
    EXPECT_THAT(Outcomes(SendAll()), ElementsAre(HeldOutcome::Taken));
    EXPECT_THAT(Delivered(), ElementsAre("one to office@example.net"));
    EXPECT_TRUE(remembered.WasSent("office@example.net", memory.DigestOf(HeldText("one")), kNow));
    EXPECT_FALSE(remembered.IsParked("office@example.net"));
    EXPECT_THAT(*Store().List(), IsEmpty());
}

TEST_F(HeldSending, OnlyWhatHasItsTimeIsDue) {
    Hold("one", {0, 1});
    Hold("report", {0}, CRunStage::None, CFailureClass::None, host::HeldKind::Report);
    EXPECT_THAT(Due(kNow + 15 * kMinute - 1), IsEmpty());
    EXPECT_EQ(host::NextHeldLook(*Store().List(), kNow + kMinute), kNow + 15 * kMinute);
    EXPECT_THAT(Due(kNow + 15 * kMinute), ElementsAre("1 forwardto0", "1 forwardto1"));
    Address(0).setting.status = 0;
    EXPECT_THAT(Due(kNow + 15 * kMinute), ElementsAre("1 forwardto1"));
    EXPECT_THAT(Outcomes(Send({{1, "forwardto0", ""}})), ElementsAre(HeldOutcome::NotTried));
    Address(1).setting.address = "forwardto1";
    EXPECT_EQ(Send({{1, "forwardto1", ""}}).front().why, "its address has no \"@\"");
}

TEST_F(HeldSending, AClockThatIsSetBackPutsNothingOff) {
    Hold("one", {0, 1}, CRunStage::RcptTo);
    for (const CTime back : {CTime{3600}, CTime{5} * 3600, CTime{10} * 365 * 86400}) {
        EXPECT_THAT(Due(kNow - back), ElementsAre("1 forwardto0", "1 forwardto1")) << back;
    }
    Answer({{"MAIL", "close"}});  // a try that fails as well puts it off by the new clock
    const CTime now = kNow - CTime{10} * 365 * 86400;
    SendAll(now);
    EXPECT_THAT(Due(now), IsEmpty());
    EXPECT_THAT(Due(now + 15 * kMinute), Not(IsEmpty()));
}

TEST_F(HeldSending, ARefusedRecipientIsAskedAboutOnceForAllThatWaits) {
    for (const char* const subject : {"one", "two", "three"}) Hold(subject, {0}, CRunStage::RcptTo);
    Hold("other", {1});
    const CTime later = kNow + 15 * kMinute;
    Answer({{"RCPT TO:<phone", "450 full\r\n"}});
    EXPECT_THAT(Outcomes(SendAll(later)),
                ElementsAre(HeldOutcome::Refused, HeldOutcome::NotTried, HeldOutcome::NotTried, HeldOutcome::Taken));
    EXPECT_EQ(sink_.Received("RCPT"), 2);
    EXPECT_THAT(Due(later), IsEmpty());
    EXPECT_THAT(Due(later + 30 * kMinute), ElementsAre("1 forwardto0", "2 forwardto0", "3 forwardto0"));
    // Once the server takes mail for it, the rest follows in its order.
    Answer({});
    EXPECT_THAT(Outcomes(Send({{2, "forwardto0", ""}}, later + kMinute)), ElementsAre(HeldOutcome::Taken));
    EXPECT_THAT(Due(later + kMinute), ElementsAre("1 forwardto0", "3 forwardto0"));
}

TEST_F(HeldSending, AChangedAddressOrRouteIsTriedAgainAfterAPermanentRefusal) {
    Hold("one", {0, 1}, CRunStage::RcptTo, CFailureClass::Permanent);
    const CTime later = kNow + 15 * kMinute;
    EXPECT_THAT(Due(later), IsEmpty());
    Address(0).setting.address = "new@example.net";
    EXPECT_THAT(Due(later - 1), IsEmpty());
    EXPECT_THAT(Due(later), ElementsAre("1 forwardto0"));
    EXPECT_THAT(Outcomes(Send({{1, "forwardto0", ""}}, later)), ElementsAre(HeldOutcome::Taken));
    EXPECT_THAT(Delivered(), ElementsAre("one to new@example.net"));
    profile_->setting.smtpuser = "x";
    EXPECT_THAT(Due(later), IsEmpty()) << "without a login the user does not matter";
    profile_->setting.address = "you@example.org";
    EXPECT_THAT(Due(later), ElementsAre("1 forwardto1"));
    // While the server is away, all of it waits.
    Answer({{"EHLO", "421 not now\r\n"}});
    EXPECT_THAT(Outcomes(Send({{1, "forwardto1", ""}}, later)), ElementsAre(HeldOutcome::Failed));
    EXPECT_THAT(Due(later + 15 * kMinute - 1), IsEmpty());
    EXPECT_THAT(Due(later + 15 * kMinute), ElementsAre("1 forwardto1"));
}

TEST_F(HeldSending, AnotherAddressThatCameToBeCalledTheSameGetsNothing) {
    Hold("one", {0});
    HeldRecord record = *Store().Find(1);
    record.addresses.front().made = "another";
    ASSERT_TRUE(Store().Update(record));
    EXPECT_THAT(Due(kNow + 15 * kMinute), ElementsAre("1 forwardto0")) << "a tree that was copied";
    Address(0).setting.address = "stranger@example.net";
    EXPECT_THAT(Due(kNow + 15 * kMinute), IsEmpty());
    const auto results = SendAll();
    EXPECT_THAT(Outcomes(results), ElementsAre(HeldOutcome::NotTried));
    EXPECT_EQ(results.front().why, "its address was removed");
}

TEST_F(HeldSending, IsRewrittenAsARunWouldRewriteIt) {
    profile_->setting.replacefrom = 1;
    profile_->setting.replaceto = 1;
    ASSERT_EQ(
        Store().Hold("\r\nFrom: a@example.com\r\nTo: b@example.com\r\n\r\n..text\r\n.\r\n",
                     [&] {
                         HeldRecord record;
                         record.digest = "a";
                         for (const std::size_t number : {0U, 1U}) {
                             record.addresses.push_back(host::RefusedNow(*profile_, Address(number), CRunStage::Data,
                                                                         CFailureClass::Permanent, "", kNow));
                         }
                         return record;
                     }(),
                     {}),
        host::HoldOutcome::Held);
    SendAll();
    std::vector<std::string> texts;
    for (const auto& mail : sink_.Delivered()) texts.push_back(mail.text);
    EXPECT_THAT(texts, ElementsAre("From: me@example.org\r\nTo: phone@example.net\r\n\r\n.text\r\n",
                                   "From: me@example.org\r\nTo: office@example.net\r\n\r\n.text\r\n"));
}

}  // namespace
}  // namespace tarvex::testing
