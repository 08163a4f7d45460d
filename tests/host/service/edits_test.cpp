// Edits that commands have made by the service: while runs go on, while it stops, and a thousand at once.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "host/service/service_connection.h"
#include "host/system/command_error.h"
#include "tests/host/edit_words.h"
#include "tests/host/service/served_tree.h"

namespace tarvex::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::SizeIs;
using ::testing::StartsWith;

using ServedEdits = ServiceTest;

TEST_F(ServedEdits, AreMadeByTheServiceAndTakeEffectAtOnce) {
    AddProfile(600);
    const auto service = Serve();
    EXPECT_THAT(Tell({"profile", "set", kProfile, "--timer", "0"}), HasSubstr("timer: \"600\""));
    EXPECT_TRUE(service->WaitForOutput("profile set user0/from0", kLong));
    EXPECT_TRUE(service->WaitForOutput(kStarted, kLong));
    Stop(*service);
}

TEST_F(ServedEdits, ThatFailSayWhyAndExitAsWithoutAService) {
    AddProfile(600);
    const auto service = Serve();
    ChildProcess command = host_.StartCommand({"profile", "set", "nobody", "--timer", "0"});
    command.Wait();
    EXPECT_EQ(command.ExitCode(), host::kNotFound);
    EXPECT_THAT(Slashed(command.Errors()), HasSubstr("there is no profile \"nobody\""));
    Stop(*service);
}

TEST_F(ServedEdits, OfARunningProfileWaitForItsEndAndSurviveIt) {
    mailbox_.Add(MailNumber(1));
    Block();
    AddProfile();
    const auto service = Serve();
    WaitUntilBlocked();
    ChildProcess command =
        host_.StartCommand({"profile", "set", kProfile, "--nickname", "kept"}, ChildProcess::Output::Together);
    EXPECT_TRUE(service->WaitForOutput(kStarted, kLong));
    EXPECT_TRUE(command.WaitForOutput("waiting for the run of ", kLong));
    blocking_ = false;
    ASSERT_TRUE(command.WaitFor(kLong));
    EXPECT_EQ(command.ExitCode(), 0);
    EXPECT_THAT(Slashed(command.Printed()), StartsWith("tarvex: waiting for the run of user0/from0 to end\n"));
    ASSERT_TRUE(service->WaitForOutput("run ended, nothing new", kLong));  // of a run that began with the new name
    Stop(*service);
    EXPECT_EQ(Setting("nickname"), "kept");
    EXPECT_THAT(sink_.Delivered(), SizeIs(1));
}

TEST_F(ServedEdits, OfOtherProfilesDoNotWait) {
    Block();
    AddProfile();
    host_.AddProfile(1, 1, [](CPopProfile& profile) { profile.setting.timer = 600; });
    const auto service = Serve();
    WaitUntilBlocked();
    EXPECT_THAT(Tell({"profile", "set", "user1/from0", "--nickname", "other"}), HasSubstr("other"));
    EXPECT_THAT(Tell({"forward", "set", "user0/from0/forwardto0", "--nickname", "small"}), HasSubstr("small"));
    blocking_ = false;
    Stop(*service);
}

TEST_F(ServedEdits, AnAddressThatIsAddedDuringARunKeepsItsListOfIds) {
    mailbox_.Add(MailNumber(1));
    Block();
    const std::string profile = AddProfile();
    const auto service = Serve();
    WaitUntilBlocked();
    auto connection = host::ServiceConnection::Try(host_.Root());
    ASSERT_TRUE(connection);
    host::Reply reply;
    ASSERT_EQ(
        connection->Edit(EditOf({"forward", "add", kProfile, "address=new@example.net"}, {}, {"mail-1", "b\xE9te"}),
                         reply, [](const std::string&) {}),
        0)
        << reply.error;
    EXPECT_EQ(ReadFile(profile + "/forwardto1/uidl.def"), "mail-1\r\nb\xE9te\r\n");
    blocking_ = false;
    mailbox_.Add(MailNumber(2));
    ASSERT_TRUE(Eventually([this] { return sink_.Delivered().size() == 3; }));
    ASSERT_TRUE(Eventually([&] { return ReadFile(profile + "/forwardto1/uidl.def") == "mail-1\r\nmail-2\r\n"; }));
    Stop(*service);
    EXPECT_THAT(sink_.Delivered(), SizeIs(3));
}

TEST_F(ServedEdits, ThatWaitAreMadeWhenTheServiceStops) {
    Block();
    AddProfile();
    const auto service = Serve();
    WaitUntilBlocked();
    ChildProcess command =
        host_.StartCommand({"profile", "set", kProfile, "--nickname", "last"}, ChildProcess::Output::Together);
    EXPECT_TRUE(command.WaitForOutput("waiting for the run of ", kLong));
    service->Interrupt();
    ASSERT_TRUE(command.WaitFor(kLong));
    blocking_ = false;
    EXPECT_EQ(command.ExitCode(), 0) << command.Printed();
    EXPECT_TRUE(service->WaitFor(kLong));
    EXPECT_EQ(Setting("nickname"), "last");
}

TEST_F(ServedEdits, AreNotMadeForACommandThatHasGone) {
    Block();
    AddProfile();
    const auto service = Serve();
    WaitUntilBlocked();
    {
        ChildProcess command =
            host_.StartCommand({"profile", "set", kProfile, "--nickname", "unwanted"}, ChildProcess::Output::Together);
        EXPECT_TRUE(command.WaitForOutput("waiting for the run of ", kLong));
    }
    blocking_ = false;
    ASSERT_TRUE(service->WaitForOutput("run ended", kLong));
    const std::size_t told = service->Printed().size();
    ASSERT_TRUE(Eventually([&] {
        service->WaitForOutput("never", 10ms);
        return service->Printed().find("run ended", told) != std::string::npos;
    })) << "the profile is not held for ever";
    Stop(*service);
    EXPECT_EQ(Setting("nickname"), "");
}

TEST_F(ServedEdits, AUserIsRemovedThoughOneOfHisProfilesAlwaysRuns) {
    AddProfile();
    Tell({"profile", "add", "user0", "two@example.org", "--again", "--popserver", "127.0.0.1", "--popport",
          std::to_string(mailbox_.Port()), "--popuser", "user", "--timer", "0"});
    const auto service = Serve({}, "0.01");
    ASSERT_TRUE(service->WaitForOutput("user0/from1: run started", kLong));
    ChildProcess command = host_.StartCommand({"user", "remove", "user0", "--yes"});
    ASSERT_TRUE(command.WaitFor(kLong));
    EXPECT_EQ(command.ExitCode(), 0) << command.Printed();
    Stop(*service);
    EXPECT_FALSE(std::filesystem::exists(host_.Root() + "/user0"));
}

// A thousand edits from four clients against a profile that runs all the time: whatever was acknowledged is on disk in
// the end, and no message is delivered twice or forgotten.
TEST_F(ServedEdits, NoneIsLostInAThousandRacesWithQuickRuns) {
    constexpr int kClients = 4;
    constexpr int kEdits = 250;  // of each
    const std::string profile = AddProfile();
    const auto service = Serve({}, "0.01");
    static constexpr std::array<const char*, kClients> kKeys = {"nickname", "popuser", "smtpuser", "logsize"};
    std::atomic<int> failures = 0;
    std::atomic<int> at_work = kClients + 1;
    const auto make = [&](const std::vector<std::string>& words) {
        auto connection = host::ServiceConnection::Try(host_.Root());
        host::Reply reply;
        if (connection && connection->Edit(EditOf(words), reply, [](const std::string&) {}) == 0) return;
        ++failures;
        ADD_FAILURE() << reply.error;
    };
    const auto edit = [&](int client) {
        for (int i = 1; i <= kEdits; ++i) {
            const std::string value = client == 1 ? "user" : client == 3 ? std::to_string(i) : "v" + std::to_string(i);
            make({"profile", "set", kProfile, std::string(kKeys[static_cast<std::size_t>(client)]) + '=' + value});
            CPopProfileSetting setting;
            if (client == 0 && (!setting.Load(profile) || setting.nickname != value)) ++failures;
            if (client == 2 && (!setting.Load(profile) || setting.smtpuser != value)) ++failures;
        }
        --at_work;
    };
    std::atomic<bool> raced = false;
    const auto come_and_go = [&] {
        for (int i = 1; i <= kEdits / 2 || (!raced && i <= 20 * kEdits); ++i) {  // edits are quick on some disks
            const std::string guest = "guest" + std::to_string(i) + "@example.net";
            make({"forward", "add", kProfile, "address=" + guest, "status=0"});
            make({"forward", "remove", guest});
        }
        make({"forward", "add", kProfile, "address=guest@example.net", "status=0"});
        --at_work;
    };
    std::vector<std::thread> clients;
    for (int client = 0; client < kClients; ++client) clients.emplace_back(edit, client);
    clients.emplace_back(come_and_go);
    int mails = 0;
    while (at_work > 0) {
        if (mails < 200) mailbox_.Add(MailNumber(++mails));
        if (mails % 20 == 0) service->LoadAgain();
        service->WaitForOutput("(never)", 10ms);
        raced = Count(service->Printed(), "run ended") > 100;
    }
    for (std::thread& client : clients) client.join();
    EXPECT_TRUE(Eventually([&] { return std::ssize(sink_.Delivered()) >= mails; }));
    Stop(*service);
    EXPECT_EQ(failures, 0);
    CPopProfileSetting setting;
    ASSERT_TRUE(setting.Load(profile));
    EXPECT_EQ(setting.nickname, "v250");
    EXPECT_EQ(setting.smtpuser, "v250");
    EXPECT_EQ(setting.logsize, kEdits);
    CPopProfile stored;
    stored.SetPath(CString(profile));
    ASSERT_EQ(stored.forward_addresses.size(), 2U);
    EXPECT_TRUE(std::ranges::any_of(
        stored.forward_addresses, [](const auto& forward) { return forward->setting.address == "guest@example.net"; }));
    EXPECT_EQ(std::ssize(sink_.Delivered()), mails);
    EXPECT_EQ(Count(ReadFile(profile + "/forwardto0/uidl.def"), "\r\n"), mails);
    EXPECT_GT(Count(service->Printed(), "run ended"), 100) << "the edits had something to race with";
}

TEST_F(ServedEdits, AreToldInOneShortLine) {
    AddProfile(600);
    const auto service = Serve();
    const std::string forged = "x\n\xE6\x97\xA5 user0/from0: run ended, failed: " + std::string(100, '!');
    for (const std::string& name : {forged, std::string(100, 'y') + "\xE6\x97\xA5"}) {
        ChildProcess command = host_.StartCommand({"user", "set", name, "--loginname", "z"});
        command.Wait();
        EXPECT_EQ(command.ExitCode(), host::kNotFound);
        ChildProcess run = host_.StartCommand({"run", name});
        run.Wait();
        EXPECT_EQ(run.ExitCode(), host::kNotFound);
    }
    EXPECT_TRUE(service->WaitForOutput("user set y", kLong));
    Stop(*service);
    EXPECT_EQ(Count(service->Printed(), "run ended"), 0);
    EXPECT_EQ(Count(service->Printed(), std::string(56, 'y')), 1) << "in the reason, which may be longer";
}

}  // namespace
}  // namespace tarvex::testing
