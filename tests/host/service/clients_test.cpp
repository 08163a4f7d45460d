// Clients of the service that mean no good.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <string>
#include <vector>

#include "host/service/command_channel.h"
#include "host/service/service_connection.h"
#include "host/system/command_error.h"
#include "tests/host/service/served_tree.h"

namespace tarvex::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::SizeIs;

class ServiceClients : public ServiceTest {
protected:
    std::unique_ptr<host::CommandChannel> Connect() const {
        auto client = host::CommandChannel::Open(host_.Root());
        EXPECT_TRUE(client);
        return client;
    }

    // All that comes until the service closes the connection.
    static std::string ReadAll(host::CommandChannel& client) {
        std::string text;
        while (const auto byte = client.Receive(1)) text += *byte;
        return text;
    }
};

TEST_F(ServiceClients, WhoSayNothingOrHalfOfItDoNotStallTheService) {
    AddProfile();
    const auto service = Serve();
    std::vector<std::unique_ptr<host::CommandChannel>> silent;
    for (int i = 0; i < 30; ++i) {
        silent.push_back(Connect());
        if (i % 2 == 0) silent.back()->Send(std::string("\0\0\1\0{\"edit\"", 11));
    }
    const int runs = mailbox_.Received("QUIT");
    EXPECT_THAT(Tell({"user", "set", "user0", "--loginname", "renamed"}), HasSubstr("renamed"));
    EXPECT_TRUE(Eventually([&] { return mailbox_.Received("QUIT") > runs + 2; }));
    Stop(*service);
}

// Whoever finds no place in time is told so.
TEST_F(ServiceClients, ThreeHundredAtOnceKeepNoRunWaitingAndTheNextOneIsAnswered) {
    AddProfile();
    const auto service = Serve();
    std::atomic<int> at_work = 0;
    std::vector<std::future<std::vector<std::unique_ptr<host::CommandChannel>>>> flood;
    for (int i = 0; i < 60; ++i) {
        flood.push_back(std::async(std::launch::async, [&] {
            std::vector<std::unique_ptr<host::CommandChannel>> silent;
            for (int j = 0; j < 5; ++j) {
                try {
                    silent.push_back(host::CommandChannel::Open(host_.Root()));
                    EXPECT_TRUE(silent.back());
                } catch (const host::CommandError& error) {
                    EXPECT_EQ(error.ExitCode(), host::kTryLater) << error.what();
                }
            }
            ++at_work;
            return silent;
        }));
    }
    EXPECT_TRUE(Eventually([&] { return at_work == 60; }));
    const int runs = mailbox_.Received("QUIT");
    EXPECT_TRUE(Eventually([&] { return mailbox_.Received("QUIT") > runs + 2; }));
    flood.clear();
    EXPECT_THAT(Tell({"user", "set", "user0", "--loginname", "renamed"}), HasSubstr("renamed"));
    Stop(*service);
}

TEST_F(ServiceClients, MayNotSendWhatIsTooLargeOrNoRequest) {
    AddProfile(600);
    const auto service = Serve();
    const auto ask = [this](const std::string& bytes) {
        const auto client = Connect();
        EXPECT_TRUE(client->Send(bytes));
        return ReadAll(*client);
    };
    const auto framed = [](const std::string& text) {
        return std::string("\0\0", 2) + static_cast<char>(text.size() >> 8) + static_cast<char>(text.size() & 0xFF) +
               text;
    };
    EXPECT_THAT(ask("\x7F\xFF\xFF\xFFmore"), HasSubstr("too large"));
    const auto edit = [](const std::string& kind, const std::string& verb, const std::string& rest) {
        return R"({"edit":{"name":"a","values":{},"secrets":{},"uidls":[],"terms":"","expected":"","expected_held":"","kind":")" +
               kind + R"(","verb":")" + verb + "\"," + rest + "}}";
    };
    const std::string all_terms = R"("term_number":null)";
    for (const std::string& text :
         {std::string("{"), std::string("[]"), std::string(R"({"edit":{}})"), edit("planet", "set", all_terms),
          edit("user", "paint", all_terms), edit("user", "set", R"("term":null)"),
          edit("user", "set", R"("term_number":"1")"), edit("user", "set", all_terms + R"(,"name":1)"),
          edit("user", "set", all_terms + R"(,"values":{"a":1})"),
          edit("user", "set", all_terms + ",\"name\":\"\xE3\x81\x82\""), std::string(R"({"run":{}})"),
          std::string(R"({"run":{"names":[],"now":2}})"), std::string(R"({"run":{"names":{"a":1},"now":true}})"),
          std::string(60000, '[')}) {
        EXPECT_THAT(ask(framed(text)), HasSubstr("cannot be read")) << text.substr(0, 200);
    }
    EXPECT_THAT(ask(framed(edit("user", "on", all_terms))), HasSubstr("\"code\":66"));
    EXPECT_EQ(ask(framed("{\"runs\":true}") + "more"), "");
    EXPECT_THAT(ask(framed("{\"runs\":true}")), HasSubstr("\"runs\":[]"));
    Stop(*service);
}

TEST_F(ServiceClients, HearHowFarTheRunsAre) {
    mailbox_.Add(MailNumber(1));
    sink_.SetFault([this](const std::string& command) {
        if (command != ".") return "";
        ++blocked_;
        return "stall";
    });
    AddProfile();
    const auto service = Serve();
    WaitUntilBlocked();
    auto connection = host::ServiceConnection::Try(host_.Root());
    ASSERT_TRUE(connection);
    const std::vector<host::RunNow> runs = connection->Report().runs;
    ASSERT_THAT(runs, SizeIs(1));
    EXPECT_EQ(Slashed(runs[0].profile), kProfile);
    EXPECT_EQ(runs[0].messages_to_fetch, 1);
    EXPECT_EQ(runs[0].messages_fetched, 1);
    EXPECT_EQ(runs[0].messages_delivered, 0);
    EXPECT_GT(runs[0].bytes_received, 0);
    EXPECT_THAT(Tell({"status"}), HasSubstr("running: fetched 1 of 1, delivered 0"));
    EXPECT_THAT(Tell({"status", "--json"}), HasSubstr("\"messages_fetched\": 1"));
    Stop(*service);
}

}  // namespace
}  // namespace tarvex::testing
