// An old copy of a tree: the service answers and runs nothing, `run` refuses, and a person accepts it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <nlohmann/json.hpp>
#include <string>

#include "host/held/held_sending.h"
#include "tests/host/generation/old_copy.h"

namespace tarvex::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;

TEST_F(OldCopyOfTree, ServiceAnswersAndRunsNothing) {
    AddRules();
    const auto service = ServeOldCopy();
    EXPECT_THAT(Do({"status"}, 1), HasSubstr(kWhy));
    const auto status = nlohmann::json::parse(Do({"status", "--json"}, 1)).at(0);
    EXPECT_EQ(status.at("blocked_by").at("rule"), "generation");
    EXPECT_THAT(status.at("trouble"), HasSubstr(kWhy));
    EXPECT_THAT(Do({"health"}, 2), AllOf(HasSubstr("CRITICAL - the tree is an old copy"), Not(HasSubstr("user0"))));
    EXPECT_THAT(host_.Fail(74, {"run", "--now"}), HasSubstr(kWhy));
    EXPECT_THAT(Do({"metrics"}), HasSubstr("\ntarvex_generation 5\n"));
    EXPECT_EQ(Do({"generation"}), "5\n");
    EXPECT_THAT(sink_.Delivered(), SizeIs(0));
    EXPECT_EQ(mailbox_.Received("UIDL"), 0);
}

TEST_F(OldCopyOfTree, AcceptedTreeIsRunAtOnceAndHasAHigherNumber) {
    AddRules();
    const auto service = ServeOldCopy();
    EXPECT_THAT(Do({"accept", "--send"}), HasSubstr("its generation is 13"));
    EXPECT_TRUE(service->WaitForOutput("1 message", kLong));
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
    EXPECT_EQ(Do({"generation"}), "13\n");
    EXPECT_THAT(Do({"health"}), HasSubstr("OK"));
    EXPECT_THAT(host_.Fail(66, {"accept", "--send"}), HasSubstr("nothing says"));
    EXPECT_THAT(Do({"history", "--edits"}), AllOf(HasSubstr("tree accept"), HasSubstr("\"5\" -> \"13\"")));
}

TEST_F(OldCopyOfTree, SkippedMailOfAnOldCopyCountsAsHandled) {
    const auto service = ServeOldCopy();
    EXPECT_THAT(Do({"accept", "--skip"}), HasSubstr("its generation is 13"));
    EXPECT_EQ(Uidls(path_), "id-1\n");
    mailbox_.Add({"id-2", "Subject: two\r\n\r\ntwo\r\n"});
    EXPECT_TRUE(service->WaitForOutput("1 message", kLong));
    ASSERT_THAT(sink_.Delivered(), SizeIs(1));
    EXPECT_THAT(sink_.Delivered()[0].text, HasSubstr("Subject: two"));
}

TEST_F(OldCopyOfTree, MailboxThatCannotBeListedLeavesItsProfileWaiting) {
    mailbox_.SetFault([](const std::string& command) { return command.starts_with("APOP") ? "-ERR not now" : ""; });
    for (const char* const rules : {"", "[floodguard]\r\n0\r\n\r\n"}) {  // without them nothing waits
        if (*rules != '\0') AddRules(rules);
        EXPECT_THAT(host_.Fail(69, {"accept", "--skip", "--expect-generation", "12"}),
                    HasSubstr("-ERR not now; nothing was changed"));
        EXPECT_EQ(Do({"generation"}), "5\n");
    }
    AddRules();
    EXPECT_THAT(host_.Fail(0, {"accept", "--skip", "--expect-generation", "12"}),
                HasSubstr("not now; it waits by itself"));
    EXPECT_EQ(Do({"generation"}), "13\n");
    EXPECT_THAT(Do({"status"}, 1), HasSubstr("the tree was an old copy"));
    mailbox_.SetFault({});
    EXPECT_THAT(Do({"run", "--now"}), HasSubstr("waits for `tarvex accept`"));
    EXPECT_THAT(sink_.Delivered(), SizeIs(0));
}

TEST_F(OldCopyOfTree, RunComparesAndDoesNotRaise) {
    EXPECT_THAT(host_.Fail(74, {"run", "--now", "--expect-generation", "12"}), HasSubstr(kWhy));
    EXPECT_THAT(sink_.Delivered(), SizeIs(0));
    Do({"run", "--now", "--expect-generation", "5"});
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
    EXPECT_EQ(Do({"generation"}), "5\n");
}

TEST_F(OldCopyOfTree, IsAcceptedWithoutAService) {
    EXPECT_THAT(host_.Fail(66, {"accept", "--send"}), HasSubstr("--expect-generation"));
    EXPECT_THAT(host_.Fail(66, {"accept", "--send", "--expect-generation", "5"}), HasSubstr("no old copy"));
    Do({"accept", "--send", "--expect-generation", "12"});
    EXPECT_EQ(Do({"generation"}), "13\n");
    EXPECT_THAT(host_.Fail(64, {"accept", "user0/from0", "--send", "--expect-generation", "14"}),
                HasSubstr("whole tree"));
    EXPECT_THAT(host_.Fail(64, {"accept", "--send", "--expect-generation", "99999999999999999999"}),
                HasSubstr("must be"));
}

// The first tick comes before the first answer.
TEST_F(OldCopyOfTree, HeldMailIsNotTried) {
    AddRules();
    sink_.SetFault([](const std::string& command) { return command.starts_with("RCPT") ? "550 no" : ""; });
    Do({"run", "--now", "--quiet"});
    sink_.SetFault({});
    host::MakeHeldDue(host_.Root() + "\\user0\\from0", "forwardto0", std::time(nullptr) - 1);
    const auto service = ServeOldCopy();
    const int tries = sink_.Received("MAIL");
    Do({"health"}, 2);
    EXPECT_THAT(host_.Fail(74, {"held", "send", "user0/from0"}), HasSubstr(kWhy));
    EXPECT_EQ(sink_.Received("MAIL"), tries);
    Do({"accept", "--send"});
    EXPECT_TRUE(service->WaitForOutput("held mail was tried, all was taken", kLong));
}

TEST_F(OldCopyOfTree, BackupHasTheNumberOfItsMoment) {
    const TempDir folder;
    Do({"backup", folder / "backup.tar"});
    SetGeneration("9\n");
    ChildProcess restore({TARVEX_HOST, "restore", folder / "backup.tar", folder / "tree"});
    restore.Wait();
    EXPECT_EQ(ReadFile(folder / "tree/.tarvex/generation"), "5\n");
}

}  // namespace
}  // namespace tarvex::testing
