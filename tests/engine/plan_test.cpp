// What a run would do is what it then does.

#include "tarvex/plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <string>
#include <vector>

#include "loopback/mail_servers.h"
#include "platform/os/clock.h"
#include "tarvex/tarvex.h"
#include "testing/temp_dir.h"

namespace tarvex::testing {
namespace {

using loopback::DeliveredMail;
using loopback::MailboxServer;
using loopback::SinkServer;

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Plan : public ::testing::Test {
protected:
    Plan() {
        EXPECT_EQ(root_.SetRootPath(folder_ / "tree"), 1);
        profile_ = root_.CreateNewUser("user", "", 0)->CreateNewPopProfile("", "me@example.org");
        profile_->setting.popserver = profile_->setting.smtpserver = "127.0.0.1";
        profile_->setting.popport = mailbox_.Port();
        profile_->setting.smtpport = sink_.Port();
        profile_->setting.popuser = "user";
        profile_->setting.poppassword = "secret";
        profile_->setting.timer = 0;
        phone_ = profile_->CreateNewForwardAddress("", "phone@example.net");
        office_ = profile_->CreateNewForwardAddress("", "office@example.net");
    }

    void Arrives(const std::string& id) { mailbox_.Add({id, "Subject: x\r\n\r\nx\r\n"}); }

    void Run() {
        Tarvex(&root_);
        EXPECT_EQ(root_.WaitThread(20'000), 1);
    }

    // "a fetch phone@example.net office@example.net", "b", "c remove".
    std::vector<std::string> Planned() {
        CMailboxListing listing;
        EXPECT_EQ(ListMailbox(profile_->setting, &listing), 1);
        CArray<CPlannedMail> plan(1);
        EXPECT_EQ(PlanRun(*profile_, listing.mails, CurrentTime(), &plan), 1);
        std::vector<std::string> shown;
        for (const CPlannedMail& planned : plan) {
            std::string line = planned.mail.uidl;
            if (planned.fetch) line += " fetch";
            if (planned.remove) line += " remove";
            for (const CForwardAddress* address : planned.destinations) line += ' ' + address->setting.address;
            shown.push_back(line);
        }
        return shown;
    }

    // What has arrived since the last call, by recipient.
    std::map<std::string, int> Delivered() {
        std::map<std::string, int> copies;
        for (const DeliveredMail& mail : sink_.Delivered(seen_)) {
            ++seen_;
            for (const std::string& recipient : mail.recipients) ++copies[recipient];
        }
        return copies;
    }

    TempDir folder_;
    MailboxServer mailbox_{"user", "secret"};
    SinkServer sink_;
    CRootPath root_;
    CPopProfile* profile_ = nullptr;
    CForwardAddress* phone_ = nullptr;
    CForwardAddress* office_ = nullptr;
    std::size_t seen_ = 0;
};

TEST_F(Plan, SaysWhatTheRunThenDoes) {
    Arrives("a");
    Arrives("b");
    EXPECT_THAT(Planned(), ElementsAre("a fetch phone@example.net office@example.net",
                                       "b fetch phone@example.net office@example.net"));
    EXPECT_EQ(mailbox_.Received("RETR"), 0);
    EXPECT_THAT(ReadFile(folder_ / "tree/user0/from0/forwardto0/uidl.def"), IsEmpty());

    office_->setting.status = 0;
    EXPECT_THAT(Planned(), ElementsAre("a fetch phone@example.net", "b fetch phone@example.net"));
    Run();
    EXPECT_THAT(Delivered(), ElementsAre(std::pair("phone@example.net", 2)));

    Arrives("c");
    EXPECT_THAT(Planned(), ElementsAre("a", "b", "c fetch phone@example.net"));
    office_->setting.status = 1;
    EXPECT_THAT(Planned(), ElementsAre("a fetch office@example.net", "b fetch office@example.net",
                                       "c fetch phone@example.net office@example.net"));
    Run();
    EXPECT_THAT(Delivered(), ElementsAre(std::pair("office@example.net", 3), std::pair("phone@example.net", 1)));

    profile_->setting.deletemail = -5;  // any setting but 0
    Arrives("d");
    EXPECT_THAT(Planned(),
                ElementsAre("a remove", "b remove", "c remove", "d fetch phone@example.net office@example.net"));
    EXPECT_EQ(mailbox_.Mails().size(), 4u);
    Run();
    EXPECT_EQ(mailbox_.Mails().size(), 1u);
    EXPECT_THAT(Planned(), ElementsAre("d remove"));
}

TEST_F(Plan, AnIdThatIsListedTwiceIsForOneMessage) {
    Arrives("a");
    Arrives("a");
    EXPECT_THAT(Planned(), ElementsAre("a fetch phone@example.net office@example.net", "a fetch"));
}

TEST_F(Plan, WithoutAnAddressThatTakesPartNothingIsDone) {
    Arrives("a");
    profile_->setting.deletemail = 1;
    Run();
    EXPECT_THAT(Planned(), ElementsAre("a remove"));
    phone_->setting.status = office_->setting.status = 0;
    EXPECT_THAT(Planned(), ElementsAre("a"));
}

TEST_F(Plan, AScheduleDecidesWhoTakesPart) {
    CTerm term;
    term.status = 1;
    term.kind = TERM_DEFINED_TERM;
    term.start = "2009,3,15,10,0,0";
    term.end = "2009,3,15,12,0,0";
    phone_->schedule.AddNewTerm(&term);
    const CTime inside = GetCTime("2009,3,15,11,0,0");
    EXPECT_EQ(phone_->JudgeTakePart(inside), 1);
    EXPECT_EQ(phone_->JudgeTakePart(inside + 7200), 0);
    EXPECT_EQ(office_->JudgeTakePart(inside), 1);
    phone_->setting.status = 0;
    EXPECT_EQ(phone_->JudgeTakePart(inside), 0);
    phone_->setting.status = 1;
    phone_->schedule.terms[0]->status = 0;
    EXPECT_EQ(phone_->JudgeTakePart(inside), 0);
}

TEST_F(Plan, TheNextDueMomentIsThatOfTheJudgement) {
    EXPECT_EQ(profile_->NextDue(), std::numeric_limits<CTime>::min());
    profile_->setting.timer = 1440;
    profile_->setting.lasttime = 1'000'000;
    EXPECT_EQ(profile_->NextDue(), 1'172'800);
    EXPECT_EQ(profile_->setting.lasttime, 1'000'000);
}

}  // namespace
}  // namespace tarvex::testing
