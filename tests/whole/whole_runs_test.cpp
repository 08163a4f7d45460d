// Several users, profiles and addresses through the entry, over several passes. What a pass remembers is on disk: every
// pass loads the tree afresh.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "testing/scripted_server.h"
#include "tests/support/forwarding.h"

namespace tarvex::testing {
namespace {

using ::testing::IsEmpty;

// One call of the entry on the tree of the folder, until every worker has finished.
void Pass(const std::string& root_path) {
    CRootPath root;
    ASSERT_EQ(root.SetRootPath(root_path), 1);
    Tarvex(&root);
    ASSERT_EQ(root.WaitThread(60'000), 1);
}

struct MailDrop {
    explicit MailDrop(const std::string& number)
        : user("user" + number), password("password" + number), mailbox(user, password) {}

    std::string user;
    std::string password;
    MailboxServer mailbox;
};

CPopProfile& AddProfile(CUser& user, const MailDrop& drop, int smtp_port) {
    CPopProfile& profile = DataTree::AddProfile(user, drop.mailbox.Port(), smtp_port);
    profile.setting.popuser = drop.user;
    profile.setting.poppassword = drop.password;
    EXPECT_EQ(profile.SaveSetting(), 1);
    return profile;
}

std::string Id(int pass) { return std::string("u").append(std::to_string(pass)); }

std::string To(const std::string& subject, const CForwardAddress& address) {
    return subject + " -> " + address.setting.address;
}

TEST(WholeRuns, EveryMessageReachesEveryAddressOfItsProfileOnceAndNoOther) {
    DataTree tree;
    SinkServer open_sink;
    SinkServer closed_sink("smtp-user", "smtp-password");
    std::vector<std::unique_ptr<MailDrop>> drops;
    Arrivals expected_open, expected_closed;
    for (int u = 0; u < 2; ++u) {
        CUser& user = tree.AddUser();
        for (int p = 0; p < 2; ++p) {
            const std::string number = std::to_string(u) + std::to_string(p);
            drops.push_back(std::make_unique<MailDrop>(number));
            const bool closed = p == 1;
            CPopProfile& profile = AddProfile(user, *drops.back(), (closed ? closed_sink : open_sink).Port());
            profile.setting.apop = u;
            profile.setting.smtpauth = closed;
            profile.setting.smtpuser = "smtp-user";
            profile.setting.smtppassword = "smtp-password";
            profile.SaveSetting();
            // The same ids in every mailbox: what is remembered is remembered per address.
            for (const char* id : {"u1", "u2", "u3"}) drops.back()->mailbox.Add({id, Message(id + number)});
            for (int a = 0; a < 3; ++a) {
                CForwardAddress& address = AddAddress(profile, std::to_string(a) + "@" + number + ".example.org");
                address.setting.textonly = u == 0 ? 0 : -100;
                address.SaveSetting();
                for (const char* id : {"u1", "u2", "u3"}) {
                    (closed ? expected_closed : expected_open)[To(id + number, address)] = 1;
                }
            }
        }
    }
    const std::string root_path = tree.root.GetRootPath();
    Pass(root_path);
    EXPECT_EQ(Arrived(open_sink), expected_open);
    EXPECT_EQ(Arrived(closed_sink), expected_closed);

    Pass(root_path);
    EXPECT_EQ(Arrived(open_sink), expected_open);
    EXPECT_EQ(Arrived(closed_sink), expected_closed);
    EXPECT_EQ(open_sink.Received("MAIL"), 3 * 1 + 3 * 3) << "one transaction for all, or one for each";

    drops.back()->mailbox.Add({"u4", Message("u411")});
    for (const auto& address : tree.root.users[1]->profiles[1]->forward_addresses) {
        expected_closed[To("u411", *address)] = 1;
    }
    Pass(root_path);
    EXPECT_EQ(Arrived(open_sink), expected_open);
    EXPECT_EQ(Arrived(closed_sink), expected_closed);
    for (const auto& drop : drops) EXPECT_EQ(drop->mailbox.Received("DELE"), 0);
}

TEST(WholeRuns, AddressAddedLaterReceivesWhatIsStillOnTheServer) {
    DataTree tree;
    MailDrop drop("0");
    SinkServer sink;
    CPopProfile& profile = AddProfile(tree.AddUser(), drop, sink.Port());
    AddAddress(profile, "first@example.org");
    for (const char* id : {"u1", "u2"}) drop.mailbox.Add(Mail(id));
    Pass(tree.root.GetRootPath());
    drop.mailbox.Remove("u1");
    drop.mailbox.Add(Mail("u3"));
    AddAddress(profile, "late@example.org");
    Pass(tree.root.GetRootPath());
    EXPECT_EQ(Arrived(sink), (Arrivals{{"u1 -> first@example.org", 1},
                                       {"u2 -> first@example.org", 1},
                                       {"u3 -> first@example.org", 1},
                                       {"u2 -> late@example.org", 1},
                                       {"u3 -> late@example.org", 1}}));
}

TEST(WholeRuns, AddressSwitchedOffForAWhileReceivesWhatItMissed) {
    DataTree tree;
    MailDrop drop("0");
    SinkServer sink;
    CPopProfile& profile = AddProfile(tree.AddUser(), drop, sink.Port());
    AddAddress(profile, "always@example.org");
    CForwardAddress& sometimes = AddAddress(profile, "sometimes@example.org");
    drop.mailbox.Add(Mail("u1"));
    Pass(tree.root.GetRootPath());
    sometimes.setting.status = 0;
    sometimes.SaveSetting();
    drop.mailbox.Add(Mail("u2"));
    Pass(tree.root.GetRootPath());
    EXPECT_EQ(Arrived(sink).size(), 3U);
    sometimes.setting.status = 1;
    sometimes.SaveSetting();
    Pass(tree.root.GetRootPath());
    EXPECT_EQ(Arrived(sink), (Arrivals{{"u1 -> always@example.org", 1},
                                       {"u2 -> always@example.org", 1},
                                       {"u1 -> sometimes@example.org", 1},
                                       {"u2 -> sometimes@example.org", 1}}));
}

TEST(WholeRuns, FailureOfOneProfileLeavesTheOthersAlone) {
    DataTree tree;
    MailDrop good("0"), bad("1");
    SinkServer sink;
    CUser& user = tree.AddUser();
    AddAddress(AddProfile(user, bad, sink.Port()), "bad@example.org");
    AddAddress(AddProfile(user, good, UnusedPort()), "unreachable@example.org");
    AddAddress(AddProfile(user, good, sink.Port()), "good@example.org");
    bad.mailbox.SetFault([](const std::string& command) { return command.starts_with("PASS") ? "-ERR no" : ""; });
    for (MailDrop* drop : {&good, &bad}) drop->mailbox.Add(Mail("u1"));
    for (int pass = 0; pass < 2; ++pass) {
        Pass(tree.root.GetRootPath());
        EXPECT_EQ(Arrived(sink), (Arrivals{{"u1 -> good@example.org", 1}}));
    }
}

TEST(WholeRuns, TwoProfilesMayCollectFromOneMailbox) {
    DataTree tree;
    MailDrop drop("0");
    SinkServer sink;
    for (int u = 0; u < 2; ++u) {
        AddAddress(AddProfile(tree.AddUser(), drop, sink.Port()), std::to_string(u) + "@example.org");
    }
    drop.mailbox.Add(Mail("u1"));
    for (int pass = 0; pass < 2; ++pass) Pass(tree.root.GetRootPath());
    EXPECT_EQ(Arrived(sink), (Arrivals{{"u1 -> 0@example.org", 1}, {"u1 -> 1@example.org", 1}}));
}

TEST(WholeRuns, MessagesAreDeletedOnePassAfterTheyHaveArrived) {
    DataTree tree;
    MailDrop drop("0");
    SinkServer sink;
    CPopProfile& profile = AddProfile(tree.AddUser(), drop, sink.Port());
    profile.setting.deletemail = 1;
    profile.SaveSetting();
    AddAddress(profile, "a@example.org");
    AddAddress(profile, "b@example.org");
    for (int pass = 1; pass <= 4; ++pass) {
        drop.mailbox.Add(Mail(Id(pass)));
        Pass(tree.root.GetRootPath());
        ASSERT_EQ(drop.mailbox.Mails().size(), 1U);
        EXPECT_EQ(drop.mailbox.Mails()[0].uidl, Id(pass));
        EXPECT_EQ(Arrived(sink).size(), 2U * static_cast<std::size_t>(pass));
    }
    Pass(tree.root.GetRootPath());
    EXPECT_THAT(drop.mailbox.Mails(), IsEmpty());
    for (const auto& [what, times] : Arrived(sink)) EXPECT_EQ(times, 1) << what;
}

// Servers that refuse, drop and lose answers at random, on every connection.
class RandomFaults {
public:
    explicit RandomFaults(unsigned seed) : random_(seed) {}

    // About one command in `rarity` fails, with the refusal or without any answer.
    std::function<std::string(const std::string&)> Make(unsigned rarity, const std::string& refusal) {
        return [this, rarity, refusal](const std::string&) -> std::string {
            const std::lock_guard lock(mutex_);
            if (random_() % rarity != 0) return "";
            const std::vector<std::string> faults{refusal, "close", "lose"};
            return faults[random_() % faults.size()];
        };
    }

private:
    std::mutex mutex_;
    std::mt19937 random_;
};

class FaultyServers : public ::testing::TestWithParam<unsigned> {};

TEST_P(FaultyServers, LoseNoMessage) {
    DataTree tree;
    RandomFaults faults(GetParam());
    SinkServer sink;
    std::vector<std::unique_ptr<MailDrop>> drops;
    Arrivals expected;
    std::vector<CPopProfile*> profiles;
    for (int u = 0; u < 2; ++u) {
        CUser& user = tree.AddUser();
        for (int p = 0; p < 2; ++p) {
            drops.push_back(std::make_unique<MailDrop>(std::to_string(u) + std::to_string(p)));
            CPopProfile& profile = AddProfile(user, *drops.back(), sink.Port());
            profile.setting.deletemail = u;
            profile.setting.replaceto = p;
            profile.SaveSetting();
            for (int a = 0; a < 2; ++a) {
                CForwardAddress& address = AddAddress(profile, std::to_string(a) + "@" + drops.back()->user);
                address.setting.textonly = u == 0 ? 0 : -100;
                address.SaveSetting();
            }
            profiles.push_back(&profile);
        }
    }
    sink.SetFault(faults.Make(30, "451 busy"));
    for (const auto& drop : drops) drop->mailbox.SetFault(faults.Make(20, "-ERR busy"));
    for (int pass = 0; pass < 15; ++pass) {
        for (std::size_t i = 0; pass < 12 && i < drops.size(); ++i) {
            const std::string id = Id(pass);
            drops[i]->mailbox.Add({id, Message(drops[i]->user + id)});
            for (const auto& address : profiles[i]->forward_addresses) ++expected[To(drops[i]->user + id, *address)];
        }
        ASSERT_NO_FATAL_FAILURE(Pass(tree.root.GetRootPath()));
    }
    sink.SetFault(nullptr);
    for (const auto& drop : drops) drop->mailbox.SetFault(nullptr);
    ASSERT_NO_FATAL_FAILURE(Pass(tree.root.GetRootPath()));

    Arrivals arrived = Arrived(sink);
    for (const auto& [what, times] : expected) EXPECT_GE(arrived[what], times) << what;
    EXPECT_EQ(arrived.size(), expected.size()) << "something arrived where it does not belong";

    // Nothing is left to do, and every mailbox that is to be emptied is empty.
    ASSERT_NO_FATAL_FAILURE(Pass(tree.root.GetRootPath()));
    EXPECT_EQ(Arrived(sink), arrived);
    for (std::size_t i = 0; i < drops.size(); ++i) {
        EXPECT_EQ(drops[i]->mailbox.Mails().size(), profiles[i]->setting.deletemail ? 0U : 12U);
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, FaultyServers, ::testing::Range(1U, 5U));

}  // namespace
}  // namespace tarvex::testing
