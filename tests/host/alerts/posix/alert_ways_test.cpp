// The ways to a reader as this system has them: mails as another program decodes them, a program that is told, and the
// service that tells.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iconv.h>
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "host/alerts/alert_mail.h"
#include "host/alerts/alert_sending.h"
#include "host/history/database.h"
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

// A tree with a mailbox that refuses the login, and a reader.
class AlertingService : public ::testing::Test {
protected:
    AlertingService() {
        host_.AddProfile(mailbox_.Port(), sink_.Port(),
                         [](CPopProfile& profile) { profile.setting.popuser = "other"; });
        WriteFile(host_.Root() + "/host.def", "[version]\r\n0\r\n[backoff]\r\n0\r\n");
        host_.Tell({"rules", "set", "--alert_to", "ops@example.org", "--alert_after", "1"});
    }

    ChildProcess Serve() const { return host_.StartCommand({"serve", "--every", "0.05"}); }

    MailboxServer mailbox_{"user", "secret"};
    SinkServer sink_;
    Host host_;
};

TEST_F(AlertingService, TellsOnceAlsoWhenItIsKilledAndWhenAllIsGoodAgain) {
    {
        ChildProcess service = Serve();
        ASSERT_TRUE(Eventually([this] { return sink_.Delivered().size() == 1; }));
        ASSERT_TRUE(Eventually([this] {
            try {
                return host::Database(host_.Root() + "/.tarvex/alerts.db", host::Database::Use::Read, 1s)
                           .Number("SELECT count(*) FROM told") == 1;
            } catch (const host::DatabaseError&) {
                return false;
            }
        }));
        service.Kill();
    }
    ChildProcess service = Serve();
    const int logins = mailbox_.Received("QUIT") + mailbox_.Received("APOP");
    ASSERT_TRUE(Eventually([&] { return mailbox_.Received("QUIT") + mailbox_.Received("APOP") > logins + 20; }));
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
    service.Signal(SIGTERM);
    service.Wait();
    EXPECT_EQ(service.ExitCode(), 0);
    EXPECT_THAT(sink_.Delivered()[0].text, HasSubstr("Subject: Tarvex: user0/from0: its runs fail"));
}

TEST_F(AlertingService, ShowsInStatusWhomItCannotTell) {
    sink_.SetFault([](const std::string& command) { return command.starts_with("MAIL") ? "451 4.3.0 not now" : ""; });
    ChildProcess run = host_.Start();
    run.Wait();
    EXPECT_THAT(run.Errors(), HasSubstr("the alert to ops@example.org did not go out"));
    EXPECT_THAT(host_.Tell({"status"}, 1), HasSubstr("The alert to ops@example.org does not go out"));
    const nlohmann::json status = nlohmann::json::parse(host_.Tell({"status", "--json"}, 1));
    const nlohmann::json& failing = status.at(0).at("alerts_failing").at(0);
    EXPECT_EQ(failing.at("to"), "ops@example.org");
    EXPECT_EQ(failing.at("tries"), 1);
    EXPECT_THAT(failing.at("words").get<std::string>(), HasSubstr("451 4.3.0 not now"));
}

TEST_F(AlertingService, IsNotNeededWhereRunsAreCalled) {
    host_.Run(kUnavailable);
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
    host_.Run(kUnavailable);
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
    EXPECT_THAT(host_.Tell({"alert", "test"}), HasSubstr("ops@example.org: told, through 127.0.0.1:"));
    EXPECT_THAT(sink_.Delivered(), SizeIs(2));
    host_.Tell({"rules", "set", "--alert_language", "ja"});
    host_.Tell({"alert", "test", "user0/from0"});
    ASSERT_THAT(sink_.Delivered(), SizeIs(3));
    EXPECT_THAT(FromJis(Body(sink_.Delivered()[2].text)),
                HasSubstr("\xE8\xA9\xA6\xE3\x81\x97\xE3\x81\xAE\xE7\x9F\xA5\xE3\x82\x89\xE3\x81\x9B"));
    host_.Tell({"rules", "set", "--alert_to", ""});
    ChildProcess nobody = host_.StartCommand({"alert", "test"});
    nobody.Wait();
    EXPECT_EQ(nobody.ExitCode(), 66);
    EXPECT_THAT(nobody.Errors(), HasSubstr("nobody is told"));
}

}  // namespace
}  // namespace tarvex::testing
