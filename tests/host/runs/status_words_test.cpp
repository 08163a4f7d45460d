// What `tarvex status` says below its table, and that it fits a terminal.

#include "host/view/status_words.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "host/terminal/table.h"
#include "host/terminal/wording.h"

namespace tarvex::testing {
namespace {

using host::Matter;
using host::NextTry;
using host::ProfileState;
using host::RemarksOn;
using host::ShowTime;
using host::WhatBlocks;
using ::testing::ElementsAre;

constexpr CTime kNow = 1'800'000'000;

ProfileState Failing(int times, CTime last_good = 0) {
    ProfileState state;
    state.name = "user0/from0";
    state.switched_on = true;
    state.next_due = kNow + 300;
    host::ProfileHistory history;
    history.failed_in_a_row = times;
    history.failing_since = kNow - 1000;
    history.last_good = last_good;
    history.last.result.ending = CRunEnding::DeliveryFailed;
    history.last.result.delivery = {CRunStage::RcptTo, CFailureClass::Permanent, "550 no", "", "id-7", "", "a@b.c"};
    state.history = history;
    return state;
}

TEST(StatusWords, SayHowOftenItFailedSinceWhenAtWhichMessageAndWhenItIsTriedNext) {
    EXPECT_THAT(RemarksOn(Failing(1), kNow),
                ElementsAre("user0/from0 failed " + ShowTime(kNow - 1000) +
                            ", no run was good yet, next try in 5 min, at message id-7: 550 no (a@b.c)"));
    EXPECT_THAT(RemarksOn(Failing(3, kNow - 5000), kNow),
                ElementsAre("user0/from0 failed 3 times in a row since " + ShowTime(kNow - 1000) + ", last good run " +
                            ShowTime(kNow - 5000) + ", next try in 5 min, at message id-7: 550 no (a@b.c)"));
    EXPECT_THAT(RemarksOn(Failing(0), kNow), ElementsAre());
}

TEST(StatusWords, NameTheRuleThatBlocksAndItsEnd) {
    ProfileState state = Failing(1);
    EXPECT_EQ(WhatBlocks(state, kNow)->message, "id-7");
    EXPECT_EQ(NextTry(state, kNow), kNow + 300);
    state.remembered[Matter::Login][""] = {2, kNow - 100, kNow - 100, kNow + 900, "-ERR no"};
    EXPECT_EQ(WhatBlocks(state, kNow)->rule, "backoff");
    EXPECT_EQ(NextTry(state, kNow), kNow + 900);
    EXPECT_EQ(WhatBlocks(state, kNow + 901)->rule, "");  // that is over
    state.wants_login = "no token";
    EXPECT_EQ(WhatBlocks(state, kNow)->rule, "token");
    state.remembered[Matter::Waiting][""] = {1, kNow, kNow, 0, "why"};
    EXPECT_EQ(WhatBlocks(state, kNow)->rule, "floodguard");
    EXPECT_EQ(NextTry(state, kNow), std::nullopt);
    EXPECT_FALSE(WhatBlocks(ProfileState(), kNow));
}

TEST(StatusWords, FitATerminalWhateverServersSay) {
    ProfileState state = Failing(123456, 1);
    state.name = "user123/" + std::string(60, 'n');
    state.trouble = std::string(500, 't');
    state.wants_login = "no token " + std::string(90, 'x');
    state.clear_login = "the POP3 password goes to x in clear; " + std::string(90, 'y');
    state.last_due = state.next_due = kNow + 5000;
    state.held = {12, 13, 2, 99, kNow + 60, true};
    state.history->last.result.delivery.reply = std::string(3000, 'r');
    state.history->last.result.delivery.uidl = std::string(300, 'u');
    for (const host::MatterWords& told : host::ToldMatters())
        state.remembered[told.matter]["\x89\xEF\x8B\x63 " + std::string(300, 's')] = {9, 1, 2, kNow + 9, "\x1b[31m"};
    const std::vector<std::string> remarks = RemarksOn(state, kNow);
    EXPECT_EQ(remarks.size(), 6 + host::ToldMatters().size());
    for (const std::string& remark : remarks) {
        for (const std::size_t columns : {20, 80, 132}) {
            std::istringstream lines(host::WrappedBehindIndent(remark, columns));
            for (std::string line; std::getline(lines, line);) EXPECT_LE(host::Columns(line), columns) << line;
        }
        EXPECT_EQ(remark.find_first_of("\n\x1b"), std::string::npos) << remark;
    }
    EXPECT_EQ(host::WrappedBehindIndent("ab cd ef", 8), "ab\n    cd\n    ef");
    EXPECT_EQ(host::WrappedBehindIndent("ab cdefghijklm no", 12), "ab\n    cde...lm\n    no");
}

}  // namespace
}  // namespace tarvex::testing
