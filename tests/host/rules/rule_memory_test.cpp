// What the rules remember: in one process, across restarts, and when something is wrong with the file.

#include "host/memory/mail_header.h"
#include "host/memory/memory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/history/database.h"
#include "testing/temp_dir.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr CTime kNow = 1'800'000'000;
constexpr CTime kMinute = 60;
constexpr CTime kHour = 3600;
constexpr CTime kDay = 24 * kHour;

class Memory : public ::testing::Test {
protected:
    Memory() {
        root_ = folder_ / "tree";
        MakeProfile("from0");
        Restart();
    }
    ~Memory() override { memory_.reset(); }

    void MakeProfile(const std::string& name) const { fs::create_directories(fs::path(root_) / "user0" / name); }
    std::string File(const std::string& name) const { return root_ + "/.tarvex/" + name; }

    // The next process.
    void Restart() {
        memory_.reset();
        memory_ = std::make_unique<RuleMemory>(
            root_, [this](const std::string& sentence) { told_.push_back(sentence); }, 0ms);
    }

    ProfileMemory Profile(const std::string& name = "from0") { return memory_->Of(root_ + "\\user0\\" + name); }
    MailDigest Mail(int number) { return memory_->DigestOf("\r\nMessage-ID: " + std::to_string(number) + "\r\n"); }

    // A message that has come so far, on a way of its own or on that of another message.
    LoopMark Passing(int number, int hops, int way = 0) {
        std::string header = "\r\nMessage-ID: " + std::to_string(number) + "\r\n";
        for (int hop = hops; hop > 0; --hop) {
            header += "Received: " + std::to_string(way == 0 ? number : way) + " by " + std::to_string(hop) + "\r\n";
        }
        return *memory_->LoopMarkOf(SplitMail(header));
    }

    // Whether it holds now, and in the next process.
    void ExpectAlsoLater(const std::function<bool()>& holds) {
        EXPECT_TRUE(holds());
        Restart();
        EXPECT_TRUE(holds());
    }

    std::int64_t Number(const std::string& sql) const {
        return Database(File("sent.db"), Database::Use::Read, 1s).Number(sql);
    }

    testing::TempDir folder_;
    std::string root_;
    std::vector<std::string> told_;
    std::unique_ptr<RuleMemory> memory_;
};

TEST_F(Memory, KnowsTheCopiesThatWereSentAndNoOthers) {
    Profile().RecordSent(std::vector<CString>{"a@x", "b@x"}, Mail(1), kNow);
    MakeProfile("from1");
    ExpectAlsoLater([&] {
        ProfileMemory profile = Profile();
        return profile.WasSent("a@x", Mail(1), kNow) && profile.WasSent("b@x", Mail(1), kNow) &&
               !profile.WasSent("c@x", Mail(1), kNow) && !profile.WasSent("a@x", Mail(2), kNow) &&
               !Profile("from1").WasSent("a@x", Mail(1), kNow) && profile.HasSentAny("b@x") &&
               !profile.HasSentAny("c@x") && !Profile("from1").HasSentAny("a@x");
    });
    EXPECT_TRUE(told_.empty());
}

TEST_F(Memory, TakesTwoWaysToWriteAMailboxForOne) {
    struct Case {
        const char* sent;
        const char* asked;
        bool same;
    };
    for (const Case& one : {Case{"taro@x.test", "Taro <taro@X.Test>", true},
                            {"taro@x.test", "taro@x.test (home)", true},
                            {"taro@x.test", "Taro@x.test", false},
                            {"a@b@X", "a@b@x", true},
                            {"NoAt", "noat", false}}) {
        const MailDigest mail = Mail(static_cast<int>(one.asked[0]));
        Profile().RecordSent(std::vector<CString>{one.sent}, mail, kNow);
        EXPECT_EQ(Profile().WasSent(one.asked, mail, kNow), one.same) << one.asked;
        Profile().Forget(one.sent, kNow);
    }
}

TEST_F(Memory, ForgetsForOnePersonWhoWantsACopyAgain) {
    Profile().RecordSent(std::vector<CString>{"a@x", "b@x"}, Mail(1), kNow);
    Profile().RecordSent(std::vector<CString>{"a@x"}, Mail(2), kNow);
    Profile().Forget("a@x", Mail(1), kNow);
    ExpectAlsoLater([&] {
        return !Profile().WasSent("a@x", Mail(1), kNow) && Profile().WasSent("b@x", Mail(1), kNow) &&
               Profile().WasSent("a@x", Mail(2), kNow);
    });
    Profile().Forget("a@x", kNow);
    ExpectAlsoLater([&] { return !Profile().HasSentAny("a@x") && !Profile().WasSent("a@x", Mail(2), kNow); });
    for (int mail = 3; mail <= 4; ++mail) {  // anew, both in a new process and in one that had sent copies before
        Profile().RecordSent(std::vector<CString>{"a@x"}, Mail(mail), kNow);
        memory_->Save(kNow);
        EXPECT_TRUE(Profile().WasSent("a@x", Mail(mail), kNow));
        EXPECT_FALSE(Profile().WasSent("a@x", Mail(mail - 1), kNow));
        if (mail == 3) Profile().Forget("a@x", kNow);
    }
    ExpectAlsoLater(
        [&] { return Profile().WasSent("a@x", Mail(4), kNow) && !Profile().WasSent("a@x", Mail(3), kNow); });
    for (int i = 0; i < 3; ++i) {
        Profile().RecordId(std::to_string(i), Mail(1), kNow);
        memory_->Save(kNow);
    }
    EXPECT_EQ(Number("SELECT count(*) FROM copies"), 2);  // what belongs to nobody goes by and by
}

TEST_F(Memory, KnowsWhatHadAnId) {
    Profile().RecordId("1", Mail(1), kNow);
    Profile().RecordId("", Mail(2), kNow);
    ExpectAlsoLater([&] {
        return Profile().DigestOfId("1") == Mail(1) && !Profile().DigestOfId("2") && !Profile().DigestOfId("");
    });
    Profile().RecordId("1", Mail(3), kNow, 300);
    ExpectAlsoLater([&] { return Profile().SizeOfId("1") == 300 && Profile().SizeOfId("2") == -1; });
    ExpectAlsoLater([&] { return Profile().DigestOfId("1") == Mail(3); });
}

TEST_F(Memory, KnowsAMessageThatCameUnderAnotherIdWithinAnHour) {
    EXPECT_FALSE(Profile().HasPassed(Passing(1, 1), Mail(101), kNow));
    EXPECT_FALSE(Profile().HasPassed(Passing(1, 1), Mail(101), kNow + 1));  // fetched again
    ExpectAlsoLater([&] { return Profile().HasPassed(Passing(1, 2), Mail(102), kNow + kHour); });
    EXPECT_FALSE(Profile().HasPassed(Passing(1, 2), Mail(103), kNow + kHour + 1));
    EXPECT_TRUE(Profile().HasPassed(Passing(1, 3), Mail(104), kNow + kHour + 2));
    EXPECT_FALSE(Profile().HasPassed(Passing(1, 5, 2), Mail(105), kNow + kHour + 2)) << "it has not come that way";
}

TEST_F(Memory, CountsRefusalsInARowUntilTheCopyIsTaken) {
    EXPECT_EQ(Profile().CountRefusal("a@x", Mail(1), "450 later", kNow), 1);
    EXPECT_EQ(Profile().CountRefusal("b@x", Mail(1), "450 later", kNow), 1);
    Restart();
    EXPECT_EQ(Profile().CountRefusal("A <a@X>", Mail(1), "450 later", kNow), 2);
    const auto notes = Profile().Notes(Matter::Refused);
    ASSERT_EQ(notes.size(), 2u);
    EXPECT_EQ(AddressOfRefusal(notes.begin()->first), "a@x");
    Profile().RecordSent(std::vector<CString>{"a@x"}, Mail(1), kNow);
    Restart();
    EXPECT_EQ(Profile().CountRefusal("a@x", Mail(1), "450 later", kNow), 1);
    EXPECT_EQ(Profile().CountRefusal("b@x", Mail(1), "450 later", kNow), 2);
}

TEST_F(Memory, BlocksWordsUntilOneMessageHasGoneThrough) {
    Profile().Block("554 blocked", kNow);
    ExpectAlsoLater([&] { return Profile().IsBlocked("554 blocked") && !Profile().IsBlocked("554 other"); });
    Profile().Unblock();
    ExpectAlsoLater([&] { return !Profile().IsBlocked("554 blocked"); });
}

TEST_F(Memory, AsksForAParkedAddressOnceAnHour) {
    EXPECT_TRUE(Profile().MayAsk("a@x", kNow));
    Profile().Park("a@x", "550 no", kNow);
    ExpectAlsoLater([&] {
        return Profile().IsParked("a@x") && !Profile().MayAsk("a@x", kNow + kHour - 1) &&
               Profile().MayAsk("a@x", kNow + kHour) && Profile().MayAsk("b@x", kNow);
    });
    Profile().Park("a@x", "550 still no", kNow + kHour);
    EXPECT_FALSE(Profile().MayAsk("a@x", kNow + kHour + 1));
    EXPECT_EQ(Profile().Notes(Matter::Parked).at("a@x"),
              (Note{2, kNow, kNow + kHour, kNow + 2 * kHour, "550 still no"}));
    Profile().Unpark("a@x");
    ExpectAlsoLater([&] { return !Profile().IsParked("a@x") && Profile().MayAsk("a@x", kNow); });
}

TEST_F(Memory, FetchesWhatFailedThreeTimesOnceADay) {
    for (int times = 1; times <= 3; ++times) {
        EXPECT_TRUE(Profile().MayFetch("1", kNow));
        EXPECT_EQ(Profile().CountNotFetched("1", "-ERR no", kNow), times);
    }
    ExpectAlsoLater([&] {
        return !Profile().MayFetch("1", kNow + kDay - 1) && Profile().MayFetch("1", kNow + kDay) &&
               Profile().MayFetch("2", kNow);
    });
    Profile().RecordFetched("1");
    EXPECT_TRUE(Profile().MayFetch("1", kNow));
}

TEST_F(Memory, DoesNotDeleteForADayWhatTheServerKept) {
    Profile().RecordNotDeleted("1", "-ERR read only", kNow);
    ExpectAlsoLater(
        [&] { return !Profile().MayDelete("1", kNow + kDay - 1) && Profile().MayDelete("1", kNow + kDay); });
}

TEST_F(Memory, WaitsLongerAfterEachFailedLogin) {
    for (const CTime minutes : {20, 40, 80, 160, 240, 240}) {
        Profile().RecordFailedLogin(MailServer::Pop3, "-ERR wrong", 10 * kMinute, kNow);
        EXPECT_FALSE(Profile().MayLogIn(MailServer::Pop3, kNow + minutes * kMinute - 1)) << minutes;
        EXPECT_TRUE(Profile().MayLogIn(MailServer::Pop3, kNow + minutes * kMinute)) << minutes;
    }
    Restart();
    EXPECT_FALSE(Profile().MayLogIn(MailServer::Pop3, kNow));
    Profile().RecordLogin(MailServer::Pop3);
    ExpectAlsoLater([&] { return Profile().MayLogIn(MailServer::Pop3, kNow); });
    Profile().RecordFailedLogin(MailServer::Pop3, "-ERR wrong", 0, kNow);
    EXPECT_TRUE(Profile().MayLogIn(MailServer::Pop3, kNow + 2 * kMinute));
    EXPECT_FALSE(Profile().MayLogIn(MailServer::Pop3, kNow + 2 * kMinute - 1));
    Profile().RecordFailedLogin(MailServer::Pop3, "-ERR wrong", 100 * kDay, kNow);
    EXPECT_TRUE(Profile().MayLogIn(MailServer::Pop3, kNow + 4 * kHour));
}

TEST_F(Memory, AClockThatIsSetBackPutsNothingOff) {
    Profile().Park("a@x", "550 no", kNow);
    Profile().RecordNotDeleted("1", "-ERR no", kNow);
    Profile().RecordFailedLogin(MailServer::Pop3, "-ERR no", kHour, kNow);
    for (int i = 0; i < 3; ++i) Profile().CountNotFetched("1", "-ERR no", kNow);
    for (const CTime now : {kNow - kMinute, kNow - 10 * 365 * kDay}) {
        ProfileMemory profile = Profile();
        EXPECT_TRUE(profile.MayAsk("a@x", now) && profile.MayDelete("1", now) &&
                    profile.MayLogIn(MailServer::Pop3, now) && profile.MayFetch("1", now))
            << now;
    }
    Profile().HasPassed(Passing(1, 1), Mail(101), kNow);
    EXPECT_FALSE(Profile().HasPassed(Passing(1, 2), Mail(102), kNow - kDay));
    Profile().Park("a@x", "550 no", kNow - kDay);
    EXPECT_FALSE(Profile().MayAsk("a@x", kNow - kDay));
}

TEST_F(Memory, KnowsWhetherSmtpFailedLast) {
    Profile().RecordSmtp(false, "connection refused", kNow);
    ExpectAlsoLater([&] { return Profile().HasSmtpFailed(); });
    Profile().RecordSmtp(true, {}, kNow);
    ExpectAlsoLater([&] { return !Profile().HasSmtpFailed(); });
}

TEST_F(Memory, WaitsForAnAnswerAndKeepsItUntilItIsUsedUp) {
    Profile().Wait("600 messages are new", kNow);
    ExpectAlsoLater([&] { return Profile().IsWaiting() && !Profile().GivenAnswer(); });
    EXPECT_EQ(RuleMemoryReader(root_).Notes(root_ + "\\user0\\from0")[Matter::Waiting].at("").words,
              "600 messages are new");
    Profile().Answer(WaitAnswer::Skip, kNow);
    Restart();
    EXPECT_FALSE(Profile().IsWaiting());
    ExpectAlsoLater([&] { return Profile().GivenAnswer() == WaitAnswer::Skip; });
    Profile().UseUpAnswer();
    ExpectAlsoLater([&] { return !Profile().GivenAnswer(); });
}

TEST_F(Memory, CountsBounces) {
    EXPECT_EQ(Profile().CountBounce("a@x", kNow), 1);
    EXPECT_EQ(Profile().CountBounce("a@x", kNow + 5), 2);
    EXPECT_EQ(Profile().Notes(Matter::Bouncing).at("a@x"), (Note{2, kNow, kNow + 5, kNow + 5, {}}));
    EXPECT_EQ(Profile().CountBounce("a@x", kNow + 5 + host::kBouncesKept + 1), 1) << "the others are too old";
    Profile().ClearBounces(kNow);
    ExpectAlsoLater([&] { return Profile().Notes(Matter::Bouncing).empty(); });
}

TEST_F(Memory, ForgetsWhatItNotedOfAddressesThatAreGone) {
    for (const char* const address : {"a@x", "b@x"}) {
        Profile().Park(address, "550 no", kNow);
        Profile().CountBounce(address, kNow);
    }
    EXPECT_EQ(Profile().ReplyOfParked("a@x"), "550 no");
    Profile().KeepNotesOf(std::vector<CString>{"Bea <b@X>"}, kNow);
    ExpectAlsoLater([&] {
        return !Profile().IsParked("a@x") && Profile().IsParked("b@x") && Profile().Notes(Matter::Bouncing).size() == 1;
    });
    EXPECT_EQ(Profile().ReplyOfParked("a@x"), "");
}

// ---- how long

constexpr CTime kWeek = 7 * kDay;

TEST_F(Memory, KeepsACopyFor400DaysAfterItWasSentOrSeenLast) {
    Profile().RecordSent(std::vector<CString>{"a@x"}, Mail(1), kNow);
    Profile().RecordId("1", Mail(1), kNow);
    for (int mail = 2; mail <= 10; ++mail) Profile().RecordSent(std::vector<CString>{"a@x"}, Mail(mail), kNow);
    Profile().Seen(std::vector<std::string_view>{"1"}, kNow + 2 * kDay);
    EXPECT_EQ(Number("SELECT count(*) FROM copies"), 10);

    // Each save cleans a part.
    const auto copies_at = [&](CTime now) {
        for (CTime i = 0; i < 5; ++i) {
            Profile().RecordId("later", Mail(1), now);
            memory_->Save(now);
        }
        return Number("SELECT count(*) FROM copies");
    };
    EXPECT_EQ(copies_at(kNow + kCopiesKept), 10);
    EXPECT_EQ(copies_at(kNow + kCopiesKept + 1), 1);
    EXPECT_TRUE(Profile().HasSentAny("a@x"));
    EXPECT_EQ(copies_at(kNow + 2 * kDay + kCopiesKept + 1), 0);
    EXPECT_FALSE(Profile().WasSent("a@x", Mail(1), kNow + kCopiesKept));
    EXPECT_FALSE(Profile().HasSentAny("a@x"));
}

TEST_F(Memory, ACopyThatIsAskedForAgainStays) {
    Profile().RecordSent(std::vector<CString>{"a@x"}, Mail(1), kNow);
    memory_->Save(kNow);
    EXPECT_TRUE(Profile().WasSent("a@x", Mail(1), kNow + kWeek + 1));
    memory_->Save(kNow);
    EXPECT_EQ(Number("SELECT seen - sent FROM copies"), kWeek + 1);
}

TEST_F(Memory, NotesOnceAWeekWhatIsInTheMailbox) {
    std::vector<CString> ids;
    for (int mail = 0; mail < 1200; ++mail) ids.push_back(std::to_string(mail));
    std::vector<std::string_view> listing(ids.begin(), ids.end());
    for (int mail = 0; mail < 1200; ++mail) {
        Profile().RecordSent(std::vector<CString>{"a@x", "b@x"}, Mail(mail), kNow);
        Profile().RecordId(ids[static_cast<std::size_t>(mail)], Mail(mail), kNow);
    }
    const auto seen_at = [&](CTime now) {
        return Number("SELECT count(*) FROM copies WHERE seen = " + std::to_string(now));
    };
    Profile().Seen(listing, kNow + kDay);
    EXPECT_EQ(seen_at(kNow + kDay), 2400);
    Profile().Seen(listing, kNow + kDay + kWeek - 1);
    EXPECT_EQ(seen_at(kNow + kDay), 2400);
    Restart();
    listing.pop_back();
    Profile().Seen({}, kNow + 2 * kWeek);
    Profile().Seen(listing, kNow + kDay + kWeek);
    EXPECT_EQ(seen_at(kNow + kDay + kWeek), 2398);
}

TEST_F(Memory, ForgetsTheTroubleOfIdsThatAreGone) {
    Profile().CountNotFetched("1", "-ERR", kNow);
    Profile().CountNotFetched("2", "-ERR", kNow);
    Profile().RecordNotDeleted("3", "-ERR", kNow);
    Profile().Seen(std::vector<std::string_view>{"2"}, kNow);
    EXPECT_EQ(Profile().Notes(Matter::NotFetched).size(), 1u);
    EXPECT_TRUE(Profile().Notes(Matter::NotFetched).contains("2"));
    ExpectAlsoLater([&] { return Profile().Notes(Matter::NotDeleted).empty(); });
}

TEST_F(Memory, AProfileMadeAnewUnderTheSamePathBeginsAnew) {
    Profile().RecordSent(std::vector<CString>{"a@x"}, Mail(1), kNow);
    Profile().Park("a@x", "550", kNow);
    // The system must not give the new directory the number of the old one at the same moment.
    fs::rename(root_ + "/user0/from0", root_ + "/user0/removed");
    MakeProfile("from0");
    EXPECT_FALSE(Profile().WasSent("a@x", Mail(1), kNow));
    EXPECT_FALSE(Profile().IsParked("a@x"));
    Profile().RecordSent(std::vector<CString>{"a@x"}, Mail(2), kNow);
    ExpectAlsoLater(
        [&] { return !Profile().WasSent("a@x", Mail(1), kNow) && Profile().WasSent("a@x", Mail(2), kNow); });
    EXPECT_EQ(Number("SELECT count(*) FROM notes"), 0);
}

TEST_F(Memory, ATreeThatWasCopiedElsewhereKeepsIts) {
    Profile().RecordSent(std::vector<CString>{"a@x"}, Mail(1), kNow);
    memory_.reset();
    fs::copy(root_, folder_ / "copy", fs::copy_options::recursive);
    root_ = folder_ / "copy";
    Restart();
    EXPECT_TRUE(Profile().WasSent("a@x", Mail(1), kNow));
}

// ---- trouble

TEST_F(Memory, ADamagedFileIsSetAsideAndWhatThisProcessKnowsStays) {
    Profile().RecordSent(std::vector<CString>{"a@x"}, Mail(1), kNow);
    Restart();
    ProfileMemory profile = Profile();
    profile.Park("a@x", "550", kNow);
    const MailDigest mail = Mail(2);
    memory_.reset();
    fs::remove(File("sent.db-wal"));
    testing::WriteFile(File("sent.db"), std::string(5000, 'x'));
    Restart();
    Profile().RecordSent(std::vector<CString>{"a@x"}, Mail(2), kNow);
    EXPECT_NE(Mail(2), mail);  // the key went with the file
    ExpectAlsoLater(
        [&] { return !Profile().WasSent("a@x", Mail(1), kNow) && Profile().WasSent("a@x", Mail(2), kNow); });
    ASSERT_EQ(told_.size(), 1u);
    EXPECT_NE(told_[0].find("sent-damaged.db, and a new one is begun"), std::string::npos) << told_[0];
}

TEST_F(Memory, DamageInTheMiddleOfAProcessLosesOnlyWhatWasOnDisk) {
    Profile().Park("a@x", "550", kNow);
    const MailDigest mail = Mail(1);
    Profile().RecordSent(std::vector<CString>{"a@x"}, mail, kNow);
    Profile().HasPassed(Passing(1, 1), Mail(101), kNow);
    memory_->Save(kNow);
    Profile().RecordSent(std::vector<CString>{"a@x"}, mail, kNow);
    for (const char* const table : {"copies", "notes"}) {  // as far as a statement can tell
        Database(File("sent.db"), Database::Use::Write, 1s).Run(("DROP TABLE " + std::string(table)).c_str());
    }
    memory_->Save(kNow);
    EXPECT_EQ(told_.size(), 1u);
    EXPECT_EQ(Mail(1), mail);
    ExpectAlsoLater([&] {
        return Profile().WasSent("a@x", mail, kNow) && Profile().IsParked("a@x") &&
               Profile().HasPassed(Passing(1, 2), Mail(102), kNow);
    });
}

TEST_F(Memory, WhatCannotBeWrittenIsKnownAllTheSameAndWrittenLater) {
    testing::WriteFile(root_ + "/.tarvex", "in its place");
    std::optional<ProfileMemory> profile = Profile();
    const MailDigest mail = Mail(1);
    profile->RecordSent(std::vector<CString>{"a@x"}, mail, kNow);
    profile->Park("a@x", "550", kNow);
    profile->RecordId("1", mail, kNow);
    EXPECT_TRUE(profile->WasSent("a@x", mail, kNow));
    EXPECT_FALSE(profile->WasSent("b@x", mail, kNow));
    EXPECT_TRUE(profile->HasSentAny("a@x"));
    EXPECT_FALSE(profile->MayAsk("a@x", kNow));
    EXPECT_EQ(profile->DigestOfId("1"), mail);
    EXPECT_FALSE(profile->HasPassed(Passing(1, 1), Mail(101), kNow));
    EXPECT_TRUE(profile->HasPassed(Passing(1, 2), Mail(102), kNow));
    profile->Seen(std::vector<std::string_view>{"1"}, kNow);
    ASSERT_EQ(told_.size(), 1u);
    EXPECT_NE(told_[0].find("cannot be written"), std::string::npos);
    fs::remove(root_ + "/.tarvex");
    memory_->Save(kNow);
    ASSERT_EQ(told_.size(), 2u);
    EXPECT_EQ(told_[1], "the memory of what was sent is written again");
    ExpectAlsoLater([&] {
        return Profile().WasSent("a@x", mail, kNow) && Profile().IsParked("a@x") && Profile().DigestOfId("1") == mail;
    });
}

TEST_F(Memory, ALineOfTheJournalThatIsNotWholeDoesNotCount) {
    Profile().RecordSent(std::vector<CString>{"a@x"}, Mail(1), kNow);
    const std::string line = testing::ReadFile(File("sent.recent"));
    const MailDigest other = Mail(2);
    memory_.reset();
    std::string torn = line.substr(0, line.size() - 3);
    torn.replace(torn.find('\t') - 32, 32, other.Hex());
    testing::WriteFile(File("sent.recent"), "nonsense\t\t\n" + torn + line);
    fs::remove(File("sent.db"));  // with what Save put there
    fs::remove(File("sent.db-wal"));
    Restart();
    Profile();
    memory_->Save(kNow);
    EXPECT_EQ(Number("SELECT count(*) FROM copies"), 1);
    EXPECT_EQ(testing::ReadFile(File("sent.recent")), "");
}

TEST_F(Memory, HoldsNoMoreThanItShouldOfWhatServersSay) {
    const std::string endless(64 * 1024, 'x');
    Profile().Park("a@x", endless, kNow);
    EXPECT_EQ(Profile().Notes(Matter::Parked).at("a@x").words.size(), 300u);
    Profile().CountNotFetched(endless, "-ERR", kNow);
    Profile().RecordId(endless, Mail(1), kNow);
    for (int i = 0; i < 1100; ++i) Profile().CountNotFetched(std::to_string(i), "-ERR", kNow);
    EXPECT_EQ(Profile().Notes(Matter::NotFetched).size(), 1000u);
    EXPECT_FALSE(Profile().DigestOfId(endless));
    EXPECT_TRUE(Profile().IsParked("a@x"));
}

TEST_F(Memory, ServesManyRunsAtOnce) {
    constexpr int kRuns = 8;
    constexpr int kMails = 300;
    for (int run = 0; run < kRuns; ++run) MakeProfile("from" + std::to_string(run));
    std::vector<std::jthread> runs;
    for (int run = 0; run < kRuns; ++run) {
        runs.emplace_back([this, run] {
            ProfileMemory profile = Profile("from" + std::to_string(run));
            for (int mail = run; mail < kMails + run; ++mail) {
                const MailDigest digest = Mail(mail);
                if (profile.WasSent("a@x", digest, kNow)) ADD_FAILURE() << mail;
                profile.RecordId(std::to_string(mail), digest, kNow);
                profile.RecordSent(std::vector<CString>{"a@x"}, digest, kNow);
                if (mail % 50 == 0) profile.Park(std::to_string(mail), "550", kNow);
            }
            memory_->Save(kNow);
        });
    }
    runs.clear();
    Restart();
    for (int run = 0; run < kRuns; ++run) {
        ProfileMemory profile = Profile("from" + std::to_string(run));
        for (int mail = 0; mail < kMails + kRuns; ++mail) {
            EXPECT_EQ(profile.WasSent("a@x", Mail(mail), kNow), mail >= run && mail < kMails + run) << run << mail;
        }
        EXPECT_EQ(profile.Notes(Matter::Parked).size(), 6u);
    }
    EXPECT_TRUE(told_.empty());
}

TEST_F(Memory, OthersReadTheNotesMeanwhile) {
    EXPECT_TRUE(RuleMemoryReader(root_).Notes(root_ + "\\user0\\from0")[Matter::Parked].empty());
    Profile().Park("a@x", "550 no", kNow);
    RuleMemoryReader reader(root_);
    Profile().Unpark("a@x");
    memory_->Save(kNow);
    EXPECT_EQ(reader.Notes(root_ + "\\user0\\from0")[Matter::Parked].at("a@x").words, "550 no");  // of one moment
    EXPECT_TRUE(RuleMemoryReader(root_).Notes(root_ + "\\user0\\from0")[Matter::Parked].empty());
    EXPECT_TRUE(told_.empty());
}

}  // namespace
}  // namespace tarvex::host
