// `trace` and `health`, and a status that fits its terminal: what somebody is told who asks.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <ctime>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "host/service/posix/control_socket.h"
#include "host/system/command_error.h"
#include "host/terminal/table.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using Clock = std::chrono::steady_clock;
using Json = nlohmann::json;

constexpr auto kLong = 20s;

class Asking : public ::testing::Test {
protected:
    void AddProfile(int timer = 0) {
        host_.AddProfile(mailbox_.Port(), sink_.Port(), [timer](CPopProfile& profile) {
            profile.setting.timer = timer;
            profile.setting.lasttime = 1;  // long ago, so that it is due once
            profile.setting.timeout = 60;  // no answer is waited for in vain
        });
    }

    std::string Health(int code, const std::vector<std::string>& more = {}) {
        std::vector<std::string> words = {"health"};
        words.insert(words.end(), more.begin(), more.end());
        return host_.Tell(words, code);
    }

    std::atomic<bool> blocked_ = false;  // read by the server
    MailboxServer mailbox_{"user", "secret"};
    SinkServer sink_;
    Host host_;
};

// ---- trace

TEST_F(Asking, AMessageIsFoundByItsSubjectAndByTheNameInTheServersQueue) {
    AddProfile();
    mailbox_.Add({"id-1",
                  "From: =?UTF-8?B?5bGx55Sw?= <y@mail.test>\r\nSubject: =?UTF-8?B?5Lya6K2w44Gu5pel56iL?=\r\n"
                  "Message-ID: <77@mail.test>\r\n\r\ntext\r\n"});
    mailbox_.Add(MailNumber(2));
    host_.Run();
    const std::string told = host_.Tell({"trace", "会議"});
    EXPECT_THAT(told, ContainsRegex("^Times in [A-Z]+, [+-][0-9]+\\.\nM[12] user0/from0: 会議の日程, from 山田 "
                                    "<y@mail.test>, "));
    EXPECT_THAT(told, ContainsRegex("`tarvex resend M[12]` sends it again"));
    EXPECT_THAT(told,
                AllOf(HasSubstr("\n    Message-ID <77@mail.test>\n    id id-1\n    fetched, "),
                      ContainsRegex("\n    phone@example.net: sent, .* \\(within [0-9]+ m?s\\): 250 2.0.0 taken\n")));
    EXPECT_THAT(told, Not(HasSubstr("mail-2")));
    EXPECT_EQ(host_.Tell({"trace", "77@mail.test"}), told);
    EXPECT_EQ(host_.Tell({"trace", "--profile", "user0/from0", "y@mail", "phone@example.net"}), told);
    const Json json = Json::parse(host_.Tell({"trace", "--json", "id-1"}));
    EXPECT_EQ(json[0]["subject"], "会議の日程");
    EXPECT_EQ(json[0]["copies"][0]["fate"], "sent");
    EXPECT_EQ(Json::parse(host_.Tell({"trace", "--json"})).size(), 2U);
    EXPECT_THAT(host_.Tell({"trace", "-n", "1"}), HasSubstr("There are older ones"));
    EXPECT_THAT(host_.Tell({"trace", "nobody"}, host::kNotFound), StartsWith("No such message is remembered."));
}

TEST_F(Asking, AMessageThatWaitsSaysWhatForAndWhenItWasSentThat) {
    AddProfile();
    mailbox_.Add(MailNumber(1));
    sink_.SetJudge([](const DeliveredMail&) { return "451 4.7.1 greylisted\x1b[31m"; });
    host_.Run(kUnavailable);
    EXPECT_THAT(host_.Tell({"trace", "greylisted"}),
                AllOf(ContainsRegex("phone@example.net: waits for a later run, .*: 451 4.7.1 greylisted"),
                      HasSubstr("`tarvex status user0/from0`"), Not(HasSubstr("\x1b"))));
    sink_.SetJudge({});
    host_.Run();
    EXPECT_THAT(host_.Tell({"trace", "mail-1"}), AllOf(HasSubstr(": sent, "), Not(HasSubstr("waits"))));
}

TEST_F(Asking, ATreeWithRulesTellsWhatIsSetAsideAndThatItWasSentLater) {
    AddProfile();
    host_.Tell({"init", "--rules"});
    mailbox_.Add(MailNumber(1));
    sink_.SetJudge([](const DeliveredMail&) { return "554 5.7.1 no"; });
    host_.Run();
    EXPECT_THAT(host_.Tell({"trace", "mail-1"}),
                AllOf(HasSubstr(": refused and set aside, "), HasSubstr("tarvex held")));
    sink_.SetJudge({});
    host_.Tell({"held", "send", "user0/from0"});
    EXPECT_THAT(host_.Tell({"trace", "mail-1"}), AllOf(HasSubstr(": sent, "), HasSubstr(": refused and set aside, ")));
}

TEST_F(Asking, AServiceWritesDownWhatALongRunHasDoneSoFar) {
    AddProfile();
    mailbox_.Add(MailNumber(1));
    mailbox_.Add(MailNumber(2));
    blocked_ = true;
    sink_.SetJudge([this](const DeliveredMail& mail) {
        while (blocked_ && mail.text.find("mail-2") != std::string::npos) std::this_thread::sleep_for(5ms);
        return std::string();
    });
    ChildProcess service({TARVEX_HOST, "--root", host_.Root(), "serve", "--every", "0.02"},
                         ChildProcess::Output::Together);
    std::string told;
    for (const auto deadline = Clock::now() + kLong;
         Clock::now() < deadline && told.find("sent") == std::string::npos;) {
        ChildProcess trace = host_.StartCommand({"trace", "mail-1"});
        trace.Wait();
        told = trace.Printed();
    }
    EXPECT_THAT(told, HasSubstr(": sent, "));
    blocked_ = false;
    service.Signal(SIGTERM);
    service.Wait();
}

// ---- health

TEST_F(Asking, HealthIsOneLineAndACode) {
    AddProfile(60);
    host_.Run();
    EXPECT_THAT(Health(0), ContainsRegex("^TARVEX OK - 1 profile \\| profiles=1 failing=0 held=0\n$"));
    mailbox_.SetFault([](const std::string& command) { return command.starts_with("APOP") ? "-ERR no | yes" : ""; });
    host_.Run(kUnavailable, {"--now"});
    EXPECT_THAT(Health(1), ContainsRegex("^TARVEX WARNING - user0/from0 fails since .*: -ERR no / yes \\| [^|\n]*\n$"));
    host_.Run(kUnavailable, {"--now"});
    host_.Run(kUnavailable, {"--now"});
    EXPECT_THAT(Health(2), StartsWith("TARVEX CRITICAL - user0/from0 fails since"));
    mailbox_.SetFault({});
    host_.Run(0, {"--now"});
    EXPECT_THAT(Health(0, {"user0/from0"}), StartsWith("TARVEX OK"));
}

TEST_F(Asking, HealthNoticesThatNothingRunsAnyMore) {
    host_.AddProfile(1, 1, [](CPopProfile& profile) {
        profile.setting.timer = 10;
        profile.setting.lasttime = std::time(nullptr) - 35 * 60;
    });
    EXPECT_THAT(Health(0), StartsWith("TARVEX OK"));
    EXPECT_THAT(Health(2, {"--max-age", "30"}), HasSubstr("user0/from0 has not run when it was due"));
}

TEST_F(Asking, HealthOfNoTreeIsUnknown) {
    EXPECT_THAT(Health(3), StartsWith("TARVEX UNKNOWN - "));
    AddProfile();
    EXPECT_THAT(Health(3, {"nobody"}), StartsWith("TARVEX UNKNOWN - "));
}

TEST_F(Asking, HealthAndStatusTellOfAServiceThatIsHalted) {
    AddProfile(600);
    ChildProcess service({TARVEX_HOST, "--root", host_.Root(), "serve"}, ChildProcess::Output::Together);
    ASSERT_TRUE(service.WaitForOutput("run ended", kLong));
    EXPECT_THAT(Health(0), StartsWith("TARVEX OK"));
    service.Signal(SIGSTOP);
    EXPECT_THAT(Health(2), StartsWith("TARVEX CRITICAL - the service does not answer"));
    ChildProcess status = host_.StartCommand({"status"});
    status.Wait();
    EXPECT_EQ(status.ExitCode(), host::kTryLater);
    EXPECT_THAT(status.Errors(), HasSubstr("does not answer"));
    service.Signal(SIGCONT);
    service.Signal(SIGTERM);
    service.Wait();
}

TEST_F(Asking, HealthOfTheServiceAloneKnowsNoMailboxes) {
    EXPECT_EQ(Health(2, {"--service"}), "TARVEX CRITICAL - no service runs the tree\n");
    host_.AddProfile(1, 1, [](CPopProfile& profile) { profile.setting.timer = 600; });
    for (int i = 0; i < 3; ++i) host_.Run(kUnavailable, {"--now"});
    ChildProcess service({TARVEX_HOST, "--root", host_.Root(), "serve"}, ChildProcess::Output::Together);
    ASSERT_TRUE(service.WaitForOutput("serving", kLong));
    EXPECT_THAT(Health(2), StartsWith("TARVEX CRITICAL - user0/from0 fails"));
    EXPECT_EQ(Health(0, {"--service"}), "TARVEX OK - the service answers\n");
    service.Signal(SIGSTOP);
    EXPECT_EQ(Health(2, {"--service"}), "TARVEX CRITICAL - the service does not answer\n");
    service.Signal(SIGCONT);
    service.Signal(SIGTERM);
    service.Wait();
}

TEST_F(Asking, HealthTellsOfAHaltedServiceWhoseQueueIsFull) {
    AddProfile(600);
    const host::SocketAddress address(host_.Root());
    const host::Descriptor halted(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(halted.Get(), address.Get(), address.kSize), 0);
    ASSERT_EQ(listen(halted.Get(), 0), 0);
    std::vector<host::Descriptor> queue;
    do {
        queue.emplace_back(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    } while (connect(queue.back().Get(), address.Get(), address.kSize) == 0);
    EXPECT_THAT(Health(2), StartsWith("TARVEX CRITICAL - the service does not answer"));
}

// ---- status

TEST_F(Asking, StatusShowsOnlyWhatFails) {
    AddProfile();
    host_.AddProfile(1, 1);
    host_.Run(kUnavailable);
    EXPECT_THAT(host_.Tell({"status"}, 1), AllOf(HasSubstr("user0/from0"), HasSubstr("user1/from0")));
    EXPECT_THAT(host_.Tell({"status", "--failed"}, 1), AllOf(Not(HasSubstr("user0/from0")), HasSubstr("user1/from0")));
    EXPECT_THAT(host_.Tell({"status", "--failed", "user0/from0"}), HasSubstr("None fails."));
}

TEST(NarrowTable, LeavesColumnsOutAndCutsInTheMiddle) {
    host::Table table({"PROFILE", "RUNS", "REASON"});
    table.Add({"user0/from0", "12", "failed: 会議室 could not be reached"});
    const auto print = [&](std::size_t columns) {
        std::ostringstream text;
        table.Print(text, {columns, {1}});
        return text.str();
    };
    EXPECT_EQ(print(0), "PROFILE      RUNS  REASON\nuser0/from0  12    failed: 会議室 could not be reached\n");
    EXPECT_EQ(print(53), "PROFILE      REASON\nuser0/from0  failed: 会議室 could not be reached\n");
    for (std::size_t columns = 12; columns < 53; ++columns) {
        std::istringstream lines(print(columns));
        for (std::string line; std::getline(lines, line);) EXPECT_LE(host::Columns(line), columns) << line;
    }
    EXPECT_EQ(host::CutInTheMiddle("user0/from12", 9), "use...m12");
    EXPECT_EQ(host::CutInTheMiddle("会議室会議室", 8), "会...室");
    EXPECT_EQ(host::CutInTheMiddle("abc", 2), "..");
}

}  // namespace
}  // namespace tarvex::testing
