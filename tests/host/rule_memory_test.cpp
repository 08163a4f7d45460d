// What the rules remember: in one process, across restarts, and when something is wrong with the file.

#include "host/rules/memory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
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
    Profile().RecordSent(std::vector<CString>{"a@x"}, Mail(1), kNow);
    ExpectAlsoLater(
        [&] { return Profile().WasSent("a@x", Mail(1), kNow) && !Profile().WasSent("a@x", Mail(2), kNow); });
}

TEST_F(Memory, KnowsWhatHadAnId) {
    Profile().RecordId("1", Mail(1), kNow);
    Profile().RecordId("", Mail(2), kNow);
    ExpectAlsoLater([&] {
        return Profile().DigestOfId("1") == Mail(1) && !Profile().DigestOfId("2") && !Profile().DigestOfId("");
    });
    Profile().RecordId("1", Mail(3), kNow);
    ExpectAlsoLater([&] { return Profile().DigestOfId("1") == Mail(3); });
}

TEST_F(Memory, KnowsAMessageThatCameUnderAnotherIdWithinAnHour) {
    const MailDigest mark = Mail(1);
    EXPECT_FALSE(Profile().HasPassed(mark, "1", kNow));
    EXPECT_FALSE(Profile().HasPassed(mark, "1", kNow + 1));  // fetched again
    ExpectAlsoLater([&] { return Profile().HasPassed(mark, "2", kNow + kHour); });
    EXPECT_FALSE(Profile().HasPassed(mark, "3", kNow + kHour + 1));
    EXPECT_TRUE(Profile().HasPassed(mark, "4", kNow + kHour + 2));
    EXPECT_FALSE(Profile().HasPassed(mark, "", kNow + kHour + 2));
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
        Profile().RecordFailedLogin("-ERR wrong", 10 * kMinute, kNow);
        EXPECT_FALSE(Profile().MayLogIn(kNow + minutes * kMinute - 1)) << minutes;
        EXPECT_TRUE(Profile().MayLogIn(kNow + minutes * kMinute)) << minutes;
    }
    Restart();
    EXPECT_FALSE(Profile().MayLogIn(kNow));
    Profile().RecordLogin();
    ExpectAlsoLater([&] { return Profile().MayLogIn(kNow); });
    Profile().RecordFailedLogin("-ERR wrong", 0, kNow);
    EXPECT_TRUE(Profile().MayLogIn(kNow + 2 * kMinute));
    EXPECT_FALSE(Profile().MayLogIn(kNow + 2 * kMinute - 1));
    Profile().RecordFailedLogin("-ERR wrong", 100 * kDay, kNow);
    EXPECT_TRUE(Profile().MayLogIn(kNow + 4 * kHour));
}

TEST_F(Memory, KnowsWhetherSmtpFailedLast) {
    Profile().RecordSmtp(false, "connection refused", kNow);
    ExpectAlsoLater([&] { return Profile().HasSmtpFailed(); });
    Profile().RecordSmtp(true, {}, kNow);
    ExpectAlsoLater([&] { return !Profile().HasSmtpFailed(); });
}

TEST_F(Memory, WaitsForAnAnswerAndTakesItOnce) {
    Profile().Wait("600 messages are new", kNow);
    ExpectAlsoLater([&] { return Profile().IsWaiting() && !Profile().TakeAnswer(); });
    EXPECT_EQ(RuleMemoryReader(root_).Notes(root_ + "\\user0\\from0", Matter::Waiting).at("").words,
              "600 messages are new");
    Profile().Answer(WaitAnswer::Skip, kNow);
    Restart();
    EXPECT_FALSE(Profile().IsWaiting());
    EXPECT_EQ(Profile().TakeAnswer(), WaitAnswer::Skip);
    EXPECT_FALSE(Profile().TakeAnswer());
}

TEST_F(Memory, CountsBounces) {
    EXPECT_EQ(Profile().CountBounce("a@x", kNow), 1);
    EXPECT_EQ(Profile().CountBounce("a@x", kNow + 5), 2);
    EXPECT_EQ(Profile().Notes(Matter::Bouncing).at("a@x"), (Note{2, kNow, kNow + 5, kNow + 5, {}}));
    Profile().ClearBounces("a@x");
    EXPECT_EQ(Profile().CountBounce("a@x", kNow), 1);
}

}  // namespace
}  // namespace tarvex::host
