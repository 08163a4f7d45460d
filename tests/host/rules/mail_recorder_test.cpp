// What is written down of each message: what became of every copy, in the server's words.

#include "host/trace/mail_recorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/host/rules/household.h"

namespace tarvex::testing {
namespace {

using host::CopyFate;
using host::MailRecorder;
using host::Milliseconds;
using host::TracedCopy;
using host::TracedMail;
using host::TraceOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr const char* kTaken = "sent, 250 2.0.0 taken";

std::string Refusal(const DeliveredMail& mail) {
    return mail.text.find("Subject: bad\r\n") == std::string::npos ? "" : "554 5.7.1 not that";
}

TEST(MailRecorder, TellsWhatTheServerAnsweredForEachAddress) {
    for (const bool with_rules : {true, false}) {
        Household house(with_rules, {"a", "b"});
        house.Add({"u1"});
        house.Run();
        EXPECT_THAT(house.Traced(),
                    ElementsAre(std::string("u1 -> a@x: ") + kTaken, std::string("u1 -> b@x: ") + kTaken));
        EXPECT_GT(house.traced.front().bytes, 0);
        EXPECT_GT(house.traced.front().fetched, 0);
        EXPECT_GT(house.traced.front().copies.front().offered, 0);
        EXPECT_EQ(Utf8FromText(HeadlinesOf(house.traced.front().header).subject), "u1");
        house.Run();
        EXPECT_THAT(house.Traced(), IsEmpty()) << "nothing has come";
    }
}

TEST(MailRecorder, TellsWhyTheRestWaits) {
    Household house(false);
    house.smtp.SetJudge(Refusal);
    house.Add({"bad", "u2"});
    house.Run();
    EXPECT_THAT(house.Traced(),
                ElementsAre("bad -> a@x: waits, 554 5.7.1 not that", "u2 -> a@x: waits, 554 5.7.1 not that"));
}

TEST(MailRecorder, TellsWhatIsSetAside) {
    Household house(true);
    house.smtp.SetJudge(Refusal);
    house.Add({"bad", "u2"});
    house.Run();
    EXPECT_THAT(house.Traced(),
                UnorderedElementsAre("bad -> a@x: refused, 554 5.7.1 not that", std::string("u2 -> a@x: ") + kTaken));
}

TEST(MailRecorder, TellsOfAParkedAddress) {
    Household house(true);
    house.smtp.SetFault(AnswerTo("RCPT", "550 5.1.1 nobody"));
    house.Add({"u1", "u2"});
    house.Run();
    EXPECT_THAT(house.Traced(),
                ElementsAre("u1 -> a@x: refused, 550 5.1.1 nobody", "u2 -> a@x: parked, 550 5.1.1 nobody"));
}

TEST(MailRecorder, TellsThatAnAddressHasItAlready) {
    Household house(true);
    house.Add({"u1"});
    house.Run();
    house.profile.forward_addresses.front()->uidls.clear();
    house.profile.forward_addresses.front()->SaveUidlSetting();
    house.Run();
    EXPECT_THAT(house.Traced(), ElementsAre("u1 -> a@x: had already"));
}

TEST(MailRecorder, TellsWhatCouldNotBeFetched) {
    Household house(true);
    house.pop.SetFault(AnswerTo("RETR 2", "-ERR broken"));
    house.Add({"u1", "u2"});
    house.Run();
    EXPECT_THAT(house.Traced(), ElementsAre(std::string("u1 -> a@x: ") + kTaken, "u2 -> : waits, -ERR broken"));
}

TEST(MailRecorder, HandsOverWhatIsSettledWhileTheRunGoesOn) {
    CReceiveMail first;
    CReceiveMail second;
    first.text = second.text = "\r\nSubject: s\r\n\r\n.\r\n";
    first.uidl = "1";
    second.uidl = "2";
    MailRecorder recorder([now = Milliseconds{0}]() mutable { return ++now; });
    recorder.Tell(first, "a@x", CopyFate::HadAlready);
    recorder.Tell(second, "a@x", CopyFate::Waits);
    EXPECT_THAT(recorder.TakeSettled(), IsEmpty()) << "more may come for it";
    recorder.Offers(second, "a@x");
    const std::vector<TracedMail> settled = recorder.TakeSettled();
    ASSERT_EQ(settled.size(), 1U);
    EXPECT_EQ(settled.front().uidl, "1");
    recorder.Tell(second, "a@x", CopyFate::Sent, "250 ok");
    const std::vector<TracedMail> rest = recorder.TakeRest({});
    ASSERT_EQ(rest.size(), 1U);
    EXPECT_EQ(rest.front().copies, std::vector<TracedCopy>({{"a@x", CopyFate::Sent, 3, 4, "250 ok"}}));
    EXPECT_THAT(recorder.TakeRest({}), IsEmpty());
}

TEST(MailRecorder, KeepsTheHeadlinesOfAHostileHeaderShort) {
    const std::string huge(100'000, 'x');
    const TracedMail mail = TraceOf(huge, "\r\nX: " + huge + "\r\nSubject: " + huge + "\r\n " + huge +
                                              "\r\nFrom: a@x\r\n" + "From: b@x\r\n\r\nSubject: body\r\n.\r\n");
    EXPECT_LT(mail.uidl.size() + mail.header.size(), 3000U);
    EXPECT_EQ(HeadlinesOf(mail.header).from, "a@x");
    EXPECT_EQ(HeadlinesOf(mail.header).subject.find_first_not_of('x'), std::string::npos);
}

}  // namespace
}  // namespace tarvex::testing
