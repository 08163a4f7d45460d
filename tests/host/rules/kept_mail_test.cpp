// What a run has fetched and not delivered: the next one does not fetch it again.

#include "host/rules/kept_mail.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "host/rules/ruled_runs.h"
#include "tests/host/rules/household.h"

namespace tarvex::testing {
namespace {

using host::NextRun;
using ::testing::SizeIs;

class KeptMail : public ::testing::Test {
protected:
    template <class Do>
    void Both(Do what) {
        what(without);
        what(with);
    }

    Household without{false};
    Household with{true};
};

TEST_F(KeptMail, WhatARelayDoesNotReachIsNotFetchedAgain) {
    Both([](Household& house) {
        house.profile.setting.deletemail = 1;
        house.smtp.SetFault(TakeAtMost(10));
        for (int i = 0; i < 300; ++i) house.Add({"u" + std::to_string(i)});
        for (int runs = 1; runs < 30; ++runs) {
            house.Run();
            if (house.next == NextRun::AtOnce) house.now -= kInterval;
        }
        EXPECT_EQ(house.Run().ending, CRunEnding::Delivered);
        house.Run();
    });
    EXPECT_EQ(without.pop.Received("RETR"), 300 * 31 / 2);
    EXPECT_EQ(with.pop.Received("RETR"), 300);
    EXPECT_EQ(with.pop.Received("DELE"), 300);
    EXPECT_EQ(with.Arrived(), without.Arrived());
    EXPECT_THAT(with.Arrived(), SizeIs(300));
    EXPECT_EQ(with.budget.Used(), 0) << "nothing is kept any more";
}

TEST_F(KeptMail, RelayThatAlwaysFailsCostsNoSecondFetch) {
    with.smtp.SetFault(TakeAtMost(0));
    with.Add({"u1", "u2"});
    with.Run(5);
    EXPECT_EQ(with.pop.Received("RETR"), 2);
    with.Add({"u3"});
    EXPECT_EQ(with.Run().messages_kept, 2);
    EXPECT_EQ(with.pop.Received("RETR"), 3);
    with.smtp.SetFault({});
    with.Run();
    EXPECT_EQ(with.pop.Received("RETR"), 3);
    EXPECT_THAT(with.Arrived(), SizeIs(3));
}

TEST_F(KeptMail, WhatIsKeptGoesOutAsIfItWereFetchedAgain) {
    const auto texts = [](Household& house) {
        std::vector<std::string> all;
        for (const DeliveredMail& mail : house.smtp.Delivered()) all.push_back(mail.text);
        return all;
    };
    Both([](Household& house) {
        house.profile.setting.replacefrom = house.profile.setting.replaceto = 1;
        house.smtp.SetJudge([asked = 0](const DeliveredMail&) mutable { return ++asked == 1 ? "421 later" : ""; });
        house.pop.Add({"u1", "\r\nTo: this is the body\r\n"});
        house.pop.Add({"u2", "To: x\r\nSubject: u2\r\n\r\nTo: nobody\r\n"});
        house.Run(2);
    });
    EXPECT_EQ(with.pop.Received("RETR"), 2);
    EXPECT_THAT(texts(with), SizeIs(2));
    EXPECT_EQ(texts(with), texts(without));
}

TEST_F(KeptMail, OnlyTheSameMessageIsNotFetchedAgain) {
    struct Case {
        const char* what;
        std::string id;
        std::function<void(Household&)> happens;
    };
    const auto replace = [](const std::string& id, const std::string& subject) {
        return [=](Household& house) {
            house.pop.Remove(id);
            house.pop.Add({id, Message(subject)});
        };
    };
    const std::vector<Case> cases = {
        {"another size", "u1", replace("u1", "longer")},
        {"an id that is a number", "1", replace("1", "b")},
        {"an id that stands twice", "u1",
         [](Household& house) {
             house.pop.Add({"u1", Message("b")});
         }},
        {"another server", "u1", [](Household& house) { house.profile.setting.popserver = "localhost"; }},
        {"too late", "u1", [](Household& house) { house.now += host::kKeptInMemory_s; }},
        {"a clock that was set back", "u1", [](Household& house) { house.now -= kHour; }},
        {"the profile is gone", "u1", [](Household& house) { house.kept.DropUseless(CRootPath(), house.now); }},
        {"another profile needs the room", "u1",
         [](Household& house) {
             house.budget.SetLimits(1000, 1000);
             host::RunRules other(house.rules, house.profile, *house.memory, house.budget, house.kept);
             EXPECT_TRUE(other.Fetches(house.profile, {"1", "o", 1000}, 0));
         }},
    };
    for (const Case& one : cases) {
        Household house(true);
        house.smtp.SetFault(TakeAtMost(0));
        house.pop.Add({one.id, Message("a")});
        house.Run();
        one.happens(house);
        house.smtp.SetFault({});
        const CRunResult result = house.Run();
        EXPECT_EQ(result.messages_kept, 0) << one.what;
        EXPECT_THAT(house.pop.Mails(), SizeIs(result.messages_delivered)) << one.what;
    }
}

TEST_F(KeptMail, WhatIsKeptCountsInTheSizeOfARun) {
    with.rules.runsize = 1;
    with.smtp.SetFault(TakeAtMost(0));
    const std::string large(600'000, 'x');
    const auto add = [&](const std::string& id) { with.pop.Add({id, "Subject: " + id + "\r\n\r\n" + large + "\r\n"}); };
    add("u1");
    with.Run();
    with.pop.Remove("u1");
    for (const char* id : {"u2", "u1"}) add(id);  // what is kept comes after what is not
    with.Run();
    EXPECT_EQ(with.pop.Received("RETR"), 1);
    with.smtp.SetFault({});
    with.Run(2);
    EXPECT_EQ(with.pop.Received("RETR"), 2);
    EXPECT_THAT(with.Arrived(), SizeIs(2));
}

TEST(RuledRuns, HandWhatIsNotReachedToTheNextRun) {
    MailboxServer pop("alice", "secret");
    SinkServer smtp;
    smtp.SetFault(TakeAtMost(1));
    for (const char* id : {"u1", "u2", "u3"}) pop.Add(Mail(id));
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(pop.Port(), smtp.Port());
    AddAddress(profile, "a@x");
    WriteFile(OnDisk(tree.root.path + "\\host.def"), "[version]\n0\n");
    host::RuledRuns runs(tree.root.path, [](const std::string&) {});
    for (const NextRun next : {NextRun::AtOnce, NextRun::AtOnce, NextRun::WhenDue}) {
        ASSERT_EQ(runs.Start(tree.root, profile), CStartResult::Started);
        tree.root.WaitThread(-1);
        EXPECT_EQ(runs.Finish(*tree.root.running_copies.front()), next);
        tree.root.RefreshThread();
        runs.EndLongRuns(tree.root);
    }
    EXPECT_EQ(pop.Received("RETR"), 3);
    EXPECT_THAT(Arrived(smtp), SizeIs(3));
}

}  // namespace
}  // namespace tarvex::testing
