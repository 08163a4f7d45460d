// Edits from the console while mailboxes run, and while the command edits the same files.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <thread>

#include "tests/host/desk/desk_fixture.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using host::Json;

// Each writer has a key of the same file for itself; together they make a thousand edits.
struct Writer {
    const char* key;
    const char* before_number;
};
constexpr Writer kWriters[] = {{"nickname", "name "}, {"smtpuser", "user"}, {"timeout", ""}, {"logsize", "1"}};
constexpr int kOfEach = 240;
constexpr int kOfCommand = 40;

class DeskRaceTest : public DeskTest {
protected:
    std::string Read(const Json& session, const std::string& key) const {
        const Json answer = AskAs(session, "profile", {{"profile", "user0/from0"}});
        for (const Json& one : answer["profile"]["keys"]) {
            if (one["key"] == key) return one["value"];
        }
        return answer.dump();
    }

    void Write(const Json& session, const Writer& writer) const {
        for (int i = 1; i <= kOfEach; ++i) {
            const std::string value = writer.before_number + std::to_string(i);
            const Json values = {{writer.key, value}};
            const Json set = Finish(
                session, AskAs(session, "change",
                               {{"kind", "profile"}, {"verb", "set"}, {"name", "user0/from0"}, {"values", values}}));
            ASSERT_EQ(set["status"], "ok") << set;
            ASSERT_EQ(Read(session, writer.key), value);
        }
    }

    void WriteByCommand() const {
        for (int i = 1; i <= kOfCommand; ++i) {
            const std::string value = "taro" + std::to_string(i) + "@example.org";
            ChildProcess command(
                {TARVEX_HOST, "--root", host_.Root(), "profile", "set", "user0/from0", "--address", value},
                ChildProcess::Output::Together);  // it may say that it waits for a run
            command.Wait();
            ASSERT_EQ(command.ExitCode(), 0) << command.Printed();
        }
    }
};

TEST_F(DeskRaceTest, AThousandEditsBesideRunsAndTheCommandLoseNone) {
    WriteFile(folder_ / "password", "secret\n");
    host_.Tell({"profile", "set", "user0/from0", "--timer", "always", "--password-file", folder_ / "password"});
    Serve({"--every", "0.05"});
    const Json taro = LogIn("taro");
    {
        std::vector<std::jthread> threads;
        for (const Writer& writer : kWriters) threads.emplace_back([&] { Write(taro, writer); });
        threads.emplace_back([&] { WriteByCommand(); });
        for (int i = 1; i <= 20; ++i) {
            mailbox_.Add(MailNumber(i));
            std::this_thread::sleep_for(100ms);
        }
    }
    for (const Writer& writer : kWriters)
        EXPECT_EQ(Read(taro, writer.key), writer.before_number + std::to_string(kOfEach));
    EXPECT_EQ(Read(taro, "address"), "taro" + std::to_string(kOfCommand) + "@example.org");
    EXPECT_GT(mailbox_.Received("QUIT"), 20);

    const std::string history = host_.Tell({"history", "user0/from0", "--edits", "-n", "2000"});
    std::size_t edits = 0;
    for (std::size_t at = 0; (at = history.find("profile set", at)) != std::string::npos; ++at) ++edits;
    EXPECT_EQ(edits, std::size(kWriters) * kOfEach + kOfCommand + 1);

    service_->Interrupt();
    service_->Wait();
    host_.Tell({"run", "--now", "user0/from0"});  // fetches what has come last
    EXPECT_THAT(sink_.Delivered(), ::testing::SizeIs(20));
}

}  // namespace
}  // namespace tarvex::testing
