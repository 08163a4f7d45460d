// The service that tells a reader by mail what is wrong, once.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "host/history/database.h"
#include "tests/host/service/served_tree.h"

namespace tarvex::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::SizeIs;

// A tree with a mailbox that refuses the login, and a reader.
class AlertingService : public ::testing::Test {
protected:
    AlertingService() {
        host_.AddProfile(mailbox_.Port(), sink_.Port(),
                         [](CPopProfile& profile) { profile.setting.popuser = "other"; });
        WriteFile(host_.Root() + "/host.def", "[version]\r\n0\r\n[backoff]\r\n0\r\n");
        host_.Tell({"rules", "set", "--alert_to", "ops@example.org", "--alert_after", "1"});
    }

    ChildProcess Serve() const {
        return host_.StartCommand({"serve", "--every", "0.05"}, ChildProcess::Output::Together);
    }

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
    service.Interrupt();
    service.Wait();
    EXPECT_EQ(service.ExitCode(), 0) << service.Printed();
    EXPECT_THAT(Slashed(sink_.Delivered()[0].text), HasSubstr("Subject: Tarvex: user0/from0: its runs fail"));
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
    EXPECT_THAT(sink_.Delivered()[2].text, HasSubstr(";n$7$NCN$i$;")) << "a trial alert, in ISO-2022-JP";
    host_.Tell({"rules", "set", "--alert_to", ""});
    ChildProcess nobody = host_.StartCommand({"alert", "test"});
    nobody.Wait();
    EXPECT_EQ(nobody.ExitCode(), 66);
    EXPECT_THAT(nobody.Errors(), HasSubstr("nobody is told"));
}

}  // namespace
}  // namespace tarvex::testing
