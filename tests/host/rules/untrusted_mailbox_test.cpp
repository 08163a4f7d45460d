// Mailboxes whose ids tell nothing, and mail that strangers make up to pass for a report or a loop.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/held/held_work.h"
#include "host/history/history.h"
#include "tests/host/rules/household.h"

namespace tarvex::testing {
namespace {

using host::NextRun;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

class UntrustedMailbox : public ::testing::Test {
protected:
    CForwardAddress& Address() { return *house.profile.forward_addresses[0]; }

    // Two of them are more than a run may hold.
    void AddLarge(const std::string& subject, std::size_t bytes = 600'000) {
        house.pop.Add({subject, "Subject: " + subject + "\r\n\r\n" + std::string(bytes, 'x') + "\r\n"});
    }

    std::string InMemoryFolder(const std::string& name) const {
        return OnDisk(house.tree.root.path) + "/.tarvex/" + name;
    }

    Household house{true};
};

// ---- without ids of their own

TEST_F(UntrustedMailbox, LargerThanARunIsForwardedToItsEndAndWhatIsNewComesFirst) {
    house.rules.runsize = 1;
    for (const bool offers_ids : {false, true}) {
        SCOPED_TRACE(offers_ids);
        house.pop.OfferUidl(offers_ids);
        const std::string prefix = offers_ids ? "t" : "u";
        for (int i = 1; i <= 4; ++i) {
            const std::string subject = prefix + std::to_string(i);
            house.pop.Add({offers_ids ? "twice" : subject,
                           "Subject: " + subject + "\r\n\r\n" + std::string(600'000, 'x') + "\r\n"});
        }
        house.Run(offers_ids ? 8 : 4);
        for (int i = 1; i <= 4; ++i) EXPECT_EQ(house.Arrived()[prefix + std::to_string(i) + " -> a@x"], 1) << i;
    }
}

TEST_F(UntrustedMailbox, WhatIsNewIsFetchedBeforeWhatWasFetchedAlready) {
    house.rules.runsize = 1;
    house.pop.OfferUidl(false);
    for (const char* const subject : {"u1", "u2", "u3"}) AddLarge(subject);
    house.Run(4);  // the fourth begins anew
    AddLarge("u4");
    house.Run();
    EXPECT_EQ(house.Arrived()["u4 -> a@x"], 1);
}

// What is deleted gives its number, and maybe its size, to another message.
TEST_F(UntrustedMailbox, AMessageThatTakesTheNumberOfAnotherComesWithinARound) {
    house.rules.runsize = 1;
    house.pop.OfferUidl(false);
    for (const char* const subject : {"u1", "u2", "u3", "u4"}) AddLarge(subject);
    house.Run(3);
    house.pop.Remove("u1");
    AddLarge("u5");
    house.Run(5);
    EXPECT_THAT(house.Arrived(), SizeIs(5));
    EXPECT_THAT(house.Arrived(), Each(::testing::Field(&Arrivals::value_type::second, 1)));
}

TEST_F(UntrustedMailbox, ARoundThatIsOverIsNotBegunAnewAtOnce) {
    house.rules.runsize = 1;
    house.pop.OfferUidl(false);
    for (const char* const subject : {"u1", "u2"}) AddLarge(subject);
    std::vector<NextRun> next;
    for (int i = 0; i < 4; ++i) {
        house.Run();
        next.push_back(house.next);
    }
    EXPECT_THAT(next, ElementsAre(NextRun::AtOnce, NextRun::WhenDue, NextRun::InAMinute, NextRun::WhenDue));
}

TEST_F(UntrustedMailbox, WaitsWhereNobodyCouldKnowLaterWhatWasSent) {
    house.pop.OfferUidl(false);
    for (const char* const name : {"sent.db", "sent.recent"}) {
        std::filesystem::create_directories(InMemoryFolder(name));
    }
    house.Add({"u1"});
    for (int i = 0; i < 2; ++i) {  // as if run by a process of its own each time
        const CRunResult result = house.Run();
        EXPECT_EQ(result.ending, CRunEnding::MailboxFailed);
        EXPECT_THAT(result.mailbox.reason, HasSubstr("1 message without an id of their own wait"));
        house.memory.reset();
    }
    EXPECT_EQ(house.pop.Received("RETR"), 0);
    for (const char* const name : {"sent.db", "sent.recent"}) std::filesystem::remove(InMemoryFolder(name));
    for (int i = 0; i < 2; ++i) {
        EXPECT_NE(house.Run().ending, CRunEnding::MailboxFailed);
        house.memory.reset();
    }
    EXPECT_THAT(house.Arrived(), UnorderedElementsAre(Pair("u1 -> a@x", 1)));
}

// The others are not blamed for the message at which the server drops the line, nor passed over for it.
TEST_F(UntrustedMailbox, WhatIsBehindAMessageThatLosesTheLineComesInTheNextRun) {
    house.pop.OfferUidl(false);
    for (const char* const subject : {"u1", "u2", "u3", "u4"}) house.Add({subject});
    house.pop.SetFault([](const std::string& said) { return said == "RETR 2" ? "close" : ""; });
    house.Run(2);
    EXPECT_THAT(house.Arrived(),
                UnorderedElementsAre(Pair("u1 -> a@x", 1), Pair("u3 -> a@x", 1), Pair("u4 -> a@x", 1)));
}

TEST_F(UntrustedMailbox, WithOtherIdsInEverySessionItIsForwardedToItsEndWithoutHaste) {
    house.rules.runsize = 1;
    std::vector<NextRun> next;
    for (int session = 1; session <= 6; ++session) {
        for (const auto& mail : house.pop.Mails()) house.pop.Remove(mail.uidl);
        for (int i = 1; i <= 4; ++i) {
            const std::string subject = "u" + std::to_string(i);
            house.pop.Add({subject + " of session " + std::to_string(session),
                           "Subject: " + subject + "\r\n\r\n" + std::string(600'000, 'x') + "\r\n"});
        }
        house.Run();
        next.push_back(house.next);
    }
    EXPECT_THAT(house.Arrived(), SizeIs(4));
    EXPECT_THAT(house.Arrived(), Each(::testing::Field(&Arrivals::value_type::second, 1)));
    EXPECT_NE(next.back(), NextRun::AtOnce) << "for ever";
}

// ---- an id that is in use already

TEST_F(UntrustedMailbox, AMessageOfAnotherSizeUnderAnIdInUseIsSentAndNotDeletedBefore) {
    for (const bool deletes : {false, true}) {
        Household one(true);
        one.profile.setting.deletemail = deletes ? 1 : 0;
        one.pop.Add({"1", Message("first")});
        one.Run();
        one.pop.Remove("1");
        one.pop.Add({"1", Message("another")});
        one.Run();
        EXPECT_EQ(one.Arrived()["another -> a@x"], deletes ? 1 : 0) << "nothing else is new, so no size is asked for";
        one.Add({"2"});
        one.Run(3);
        EXPECT_THAT(one.Arrived(),
                    UnorderedElementsAre(Pair("first -> a@x", 1), Pair("another -> a@x", 1), Pair("2 -> a@x", 1)));
        EXPECT_EQ(one.pop.Mails().size(), deletes ? 0u : 2u);
        EXPECT_EQ(one.pop.Received("RETR"), 3);
    }
}

TEST_F(UntrustedMailbox, TheOneOfTwoWithOneIdThatWasNotFetchedIsSentWhenTheOtherIsGone) {
    house.profile.setting.deletemail = 1;
    house.pop.Add({"twice", Message("first")});
    house.pop.Add({"twice", Message("and another")});
    house.pop.SetFault([](const std::string& said) { return said == "RETR 2" ? "-ERR not now" : ""; });
    house.Run(2);
    house.pop.SetFault({});
    house.pop.Remove("twice");  // the first one
    house.Run(2);
    EXPECT_THAT(house.Arrived(), UnorderedElementsAre(Pair("first -> a@x", 1), Pair("and another -> a@x", 1)));
    EXPECT_THAT(house.pop.Mails(), IsEmpty());
}

// The lists have the id since the message before.
TEST_F(UntrustedMailbox, WhatIsNewUnderAnIdReachesEverybodyAfterARunThatWasKilled) {
    Household two(true, {"a", "b"});
    two.pop.Add({"1", Message("first")});
    two.Run();
    two.pop.Remove("1");
    two.pop.Add({"1", Message("another")});
    two.Add({"2"});
    two.smtp.SetFault([](const std::string& said) { return said.starts_with("RCPT TO:<b") ? "421 later" : ""; });
    two.Run();
    for (const auto& address : two.profile.forward_addresses) WriteUidls(*address, {"1"});
    two.smtp.SetFault({});
    two.Add({"3"});
    two.Run(2);
    for (const char* const to : {"a@x", "b@x"}) EXPECT_EQ(two.Arrived()[std::string("another -> ") + to], 1) << to;
}

// ---- floods

void WriteHistory(const Household& its, int copies) {
    const CForwardAddress& address = *its.profile.forward_addresses[0];
    CRunResult past;
    past.ending = CRunEnding::Delivered;
    past.addresses.push_back({address.path, address.setting.address, copies, CSaved::Saved});
    host::HistoryWriter(its.tree.root.path, [](const std::string&) {
    }).Add(its.profile.path, {its.now - 2, its.now - 1, past});
}

TEST_F(UntrustedMailbox, ALostListOfAnAddressThatHasHadMailWaitsForAPersonWhereNothingElseIsKnown) {
    struct Case {
        const char* what;
        bool had_copies;
        bool deletes;
        bool has_list;
        bool waits;
    };
    for (const Case& one : {Case{"lost", true, false, false, true},
                            {"emptied", true, false, true, true},
                            {"lost, with deletemail", true, true, false, true},
                            {"empty as ever, with deletemail", true, true, true, false},
                            {"a new address", false, false, false, false}}) {
        SCOPED_TRACE(one.what);
        Household its(true);
        CForwardAddress& address = *its.profile.forward_addresses[0];
        its.profile.setting.deletemail = one.deletes ? 1 : 0;
        WriteHistory(its, one.had_copies ? 1 : 0);
        if (one.has_list) WriteUidls(address, {});
        for (int i = 0; i < 51; ++i) its.Add({"u" + std::to_string(i)});
        its.Run();
        EXPECT_EQ(its.Memory().IsWaiting(), one.waits);
        EXPECT_THAT(its.Arrived(), SizeIs(one.waits ? 0 : 51));
    }
}

TEST_F(UntrustedMailbox, ALostListFloodsNobodyWhereTheCopiesAreRemembered) {
    Ids ids;
    for (int i = 0; i < 51; ++i) ids.push_back("u" + std::to_string(i));
    house.Add(ids);
    house.Run();
    WriteHistory(house, 51);
    std::filesystem::remove(UidlFile(Address()));
    house.Run();
    EXPECT_FALSE(house.Memory().IsWaiting());
    EXPECT_THAT(house.Arrived(), Each(::testing::Field(&Arrivals::value_type::second, 1)));
}

TEST_F(UntrustedMailbox, TheAnswerHoldsUntilARunHasDelivered) {
    WriteUidls(Address(), {"old1", "old2"});
    for (int i = 0; i < 51; ++i) house.Add({"u" + std::to_string(i)});
    house.Run();
    ASSERT_TRUE(house.Memory().IsWaiting());
    house.Memory().Answer(host::WaitAnswer::Send, house.now);
    house.pop.SetFault([](const std::string& said) { return said.starts_with("RETR") ? "close" : ""; });
    house.Run();
    EXPECT_TRUE(house.Memory().GivenAnswer());
    house.pop.SetFault({});
    house.smtp.SetFault([](const std::string& said) { return said.starts_with("MAIL") ? "421 later" : ""; });
    house.Run();
    EXPECT_TRUE(house.Memory().GivenAnswer());
    house.smtp.SetFault({});
    house.Run();
    EXPECT_THAT(house.Arrived(), SizeIs(51));
    EXPECT_FALSE(house.Memory().GivenAnswer());
}

// ---- reports and loops

std::string Report(int number) {
    return "Return-Path: <>\r\nSubject: bounce\r\nAuto-Submitted: auto-replied\r\nX-Number: " + std::to_string(number) +
           "\r\nContent-Type: multipart/report; report-type=delivery-status; boundary=b\r\n\r\n--b\r\n"
           "Content-Type: message/delivery-status\r\n\r\nFinal-Recipient: rfc822; a@x\r\nStatus: 5.1.1\r\n--b--\r\n";
}

TEST_F(UntrustedMailbox, ReportsOverTheirShareStayOnTheServerAndKeepNothingBack) {
    house.rules.heldmessages = 8;
    house.profile.setting.deletemail = 1;
    for (int i = 0; i < 5; ++i) house.pop.Add({"r" + std::to_string(i), Report(i)});
    house.smtp.SetJudge(
        [](const DeliveredMail& mail) { return mail.text.find("Subject: bad") == std::string::npos ? "" : "554 no"; });
    house.Add({"good1", "bad"});
    house.Run();
    EXPECT_THAT(house.Arrived(), UnorderedElementsAre(Pair("good1 -> a@x", 1)));
    EXPECT_THAT(house.Held(), ElementsAre("r0 -> a@x: ", "r1 -> a@x: ", "bad -> a@x: 554 no"));
    house.Add({"good2"});
    house.Run(2);
    EXPECT_EQ(house.Arrived()["good2 -> a@x"], 1);
    EXPECT_EQ(house.pop.Received("RETR"), 8) << "none of those that are left is fetched again";
    EXPECT_THAT(house.pop.Mails(), SizeIs(3)) << "nor is one deleted";
    EXPECT_THAT(house.Memory().Notes(host::Matter::Left), SizeIs(1)) << "a person can see it";

    ASSERT_TRUE(host::HeldStore(house.profile.path).Remove(1));
    house.Run();
    EXPECT_THAT(house.Held(), ElementsAre("r1 -> a@x: ", "bad -> a@x: 554 no", "r2 -> a@x: "));
    house.memory->Save(house.now);
    house.memory.reset();
    std::filesystem::remove_all(InMemoryFolder(""));
    house.Run();
    EXPECT_THAT(house.pop.Mails(), SizeIs(2)) << "not even when the memory is lost";
    EXPECT_EQ(house.smtp.Delivered().size(), 2u);
}

TEST_F(UntrustedMailbox, WhatIsLeftIsLookedAtAgainADayLaterAfterWhatIsNew) {
    house.rules.heldmessages = 4;
    for (int i = 0; i < 3; ++i) house.pop.Add({"r" + std::to_string(i), Report(i)});
    house.Run();
    EXPECT_EQ(house.pop.Received("RETR"), 3);
    house.now += 24 * kHour;
    house.Run();
    EXPECT_EQ(house.pop.Received("RETR"), 5);
    house.Run();
    EXPECT_EQ(house.pop.Received("RETR"), 5);
}

// As it comes to the mailbox, which is on mx.
std::string Letter(const std::string& subject, const std::string& trace) {
    return trace + "From: b@y\r\nDate: Sun, 22 Nov 2026 08:00:00 +0000\r\nMessage-ID: <1@y>\r\nSubject: " + subject +
           "\r\n\r\ntext\r\n";
}

TEST_F(UntrustedMailbox, AForgedMessageKeepsNoOtherFromBeingSentAndARealLoopIsCaught) {
    const std::string real = "Received: by mx; id 2\r\nReceived: by y\r\n";
    house.pop.Add({"u1", Letter("forged", "Received: by mx; id 1\r\nReceived: by y\r\n")});
    house.Run();
    house.pop.Add({"u2", Letter("real", real)});
    house.Run();
    house.pop.Add({"u3", Letter("looped", "Received: by mx; id 3\r\nReceived: by tarvex\r\n" + real)});
    house.Run();
    EXPECT_THAT(house.Arrived(), UnorderedElementsAre(Pair("forged -> a@x", 1), Pair("real -> a@x", 1)));
    EXPECT_THAT(house.Held(), ElementsAre("u3 -> a@x: "));
}

TEST_F(UntrustedMailbox, AReportThatIsFetchedInEveryRunCountsOnce) {
    house.pop.OfferUidl(false);
    house.pop.Add({"r", Report(1)});
    house.Run(3);
    EXPECT_EQ(house.Memory().Notes(host::Matter::Bouncing)["a@x"].count, 1);
}

TEST_F(UntrustedMailbox, ALoopIsCaughtWithoutIds) {
    house.pop.OfferUidl(false);
    const std::string real = "Received: by mx; id 2\r\nReceived: by y\r\n";
    house.pop.Add({"u1", Letter("real", real)});
    house.Run();
    house.pop.Add({"u2", Letter("looped", "Received: by mx; id 3\r\nReceived: by tarvex\r\n" + real)});
    house.Run(3);
    EXPECT_THAT(house.Arrived(), UnorderedElementsAre(Pair("real -> a@x", 1)));
    EXPECT_THAT(house.Held(), SizeIs(1));
}

TEST_F(UntrustedMailbox, WhatWasDroppedDoesNotComeBack) {
    for (const bool offers_ids : {false, true}) {
        SCOPED_TRACE(offers_ids);
        Household its(true);
        std::ofstream(OnDisk(its.tree.root.path) + "/host.def");
        its.pop.OfferUidl(offers_ids);
        its.smtp.SetJudge([](const DeliveredMail&) { return "554 no"; });
        its.pop.Add({"twice", Message("first")});
        its.pop.Add({"twice", Message("second")});
        its.Run();
        const host::HeldStore store(its.profile.path);
        ASSERT_EQ(its.Held().size(), 2u);
        host::Reply reply;
        EXPECT_EQ(host::DropHeld(its.tree.root, its.profile.path, host::AllHeld(*store.List()), *its.memory, reply), 0);
        its.Run();
        EXPECT_THAT(its.Held(), IsEmpty());
    }
}

}  // namespace
}  // namespace tarvex::testing
