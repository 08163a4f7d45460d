// The ways to a reader as this system has them: mails as another program decodes them, and a program that is told.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iconv.h>
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "host/alerts/alert_mail.h"
#include "host/alerts/alert_sending.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using host::AlertMail;
using host::Language;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using Clock = std::chrono::steady_clock;

constexpr auto kLong = 30s;

template <class Condition>
bool Eventually(Condition condition) {
    for (const auto deadline = Clock::now() + kLong; Clock::now() < deadline; std::this_thread::sleep_for(10ms)) {
        if (condition()) return true;
    }
    return condition();
}

// Nothing where it is not ISO-2022-JP to the letter.
std::string FromJis(std::string jis) {
    const iconv_t converter = iconv_open("UTF-8", "ISO-2022-JP");
    std::string utf8(4 * jis.size() + 16, '\0');
    char* in = jis.data();
    char* out = utf8.data();
    std::size_t in_left = jis.size();
    std::size_t out_left = utf8.size();
    const bool good = iconv(converter, &in, &in_left, &out, &out_left) == 0;
    iconv_close(converter);
    utf8.resize(good ? utf8.size() - out_left : 0);
    return utf8;
}

std::string Body(const std::string& mail) { return mail.substr(mail.find("\r\n\r\n") + 4); }

TEST(AlertMail, InJapaneseIsStrictIso2022Jp) {
    const std::string line =
        "-ERR \xE3\x83\x91\xE3\x82\xB9\xE3\x83\xAF\xE3\x83\xBC\xE3\x83\x89 \xE2\x91\xA0 \xEF\xBD\xB1 \xF0\x9F\x90\xB3 "
        "end";
    const std::string mail = AlertMail({"\xE9\x80\x9A\xE7\x9F\xA5", line + "\n.dot\n"}, Language::Japanese,
                                       "from@example.org", "to@example.org", 0);
    EXPECT_THAT(mail, AllOf(HasSubstr("charset=ISO-2022-JP\r\nContent-Transfer-Encoding: 7bit\r\n"),
                            HasSubstr("\r\nSubject: =?ISO-2022-JP?B?"), HasSubstr("\r\n..dot\r\n.\r\n")));
    for (const char c : mail) ASSERT_LT(static_cast<unsigned char>(c), 0x80);
    const std::string text = FromJis(Body(mail));
    EXPECT_THAT(text, HasSubstr("-ERR \xE3\x83\x91\xE3\x82\xB9\xE3\x83\xAF\xE3\x83\xBC\xE3\x83\x89"));
    EXPECT_THAT(text, HasSubstr("end\r\n"));
}

TEST(AlertMail, InEnglishIsSevenBitWhateverIsInIt) {
    const std::string plain = AlertMail({"a", "b\n"}, Language::English, "from@example.org", "to@example.org", 0);
    EXPECT_THAT(plain, AllOf(HasSubstr("\r\nFrom: Tarvex <from@example.org>\r\n"), HasSubstr("charset=us-ascii\r\n"),
                             HasSubstr("\r\nDate: Thu, 1 Jan 1970 00:00:00 +0000\r\n")));
    EXPECT_EQ(Body(plain), "b\r\n.\r\n");
    std::string long_subject;
    for (int i = 0; i < 60; ++i) long_subject += "a\xE3\x81\x82";
    for (const Language language : {Language::English, Language::Japanese}) {
        const std::string mail = AlertMail({long_subject + "\r\nBcc: x@example.org", long_subject + "\n"}, language,
                                           "f@a.org", "t@a.org", 0);
        EXPECT_THAT(mail, Not(HasSubstr("\nBcc")));
        const std::string head = mail.substr(0, mail.find("\r\n\r\n"));
        for (std::size_t at = 0; at < head.size();) {
            const std::size_t end = std::min(head.find("\r\n", at), head.size());
            EXPECT_LE(end - at, 90U) << head.substr(at, end - at);
            at = end + 2;
        }
        for (const char c : mail) ASSERT_LT(static_cast<unsigned char>(c), 0x80);
    }
}

class AlertProgram : public ::testing::Test {
protected:
    std::string Script(const std::string& text) const {
        const std::string path = folder_ / "told";
        WriteFile(path, "#!/bin/sh\n" + text);
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        return path;
    }

    host::SendingOutcome Tell(const std::string& command) {
        host::Reader reader;
        reader.command = command;
        return host::TellProgram(reader, {{"test", true}, {"text", std::string(100'000, 'x')}},
                                 {copy_, [this] { return Clock::now() > stops_; }});
    }

    TempDir folder_;
    CPopProfile copy_;
    Clock::time_point stops_ = Clock::now() + 1h;
};

TEST_F(AlertProgram, GetsJsonOnItsInputAndItsArgumentsAsTheyAre) {
    const std::string file = folder_ / "heard";
    EXPECT_EQ(Tell(Script("cat > \"$1\"; printf '%s' \"$2\" > \"$1.2\"\n") + " " + file + " 'a b;$HOME'").why, "");
    const nlohmann::json heard = nlohmann::json::parse(ReadFile(file));
    EXPECT_EQ(heard.at("test"), true);
    EXPECT_EQ(heard.at("text").get<std::string>().size(), 100'000U);
    EXPECT_EQ(ReadFile(file + ".2"), "a b;$HOME");
    EXPECT_EQ(Tell(Script("exit 0\n")).why, "") << "one that does not read";
}

TEST_F(AlertProgram, ThatFailsOrIsNotThereIsToldOf) {
    EXPECT_EQ(Tell(Script("exit 3\n")).why, "alert_command ended with code 3");
    EXPECT_THAT(Tell("/nowhere/program").why, HasSubstr("alert_command cannot be started"));
    EXPECT_THAT(Tell("\"open").why, HasSubstr("quote"));
}

TEST_F(AlertProgram, IsEndedWithItsChildren) {
    const std::string file = folder_ / "child";
    stops_ = Clock::now() + 500ms;
    EXPECT_THAT(Tell(Script("sleep 600 & echo $! > \"$1.new\"; mv \"$1.new\" \"$1\"; wait\n") + " " + file).why,
                HasSubstr("was interrupted"));
    const int child = std::atoi(ReadFile(file).c_str());
    ASSERT_GT(child, 0);
    EXPECT_TRUE(Eventually([child] {
        return kill(child, 0) != 0 ||
               ReadFile("/proc/" + std::to_string(child) + "/stat").find(") Z") != std::string::npos;
    }));
}

}  // namespace
}  // namespace tarvex::testing
