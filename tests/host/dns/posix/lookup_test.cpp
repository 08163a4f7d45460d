// Records of the DNS: found, not there, and answers that are none.

#include "host/dns/lookup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "testing/dns_server.h"

namespace tarvex::host {
namespace {

using testing::DnsServer;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using testing::ServiceRecordOf;
using testing::TextRecord;
using namespace std::chrono_literals;

class DnsLookup : public ::testing::Test {
protected:
    TextAnswer Texts(const std::string& name = "example.com", std::chrono::milliseconds timeout = 20s) const {
        return LookUpTexts(name, {timeout, server_.Address()});
    }
    ServiceAnswer Services(const std::string& name = "_pop3s._tcp.example.com") const {
        return LookUpServices(name, {20s, server_.Address()});
    }

    DnsServer server_;
};

TEST_F(DnsLookup, JoinsTheStringsOfATextAndKeepsTextsApart) {
    const std::string longest(255, 'a');
    server_.Add("example.com", TextRecord({"v=spf1 ", longest, "-all"}));
    server_.Add("example.com", TextRecord({"other"}));
    const TextAnswer answer = Texts();
    EXPECT_EQ(answer.ending, DnsEnding::Found);
    EXPECT_THAT(answer.records, ElementsAre("v=spf1 " + longest + "-all", "other"));
    EXPECT_THAT(server_.Asked(), ElementsAre("example.com"));
}

TEST_F(DnsLookup, AsksByTcpForWhatADatagramDoesNotHold) {
    const std::vector<std::string> strings(240, std::string(255, 'x'));
    server_.Add("example.com", TextRecord(strings));
    const TextAnswer answer = Texts();
    EXPECT_EQ(answer.ending, DnsEnding::Found) << answer.reason;
    EXPECT_THAT(answer.records, ElementsAre(std::string(240 * 255, 'x')));
}

TEST_F(DnsLookup, TellsANameThatDoesNotExistAndOneWithoutSuchRecordsFromAFailure) {
    EXPECT_EQ(Texts("nowhere.example").ending, DnsEnding::NoSuchRecord);
    server_.Add("example.com", ServiceRecordOf(0, 0, 995, "pop.example.com"));
    EXPECT_EQ(Texts("example.com").ending, DnsEnding::NoSuchRecord);
    EXPECT_EQ(Services("example.com").ending, DnsEnding::Found);
    EXPECT_EQ(Texts(std::string(70, 'a') + ".example").ending, DnsEnding::Failed);
    EXPECT_EQ(Texts(std::string("a\0b", 3)).ending, DnsEnding::Failed);
    EXPECT_EQ(LookUpTexts("example.com", {1s, "no address"}).ending, DnsEnding::Failed);
}

TEST_F(DnsLookup, AServiceSaysWhereItIs) {
    server_.Add("_pop3s._tcp.example.com", ServiceRecordOf(20, 5, 1995, "second.example.com"));
    server_.Add("_pop3s._tcp.example.com", ServiceRecordOf(10, 0, 995, "first.example.com"));
    const ServiceAnswer answer = Services();
    ASSERT_EQ(answer.records.size(), 2U);
    EXPECT_EQ(answer.records[0].target, "first.example.com");
    EXPECT_EQ(answer.records[1].target, "second.example.com");
    EXPECT_EQ(answer.records[1].port, 1995);
    EXPECT_EQ(answer.records[1].priority, 20);
    EXPECT_EQ(answer.records[1].weight, 5);
}

TEST_F(DnsLookup, AServiceThatIsNotOfferedIsToldFromOneThatIsNotNamed) {
    server_.Add("_pop3s._tcp.example.com", ServiceRecordOf(0, 0, 0, "."));
    EXPECT_EQ(Services().ending, DnsEnding::NotOffered);
    EXPECT_EQ(Services("_pop3._tcp.example.com").ending, DnsEnding::NoSuchRecord);
}

TEST_F(DnsLookup, EndsInTimeWhenNobodyAnswers) {
    server_.Replies([](const std::string&, bool) { return std::vector<std::string>(); });
    const auto start = std::chrono::steady_clock::now();
    const TextAnswer answer = Texts("example.com", 300ms);
    EXPECT_EQ(answer.ending, DnsEnding::Failed);
    EXPECT_EQ(answer.reason, "no answer from the DNS in time");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
}

// The text of the answer stands behind a name of this many bytes, as every reply of the server has it.
std::string WithAnswerName(std::string reply, const std::string& name) {
    const std::size_t at = reply.find("\xC0\x0C");
    return at == std::string::npos ? reply : reply.replace(at, 2, name);
}

struct Hostile {
    const char* what;
    std::function<std::string(std::string)> change;
};

class HostileDns : public DnsLookup, public ::testing::WithParamInterface<Hostile> {};

// None crashes, none is believed, and none lasts longer than the look-up may.
TEST_P(HostileDns, IsAFailure) {
    server_.Add("example.com", TextRecord({"v=spf1 -all"}));
    server_.Add("example.com", ServiceRecordOf(0, 0, 995, "pop.example.com"));
    server_.Replies([](std::string reply, bool) { return std::vector{GetParam().change(std::move(reply))}; });
    EXPECT_EQ(Texts("example.com", 300ms).ending, DnsEnding::Failed) << GetParam().what;
    EXPECT_EQ(LookUpServices("example.com", {300ms, server_.Address()}).ending, DnsEnding::Failed) << GetParam().what;
}

const Hostile kHostile[] = {
    {"Empty", [](const std::string&) { return std::string(); }},
    {"HalfAHeader", [](const std::string& reply) { return reply.substr(0, 6); }},
    {"CutInTheQuestion", [](const std::string& reply) { return reply.substr(0, 20); }},
    {"CutInTheRecord", [](const std::string& reply) { return reply.substr(0, reply.size() - 4); }},
    {"NameThatPointsAtItself",
     [](const std::string& reply) { return WithAnswerName(reply, std::string("\xC0\x1D", 2)); }},
    {"NameThatPointsPastTheEnd", [](const std::string& reply) { return WithAnswerName(reply, "\xFF\xFF"); }},
    {"LengthPastTheEnd",
     [](std::string reply) {
         reply[reply.find("\xC0\x0C") + 10] = '\x7F';
         return reply;
     }},
    {"MoreAnswersThanThereAre",
     [](std::string reply) {
         reply[6] = '\x7F';
         return reply;
     }},
    {"AnotherId",
     [](std::string reply) {
         reply[0] = static_cast<char>(reply[0] + 1);
         return reply;
     }},
    {"ServerFailure",
     [](std::string reply) {
         reply[3] = static_cast<char>(reply[3] | 2);
         return reply;
     }},
    {"Bytes64K", [](const std::string&) { return std::string(65000, '\xC0'); }},
};

INSTANTIATE_TEST_SUITE_P(Replies, HostileDns, ::testing::ValuesIn(kHostile),
                         [](const auto& tested) { return tested.param.what; });

TEST_F(DnsLookup, WaitsForTheAnswerBehindOneOfAnotherId) {
    server_.Add("example.com", "right");
    server_.Replies([](const std::string& reply, bool) {
        std::string wrong = reply;
        wrong[1] = static_cast<char>(wrong[1] + 1);
        wrong.replace(wrong.size() - 5, 5, "wrong");
        return std::vector{wrong, reply};
    });
    EXPECT_THAT(Texts().records, ElementsAre("right"));
}

// What was drawn, in the order of the draws: a record is chosen when the weights up to it reach the number.
struct Order {
    std::vector<unsigned> drawn;
    std::vector<std::string> targets;
};

TEST(ServiceOrder, FollowsPriorityAndThenWeight) {
    const std::vector<ServiceRecord> records{{"b30", 1, 2, 30}, {"a1", 1, 1, 1}, {"b0", 1, 2, 0}, {"b10", 1, 2, 10}};
    const Order orders[] = {
        {{0, 0, 0, 0}, {"a1", "b0", "b30", "b10"}},
        {{1, 40, 30, 0}, {"a1", "b10", "b30", "b0"}},
        {{1, 30, 10, 0}, {"a1", "b30", "b10", "b0"}},
        {{1, 1, 0, 10}, {"a1", "b30", "b0", "b10"}},
    };
    for (const Order& order : orders) {
        std::size_t next = 0;
        std::vector<std::string> targets;
        for (const ServiceRecord& record : InOrderOfTrial(records, [&](unsigned most) {
                 EXPECT_LE(order.drawn.at(next), most);
                 return order.drawn.at(next++);
             })) {
            targets.push_back(record.target);
        }
        EXPECT_THAT(targets, ElementsAreArray(order.targets));
    }
}

}  // namespace
}  // namespace tarvex::host
