// popprofile.def.

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <vector>

#include "platform/os/clock.h"
#include "tarvex/settings.h"
#include "testing/temp_dir.h"
#include "tests/store/record_test.h"

namespace tarvex {
namespace {

// 15 March 2009 10:20:00 local time.
const CTime kLastTime = FromLocalTime(2009, 3, 15, 10, 20, 0).value();

}  // namespace

template <>
struct RecordFacts<CPopProfileSetting> {
    using S = CPopProfileSetting;
    static constexpr const char* kFile = "popprofile.def";

    static std::vector<FieldCase<S>> Fields() {
        return {
            Field("version", &S::version, 101, false),
            Field("nickname", &S::nickname, "a nickname"),
            Field("address", &S::address, "me@example.org"),
            Field("popuser", &S::popuser, "pop user"),
            Field("popserver", &S::popserver, "pop.example.org"),
            Field("poppassword", &S::poppassword, "pop secret"),
            Field("smtpuser", &S::smtpuser, "smtp user"),
            Field("smtpserver", &S::smtpserver, "smtp.example.org"),
            Field("smtppassword", &S::smtppassword, "smtp secret"),
            Field("timer", &S::timer, 102),
            Field("deletemail", &S::deletemail, 103),
            Field("apop", &S::apop, 104),
            Field("esmtp", &S::esmtp, 105),
            Field("smtpauth", &S::smtpauth, 106),
            Field("logmode", &S::logmode, 107),
            Field("logsize", &S::logsize, 108),
            Field("lasttime", &S::lasttime, kLastTime, false),
            Field("status", &S::status, 109),
            Field("popport", &S::popport, 111),
            Field("smtpport", &S::smtpport, 112),
            Field("sslpop", &S::sslpop, 113),
            Field("sslsmtp", &S::sslsmtp, 114),
            Field("replacefrom", &S::replacefrom, 115),
            Field("replaceto", &S::replaceto, 116),
            Field("timeout", &S::timeout, 117),
            Field("smtpauth_mode", &S::smtpauth_mode, 118),
        };
    }

    static std::string FileOfAllFieldsChanged() {
        return "[version]\r\n101\r\n\r\n"
               "[nickname]\r\na nickname\r\n\r\n"
               "[address]\r\nme@example.org\r\n\r\n"
               "[popuser]\r\npop user\r\n\r\n"
               "[popserver]\r\npop.example.org\r\n\r\n"
               "[poppassword]\r\nj5CP34yanI2aiw==\r\n\r\n"
               "[smtpuser]\r\nsmtp user\r\n\r\n"
               "[smtpserver]\r\nsmtp.example.org\r\n\r\n"
               "[smtppassword]\r\njJKLj9+MmpyNmos=\r\n\r\n"
               "[timer]\r\n102\r\n\r\n"
               "[deletemail]\r\n103\r\n\r\n"
               "[apop]\r\n104\r\n\r\n"
               "[esmtp]\r\n105\r\n\r\n"
               "[smtpauth]\r\n106\r\n\r\n"
               "[logmode]\r\n107\r\n\r\n"
               "[logsize]\r\n108\r\n\r\n"
               "[status]\r\n109\r\n\r\n"
               "[popport]\r\n111\r\n\r\n"
               "[smtpport]\r\n112\r\n\r\n"
               "[sslpop]\r\n113\r\n\r\n"
               "[sslsmtp]\r\n114\r\n\r\n"
               "[lasttime]\r\n2009,3,15,10,20,0\r\n\r\n"
               "[timeout]\r\n117\r\n\r\n"
               "[replacefrom]\r\n115\r\n\r\n"
               "[replaceto]\r\n116\r\n\r\n"
               "[smtpauth_mode]\r\n118\r\n\r\n";
    }
};

namespace {

INSTANTIATE_TYPED_TEST_SUITE_P(PopProfile, Record, CPopProfileSetting);

using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

using S = CPopProfileSetting;

TEST(PopProfileSetting, Defaults) {
    const CTime before = CurrentTime();
    const S setting;
    const CTime after = CurrentTime();
    EXPECT_EQ(setting.version, 0);
    for (const CString S::*text : {&S::nickname, &S::address, &S::popuser, &S::popserver, &S::poppassword, &S::smtpuser,
                                   &S::smtpserver, &S::smtppassword}) {
        EXPECT_EQ(setting.*text, "");
    }
    EXPECT_EQ(setting.timer, 10);
    EXPECT_EQ(setting.deletemail, 0);
    EXPECT_EQ(setting.apop, 0);
    EXPECT_EQ(setting.esmtp, 1);
    EXPECT_EQ(setting.smtpauth, 0);
    EXPECT_EQ(setting.logmode, 1);
    EXPECT_EQ(setting.logsize, 1024);
    EXPECT_LE(before, setting.lasttime);
    EXPECT_LE(setting.lasttime, after);
    EXPECT_EQ(setting.status, 1);
    EXPECT_EQ(setting.popport, 110);
    EXPECT_EQ(setting.smtpport, 25);
    EXPECT_EQ(setting.sslpop, 0);
    EXPECT_EQ(setting.sslsmtp, 0);
    EXPECT_EQ(setting.replacefrom, 0);
    EXPECT_EQ(setting.replaceto, 0);
    EXPECT_EQ(setting.timeout, 30);
    EXPECT_EQ(setting.smtpauth_mode, 0);
}

TEST(PopProfileSetting, InitializeTakesTheCurrentTime) {
    S setting;
    setting.lasttime = kLastTime;
    const CTime before = CurrentTime();
    setting.Initialize();
    EXPECT_LE(before, setting.lasttime);
    EXPECT_LE(setting.lasttime, CurrentTime());
}

TEST(PopProfileSetting, EqualityComparesAllButVersionAndLastTime) { ExpectEqualityOfAssignedFields<S>(); }

TEST(PopProfileSetting, EqualityIsCaseSensitive) {
    S lower, upper;
    lower.popserver = "pop.example.org";
    upper.popserver = "POP.example.org";
    EXPECT_EQ(lower == upper, 0);
}

TEST(PopProfileSetting, SecondsAreWrittenButDroppedWhenRead) {
    const TempDir dir;
    S setting;
    setting.lasttime = kLastTime + 45;
    EXPECT_EQ(setting.Save(dir.String()), 1);
    EXPECT_NE(ReadFile(dir / "popprofile.def").find("[lasttime]\r\n2009,3,15,10,20,45\r\n"), std::string::npos);
    S loaded;
    EXPECT_EQ(loaded.Load(dir.String()), 1);
    EXPECT_EQ(loaded.lasttime, kLastTime);
}

// Each with the effect on a record of defaults.
struct LoadCase {
    const char* content;
    std::function<void(S&)> effect;
};

TEST(PopProfileSetting, TolerantReading) {
    const std::vector<LoadCase> cases = {
        {"; a comment\r\n\r\n// another\r\n", [](S&) {}},
        {"", [](S&) {}},
        {"[POPSERVER]\r\nPop.Example\r\n", [](S& s) { s.popserver = "Pop.Example"; }},
        {"  [popserver]   more text\r\nx\r\n", [](S& s) { s.popserver = "x"; }},
        {"[obsolete]\r\n7\r\n[timer]\r\n5\r\n", [](S& s) { s.timer = 5; }},
        {"[nickname]\r\nx\r\n[obsolete]\r\n7\r\n", [](S& s) { s.nickname = "x"; }},
        {"[timer]\r\n5\r\n7\r\n", [](S& s) { s.timer = 7; }},
        {"[timer]\r\nabc\r\n", [](S& s) { s.timer = 0; }},
        {"[timer]\r\n\t +12 minutes\r\n", [](S& s) { s.timer = 12; }},
        {"[timer]\r\n-3\r\n", [](S& s) { s.timer = -3; }},
        {"[timer]\r\n99999999999\r\n", [](S& s) { s.timer = std::numeric_limits<int>::max(); }},
        {"[timer]\r\n-99999999999\r\n", [](S& s) { s.timer = std::numeric_limits<int>::min(); }},
        {"[popserver]\r\n\t pop.example.org  \r\n", [](S& s) { s.popserver = "pop.example.org  "; }},
        {"[nickname]\r\n;x\r\n", [](S&) {}},
        {"[nickname]\r\n//x\r\n", [](S&) {}},
        // "smtpauth" is no part of "[smtpauth_mode]" with its brackets.
        {"[smtpauth_mode]\r\n2\r\n", [](S& s) { s.smtpauth_mode = 2; }},
        {"[smtpauth]\r\n1\r\n", [](S& s) { s.smtpauth = 1; }},
        {"[nickname]\r\n\x83\x54\x81\x5B\x83\x6F\x81\x5B\x81\x5D\r\n",
         [](S& s) { s.nickname = "\x83\x54\x81\x5B\x83\x6F\x81\x5B\x81\x5D"; }},
        {"[timer]\n5\n[popport]\n995", [](S& s) { s.timer = 5, s.popport = 995; }},
    };
    for (const LoadCase& c : cases) {
        const TempDir dir;
        WriteFile(dir / "popprofile.def", c.content);
        S loaded;
        EXPECT_EQ(loaded.Load(dir.String()), 1) << c.content;
        S expected;
        c.effect(expected);
        EXPECT_EQ(loaded == expected, 1) << c.content;
    }
}

TEST(PopProfileSetting, ValueThatBeginsLikeACommentIsWrittenButLostOnLoading) {
    const TempDir dir;
    S setting;
    setting.nickname = ";x";
    EXPECT_EQ(setting.Save(dir.String()), 1);
    EXPECT_NE(ReadFile(dir / "popprofile.def").find("[nickname]\r\n;x\r\n"), std::string::npos);
    S loaded;
    loaded.nickname = "previous";
    EXPECT_EQ(loaded.Load(dir.String()), 1);
    EXPECT_EQ(loaded.nickname, "previous");
}

TEST(PopProfileSetting, VersionIsReadAndWrittenBack) {
    const TempDir dir;
    WriteFile(dir / "popprofile.def", "[version]\r\n12\r\n");
    S setting;
    EXPECT_EQ(setting.Load(dir.String()), 1);
    EXPECT_EQ(setting.version, 12);
    EXPECT_EQ(setting.Save(dir.String()), 1);
    EXPECT_TRUE(ReadFile(dir / "popprofile.def").starts_with("[version]\r\n12\r\n\r\n"));
}

TEST(PopProfileSetting, DamagedTimeStampYieldsTheCurrentTime) {
    for (const char* stamp : {"2009,3,15,10,20", "2009,3,15,10,20,", "yesterday"}) {
        const TempDir dir;
        WriteFile(dir / "popprofile.def", std::string("[lasttime]\r\n") + stamp + "\r\n");
        S setting;
        setting.lasttime = 0;
        const CTime before = CurrentTime();
        EXPECT_EQ(setting.Load(dir.String()), 1);
        EXPECT_LE(before, setting.lasttime) << stamp;
        EXPECT_LE(setting.lasttime, CurrentTime()) << stamp;
    }
}

TEST(PopProfileSetting, PasswordInClearIsTakenAsItIsAndAsksForTheFileToBeRewritten) {
    const TempDir dir;
    const struct {
        std::string pop, smtp;
        int result;
    } cases[] = {{"pa$$word!", "np2c", 2}, {"np2c", "np2c  ", 1}, {"np2c", "sec-ret ", 2}, {"secret12", "np2c", 1}};
    for (const auto& c : cases) {
        WriteFile(dir / "popprofile.def", "[poppassword]\r\n" + c.pop + "\r\n[smtppassword]\r\n" + c.smtp + "\r\n");
        CPopProfileSetting setting;
        EXPECT_EQ(setting.Load(dir.String()), c.result) << c.pop << c.smtp;
        EXPECT_EQ(setting.poppassword, DecodePassWord(c.pop));
        EXPECT_EQ(setting.smtppassword, DecodePassWord(c.smtp));
    }
}

TEST(PopProfileSetting, PasswordOfAnyBytesSurvives) {
    const TempDir dir;
    S saved;
    saved.poppassword = "; [timer]\r\n\x81\x5B\t ";
    saved.smtppassword = std::string("\x01\0\xFE", 3);
    EXPECT_EQ(saved.Save(dir.String()), 1);
    S loaded;
    EXPECT_EQ(loaded.Load(dir.String()), 1);
    EXPECT_EQ(loaded.poppassword, saved.poppassword);
    EXPECT_EQ(loaded.smtppassword, saved.smtppassword);
}

// Its stored form begins with "//". It takes two control characters in front to get there.
TEST(PopProfileSetting, PasswordWhoseStoredFormReadsLikeACommentIsLostOnLoading) {
    const TempDir dir;
    S setting;
    setting.poppassword = std::string("\0\x01", 2);
    EXPECT_EQ(setting.Save(dir.String()), 1);
    EXPECT_NE(ReadFile(dir / "popprofile.def").find("[poppassword]\r\n//4=\r\n"), std::string::npos);
    S loaded;
    loaded.poppassword = "previous";
    EXPECT_EQ(loaded.Load(dir.String()), 1);
    EXPECT_EQ(loaded.poppassword, "previous");
}

}  // namespace
}  // namespace tarvex
