// A tree whose profiles fail, and what their readers get: mails between simulated moments, over a real connection.

#include "host/alerts/alerts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "host/history/history.h"
#include "loopback/mail_servers.h"
#include "testing/temp_dir.h"

namespace tarvex::host {
namespace {

using loopback::DeliveredMail;
using loopback::SinkServer;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

constexpr CTime kStart = 1'800'000'000;
constexpr CTime kHour = 3600;

class AlertedTree : public ::testing::Test {
protected:
    AlertedTree() {
        EXPECT_EQ(root_.SetRootPath(folder_ / "tree"), 1);
        WriteRules("[alert_server]\n127.0.0.1\n[alert_port]\n" + std::to_string(sink_.Port()) + "\n");
        Restart();
    }

    void WriteRules(const std::string& more, const std::string& to = "ops@example.org") const {
        testing::WriteFile(folder_ / "tree/host.def", "[version]\n0\n[alert_to]\n" + to + "\n" + more);
    }

    CPopProfile& AddProfile() {
        if (root_.users.empty()) root_.CreateNewUser("taro", "", 0);
        CPopProfile& profile = *root_.users.front()->CreateNewPopProfile("", "me@example.org");
        profile.setting.popserver = profile.setting.smtpserver = "127.0.0.1";
        profile.setting.smtpport = sink_.Port();
        profile.setting.poppassword = "swordfish";
        EXPECT_TRUE(profile.SaveSetting());
        return profile;
    }

    void Restart() {
        alerts_ = std::make_unique<Alerts>(
            root_.path,
            AlertTellers{[](const std::string&) {}, [this](const std::string& what) { warned_.push_back(what); }},
            [this](const std::string&) { return room_; });
    }

    void Ends(const CPopProfile& profile, CTime now, bool fails) {
        CRunResult result;
        result.ending = fails ? CRunEnding::MailboxFailed : CRunEnding::NothingNew;
        if (fails) {
            result.mailbox.stage = CRunStage::Login;
            result.mailbox.failure_class = CFailureClass::Permanent;
            result.mailbox.reply = "-ERR wrong password\r\nBcc: x@example.org\x1b[31m\r\n";
        }
        history_.Add(profile.path, {now, now + 1, result});
    }

    // Every profile runs every ten minutes, and every half minute there is a look.
    void Pass(CTime seconds, bool fails) {
        for (const CTime end = now_ + seconds; now_ < end; now_ += 30) {
            if ((now_ - kStart) % 600 == 0) {
                for (const auto& profile : root_.users.front()->profiles) Ends(*profile, now_, fails);
            }
            if (now_ % look_every_ == 0) Look();
        }
    }

    void Look(CTime quiet_s = kQuiet_s) {
        alerts_->Look(root_, {}, now_, quiet_s, {copy_, [] { return false; }});
    }

    SinkServer sink_;
    testing::TempDir folder_;
    CRootPath root_;
    CPopProfile copy_;
    DiskRoom room_;
    std::vector<std::string> warned_;
    std::unique_ptr<Alerts> alerts_;
    HistoryWriter history_{folder_ / "tree", [](const std::string& what) { ADD_FAILURE() << what; }};
    CTime now_ = kStart;
    CTime look_every_ = 30;
};

const std::string kFirst = "user0/from0";

TEST_F(AlertedTree, HasOneAlertADayForAWrongPasswordAndOneWhenItIsRightAlsoOverRestarts) {
    AddProfile();
    look_every_ = 60;
    for (int hour = 0; hour < 24; ++hour) {
        Pass(kHour, true);
        Restart();
    }
    ASSERT_THAT(sink_.Delivered(), SizeIs(1));
    Pass(2 * kHour, false);
    Restart();
    Pass(kHour, false);
    const std::vector<DeliveredMail> mails = sink_.Delivered();
    ASSERT_THAT(mails, SizeIs(2));
    EXPECT_EQ(mails[0].sender, "") << "the null return path";
    EXPECT_THAT(mails[0].recipients, ElementsAre("ops@example.org"));
    EXPECT_THAT(mails[0].text,
                AllOf(HasSubstr("\r\nAuto-Submitted: auto-generated\r\n"), HasSubstr("\r\nTo: <ops@example.org>\r\n"),
                      HasSubstr("\r\nSubject: Tarvex: " + kFirst + ": its runs fail\r\n"), HasSubstr("\r\nDate: "),
                      HasSubstr("\r\nMessage-ID: <alert-"), HasSubstr("\r\nMIME-Version: 1.0\r\n"),
                      HasSubstr("5 times in a row"), HasSubstr("-ERR wrong password"),
                      HasSubstr("The server refused the login"), HasSubstr("tarvex check " + kFirst)));
    EXPECT_THAT(mails[0].text, AllOf(Not(HasSubstr("swordfish")), Not(HasSubstr("\nBcc:")), Not(HasSubstr("\x1b"))));
    EXPECT_THAT(mails[1].text, HasSubstr("Subject: Tarvex: good again: " + kFirst + ": its runs fail"));
}

TEST_F(AlertedTree, HasOneAlertForTwoHundredProfiles) {
    for (int i = 0; i < 200; ++i) AddProfile();
    look_every_ = 60;
    Pass(kHour, true);
    const std::vector<DeliveredMail> mails = sink_.Delivered();
    ASSERT_THAT(mails, SizeIs(1));
    EXPECT_THAT(mails[0].text,
                AllOf(HasSubstr("Subject: Tarvex: 200 matters need you"), HasSubstr(kFirst.substr(0, 10) + "199")));
}

TEST_F(AlertedTree, GoesThroughTheServerOfAProfileWhereThereIsNoOther) {
    CPopProfile& broken = AddProfile();
    broken.setting.smtpport = 1;
    CPopProfile& good = AddProfile();
    good.setting.address = "good@example.org";
    WriteRules("", "ops@example.org, taro@example.org");
    Pass(2 * kHour, true);
    const std::vector<DeliveredMail> mails = sink_.Delivered();
    ASSERT_THAT(mails, SizeIs(2));
    for (const DeliveredMail& mail : mails) {
        EXPECT_EQ(mail.sender, "");
        EXPECT_THAT(mail.recipients, SizeIs(1));
        EXPECT_THAT(mail.text, HasSubstr("From: Tarvex <good@example.org>\r\n"));
    }
}

TEST_F(AlertedTree, TriesAgainAndShowsItWhileTheServerRefuses) {
    AddProfile();
    sink_.SetFault([](const std::string& command) { return command.starts_with("MAIL") ? "451 4.3.0 not now" : ""; });
    Pass(3 * kHour, true);
    EXPECT_THAT(sink_.Delivered(), IsEmpty());
    EXPECT_THAT(warned_, ElementsAre(AllOf(HasSubstr("ops@example.org did not go out"), HasSubstr("451 4.3.0"))));
    const auto failing = FailingAlerts(root_.path);
    ASSERT_THAT(failing, SizeIs(1));
    EXPECT_GT(failing.begin()->second.tries, 3);
    EXPECT_LT(failing.begin()->second.tries, 12);
    EXPECT_THAT(failing.begin()->second.words, HasSubstr("451 4.3.0 not now"));
    EXPECT_GT(failing.begin()->second.next_try, failing.begin()->second.since);
    Restart();
    sink_.SetFault(nullptr);
    Pass(2 * kHour, true);
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
    EXPECT_THAT(FailingAlerts(root_.path), IsEmpty());
}

TEST_F(AlertedTree, TellsOfADiskThatIsShort) {
    AddProfile();
    room_ = {50'000'000, 10'000'000'000};
    Pass(kHour, false);
    room_ = {5'000'000'000, 10'000'000'000};
    Pass(kHour, false);
    const std::vector<DeliveredMail> mails = sink_.Delivered();
    ASSERT_THAT(mails, SizeIs(2));
    EXPECT_THAT(mails[0].text, HasSubstr("Subject: Tarvex: the disk of the tree is nearly full"));
    EXPECT_THAT(mails[1].text, HasSubstr("good again"));
}

TEST_F(AlertedTree, TellsOfAProfileThatIsLeftOutAlsoWhereItsRulesCannotBeRead) {
    AddProfile();
    Pass(600, false);
    testing::WriteFile(folder_ / "tree/host.def", "[floodlimit]\nmany\n");
    Pass(600, false);
    const std::vector<DeliveredMail> mails = sink_.Delivered();
    ASSERT_THAT(mails, SizeIs(1));
    EXPECT_THAT(mails[0].text, AllOf(HasSubstr("it is not run"), HasSubstr("floodlimit cannot be \"many\"")));
}

TEST_F(AlertedTree, GoesOnWithADamagedMemory) {
    AddProfile();
    Pass(2 * kHour, true);
    ASSERT_THAT(sink_.Delivered(), SizeIs(1));
    alerts_.reset();
    for (const char* const part : {"", "-wal", "-shm"})
        std::filesystem::remove(std::string(folder_ / "tree/.tarvex/alerts.db") + part);
    testing::WriteFile(folder_ / "tree/.tarvex/alerts.db", std::string(5000, 'x'));
    Restart();
    Pass(2 * kHour, true);
    EXPECT_THAT(sink_.Delivered(), SizeIs(2)) << "one more";
    EXPECT_THAT(warned_, ElementsAre(HasSubstr("the memory of alerts was damaged")));
}

TEST_F(AlertedTree, TellsNobodyWithoutAReaderAndKeepsNothing) {
    AddProfile();
    WriteRules("", "none");
    Pass(2 * kHour, true);
    EXPECT_THAT(sink_.Delivered(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(std::string(folder_ / "tree/.tarvex/alerts.db")));
}

TEST_F(AlertedTree, SendsATestToEveryReader) {
    CPopProfile& profile = AddProfile();
    testing::WriteFile(folder_ / "tree/user0/from0/host.def", "[alert_to]\nown@example.org\n");
    const std::vector<NamedProfile> all = {{root_.users.front().get(), &profile}};
    const Sending sending{copy_, [] { return false; }};
    EXPECT_THAT(SendTestAlerts(root_, all, false, now_, sending), SizeIs(2));
    EXPECT_THAT(SendTestAlerts(root_, all, true, now_, sending), SizeIs(1));
    ASSERT_THAT(sink_.Delivered(), SizeIs(3));
    EXPECT_THAT(sink_.Delivered()[2].recipients, ElementsAre("own@example.org"));
    EXPECT_THAT(sink_.Delivered()[2].text, HasSubstr("Subject: Tarvex: test alert\r\n"));
    sink_.SetFault([](const std::string&) { return "554 5.7.1 no"; });
    const std::vector<TestOutcome> refused = SendTestAlerts(root_, all, true, now_, sending);
    ASSERT_THAT(refused, SizeIs(1));
    EXPECT_THAT(refused[0].outcome.why, HasSubstr("554 5.7.1 no"));
    sink_.SetFault([](const std::string&) { return "\r"; });
    EXPECT_NE(SendTestAlerts(root_, all, true, now_, sending).at(0).outcome.why, "");
}

}  // namespace
}  // namespace tarvex::host
