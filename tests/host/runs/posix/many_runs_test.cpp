// `tarvex run` of many profiles: what is printed, by the command itself and by the service.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "host/system/command_error.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using Words = std::vector<std::string>;

struct Said {
    int code = -1;
    std::string printed;
    std::string errors;
};

enum class By { Command, Service };

// Three profiles: of a mailbox with mail, of an empty one, and of one that refuses the password.
class ManyRuns : public ::testing::TestWithParam<By> {
protected:
    void SetUp() override {
        mailbox_.Add(MailNumber(1));
        mailbox_.Add(MailNumber(2));
        for (MailboxServer* const server : {&mailbox_, &empty_, &refusing_}) AddProfile(server->Port());
        if (GetParam() == By::Command) return;
        service_ = std::make_unique<ChildProcess>(
            Words{TARVEX_HOST, "--root", host_.Root(), "serve", "--every", "0.02"}, ChildProcess::Output::Together);
        ASSERT_TRUE(service_->WaitForOutput("serving ", 20s));
    }

    void TearDown() override {
        if (!service_) return;
        service_->Signal(SIGTERM);
        service_->Wait();
    }

    // Not due by itself, so that the service leaves it to the command.
    void AddProfile(int pop_port) {
        host_.AddProfile(pop_port, sink_.Port(), [](CPopProfile& profile) {
            profile.setting.timer = 60;
            profile.setting.apop = 0;
            profile.CreateNewForwardAddress("office", "office@example.net");
        });
    }

    Said Run(Words words) const {
        words.insert(words.begin(), {"run", "--now"});
        ChildProcess run = host_.StartCommand(words);
        run.Wait();
        return {run.ExitCode(), Unix(run.Printed()), Unix(run.Errors())};
    }

    static constexpr const char* kFailure = "tarvex: user2/from0: failed: -ERR wrong user or password\n";

    MailboxServer mailbox_{"user", "secret"};
    MailboxServer empty_{"user", "secret"};
    MailboxServer refusing_{"user", "another"};
    SinkServer sink_;
    Host host_;
    std::unique_ptr<ChildProcess> service_;
};

TEST_P(ManyRuns, AreSummedUpBelowALineForEachThatDidSomething) {
    const Said said = Run({});
    EXPECT_EQ(said.code, kUnavailable);
    EXPECT_EQ(said.printed,
              "user0/from0: forwarded 2 messages (4 copies)\n3 profiles: 2 messages to 2 addresses, 1 failed\n");
    EXPECT_EQ(said.errors, kFailure);
    const Said again = Run({"user0/from0", "user1/from0"});
    EXPECT_EQ(again.code, 0);
    EXPECT_EQ(again.printed, "2 profiles: nothing forwarded\n");
    EXPECT_EQ(again.errors, "");
}

TEST_P(ManyRuns, QuietOnesPrintFailuresAndNothingElse) {
    const Said said = Run({"--quiet"});
    EXPECT_EQ(said.code, kUnavailable);
    EXPECT_EQ(said.printed, "");
    EXPECT_EQ(said.errors, kFailure);
    const Said good = Run({"--quiet", "user0/from0", "user1/from0"});
    EXPECT_EQ(good.code, 0);
    EXPECT_EQ(good.printed + good.errors, "");
}

TEST_P(ManyRuns, VerboseOnesPrintEveryConversationAndNoPassword) {
    const Said said = Run({"--verbose"});
    EXPECT_EQ(said.code, kUnavailable);
    EXPECT_THAT(said.printed, AllOf(HasSubstr("from0: forwarded 2 messages (4 copies)\n---- Operation starting at "),
                                    HasSubstr("from0: nothing new\n---- Operation"), HasSubstr("\n-ERR wrong user"),
                                    HasSubstr("USER user"), Not(HasSubstr("secret"))));
    EXPECT_THAT(said.printed, Not(HasSubstr("3 profiles")));
    EXPECT_EQ(said.errors, kFailure);
    EXPECT_EQ(Run({"--verbose", "--quiet"}).code, kBadUsage);
}

TEST_P(ManyRuns, OneThatIsNamedPrintsItsConversation) {
    EXPECT_THAT(Run({"user1/from0"}).printed, HasSubstr("from0: nothing new\n---- Operation starting at "));
}

INSTANTIATE_TEST_SUITE_P(Bys, ManyRuns, ::testing::Values(By::Command, By::Service),
                         [](const auto& one) { return one.param == By::Command ? "Command" : "Service"; });

}  // namespace
}  // namespace tarvex::testing
