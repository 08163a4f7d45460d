// What a hostile server or a stranger's mail must not achieve: a run without end, work without measure, and ids that
// read back as others.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "engine/bookkeeping.h"
#include "platform/net/sockets.h"
#include "testing/scripted_server.h"
#include "tests/support/forwarding.h"
#include "tests/support/net_tools.h"
#include "tests/support/shortage.h"

namespace tarvex {
namespace {

using namespace std::chrono_literals;
using testing::Peer;
using testing::ScriptedServer;
using testing::Stopwatch;

constexpr auto kFlood = 15s;   // how long a server floods
constexpr auto kInTime = 10s;  // well before that, and well after a time-out of one second

// ---- floods of what is no answer

// TLS records full of HelloRequest, which a client has to ignore while it shakes hands.
std::string HelloRequests() {
    const std::string record = std::string({22, 3, 3, 0x40, 0}) + std::string(0x4000, '\0');
    std::string records;
    for (int i = 0; i < 1024; ++i) records += record;
    return records;
}

TEST(HostileServer, HandshakeOfIgnoredMessagesEndsInTime) {
    ScriptedServer server([](Peer& peer) {
        const std::string flood = HelloRequests();
        for (const Stopwatch watch; watch.Elapsed() < kFlood;) peer.SendUnrecorded(flood);
    });
    CSmtpSocket socket;
    socket.SetTimeOut(1);
    socket.ssl = 1;
    ASSERT_EQ(socket.Create(0, 1, nullptr), 1);
    const Stopwatch watch;
    const std::string reply = socket.SmtpConnect("127.0.0.1", server.Port());
    EXPECT_LT(watch.Elapsed(), kInTime);
    EXPECT_EQ(socket.timed_out, 1) << reply;
}

// ---- ids made to collide

// Ids that the standard library's hash of 64 bits takes for one: of each pair of words, both have their highest bit
// changed or none, which cancels out whatever stands before them.
std::vector<std::string> CollidingIds(std::size_t pairs) {
    std::mt19937_64 random(1);
    constexpr std::uint64_t kMul = 0xc6a4a7935bd1e995U;
    const auto inverse = [](std::uint64_t odd) {
        std::uint64_t result = odd;
        for (int i = 0; i < 6; ++i) result *= 2 - odd * result;
        return result;
    };
    const auto unmixed = [&](std::uint64_t mixed) {
        mixed *= inverse(kMul);
        mixed ^= mixed >> 47;
        return mixed * inverse(kMul);
    };
    const auto bytes_of = [](std::uint64_t word) { return std::string(reinterpret_cast<const char*>(&word), 8); };
    const auto fits_a_line = [](const std::string& bytes) {
        return bytes.find_first_of(std::string_view("\r\n \0", 4)) == std::string::npos;
    };
    std::vector<std::string> ids = {""};
    while (pairs > 0) {
        const std::uint64_t first = random();
        const std::uint64_t second = random();
        constexpr std::uint64_t kTop = std::uint64_t{1} << 63;
        const std::string low = bytes_of(unmixed(first)) + bytes_of(unmixed(second));
        const std::string high = bytes_of(unmixed(first ^ kTop)) + bytes_of(unmixed(second ^ kTop));
        if (!fits_a_line(low + high)) continue;
        --pairs;
        const std::size_t count = ids.size();
        for (std::size_t i = 0; i < count; ++i) {
            ids.push_back(ids[i] + high);
            ids[i] += low;
        }
    }
    return ids;
}

// Walking through ids that all collide would take minutes, and the test would be ended for it.
TEST(HostileServer, IdsMadeToCollideCostNoMoreThanOthers) {
    const std::vector<std::string> ids = CollidingIds(16);
    ASSERT_EQ(ids.size(), 65536U);
    if (sizeof(std::size_t) == 8) {
        ASSERT_EQ(std::hash<std::string>()(ids.front()), std::hash<std::string>()(ids.back()));
    }

    CCheckedMail present;
    for (const std::string& id : ids) present.Add(id);
    EXPECT_EQ(present.GetSize(), 65536);

    CForwardAddress address;
    std::vector<CForwardAddress*> taking_part = {&address};
    std::vector<std::unique_ptr<CReceiveMail>> owner;
    ReceivedMails mails;
    for (const std::string& id : ids) {
        mails.push_back(owner.emplace_back(std::make_unique<CReceiveMail>()).get());
        mails.back()->uidl = id;
    }
    AssignDestinations(mails, taking_part);
    EXPECT_EQ(address.uidls, ids);
    KeepOnlyUidl(address.uidls, ids);
    const CCheckedMail handled = CollectHandled(taking_part);
    EXPECT_EQ(handled.GetSize(), 65536);
    TakeBack(mails);
    EXPECT_TRUE(address.uidls.empty());
}

// ---- listings

TEST(HostileServer, ListingOfVeryManyLinesIsRefused) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("+OK ready\r\n");
        peer.Expect("UIDL");
        peer.SendUnrecorded("+OK\r\n");
        std::string lines;
        for (int i = 0; i < 1'000'000; ++i) lines += "\r\n";
        for (int i = 0; i < 5; ++i) peer.SendUnrecorded(lines);
        peer.SendUnrecorded(".\r\n");
        peer.WaitForClose();
    });
    CPopSocket socket;
    ASSERT_EQ(socket.Create(0, 1, nullptr), 1);
    ASSERT_EQ(socket.PopConnect("127.0.0.1", server.Port()), "+OK ready");
    std::string reply;
    socket.SendUidl(&reply);
    EXPECT_EQ(reply.substr(0, 100), "-ERR Disconnected: the answer to UIDL is over the limit of 4194304 lines");
}

TEST(HostileServer, IdWithALineFeedIsNotReadBackAsTheIdOfAnotherMessage) {
    testing::DataTree tree;
    CPopProfile& profile = tree.AddProfile(1, 1);
    CForwardAddress& address = testing::AddAddress(profile, "to@example.org");
    address.uidls = {"one", "two\nthree", "four\n", "five\r"};
    ASSERT_EQ(address.SaveUidlSetting(), 1);
    ASSERT_EQ(address.LoadUidlSetting(), 1);
    EXPECT_EQ(address.uidls, (testing::Ids{"one", "five\r"}));
}

// ---- no descriptor left

TEST(NoDescriptorLeft, SettingsThatCouldNotBeReadAreNotReplacedByDefaults) {
    testing::DataTree tree;
    CPopProfile& profile = tree.AddProfile(1, 1);
    const std::string file = testing::ProfileFile(profile);
    const std::string before = testing::ReadFile(file);

    CPopProfile other;
    {
        const testing::NoDescriptors none;
        other.SetPath(profile.path);
    }
    EXPECT_EQ(other.SaveSetting(), 0);
    EXPECT_EQ(testing::ReadFile(file), before);
}

TEST(NoDescriptorLeft, TreeThatCouldNotBeReadDoesNotPassForAnEmptyOne) {
    testing::DataTree tree;
    tree.AddProfile(1, 1);
    int loaded = 1;
    {
        const testing::NoDescriptors none;
        loaded = tree.root.SetRootPath(tree.root.GetRootPath());
    }
    EXPECT_EQ(loaded, 0);
    ASSERT_EQ(tree.root.users.size(), 1U);
    EXPECT_EQ(tree.root.users.front()->profiles.size(), 1U);
}

// The copy of an address reads its list anew: an empty one would be saved over it.
TEST(NoDescriptorLeft, RunDoesNotStartWithListsThatCouldNotBeRead) {
    testing::DataTree tree;
    CPopProfile& profile = tree.AddProfile(1, 1);
    testing::WriteUidls(testing::AddAddress(profile, "to@example.org"), {"one"});
    {
        const testing::NoDescriptors none;
        Tarvex(&tree.root);
    }
    EXPECT_TRUE(tree.root.running_copies.empty());
}

// ---- a host that deletes what is running

// Holds the POP3 conversation at its greeting until the test lets it go on.
class HeldMailbox {
public:
    int Port() const { return server_.Port(); }
    bool WaitForRun() { return connected_.WaitFor(1); }
    void Release() { released_.Add(); }

private:
    testing::Counter connected_;
    testing::Counter released_;
    ScriptedServer server_{[this](Peer& peer) {
        connected_.Add();
        released_.WaitFor(1);
        peer.Send("+OK\r\n");
        peer.ReadLine();
        peer.Send("+OK\r\n");
        peer.ReadLine();
        peer.Send("+OK\r\n");
        peer.ReadLine();
        peer.Send("+OK\r\n1 one\r\n.\r\n");
        peer.ReadLine();
        peer.Send("+OK\r\n");
        peer.WaitForClose();
    }};
};

TEST(DeletedWhileRunning, ProfileThatTakesTheDirectoryKeepsItsOwnState) {
    HeldMailbox mailbox;
    testing::DataTree tree;
    CPopProfile& old = tree.AddProfile(mailbox.Port(), 1);
    testing::WriteUidls(testing::AddAddress(old, "old@example.org"), {"one"});
    Tarvex(&tree.root);
    ASSERT_TRUE(mailbox.WaitForRun());

    CUser& user = *tree.root.users.front();
    const CString path = old.path;
    ASSERT_EQ(user.DeletePopProfile(&old), 1);
    CPopProfile& taker = testing::DataTree::AddProfile(user, 1, 1);
    ASSERT_EQ(taker.path, path);
    taker.setting.popuser = "somebody else";
    ASSERT_EQ(taker.SaveSetting(), 1);
    const CForwardAddress& address = testing::AddAddress(taker, "new@example.org");
    const std::string before = testing::ReadFile(testing::ProfileFile(taker));

    mailbox.Release();
    ASSERT_EQ(tree.root.WaitThread(30'000), 1);
    EXPECT_EQ(testing::ReadFile(testing::ProfileFile(taker)), before);
    EXPECT_FALSE(std::filesystem::exists(testing::UidlFile(address)));
    EXPECT_FALSE(std::filesystem::exists(testing::OnDisk(taker.path) + "/profile.log"));
}

TEST(DeletedWhileRunning, AddressThatTakesTheDirectoryIsNotTakenToHaveReceivedAnything) {
    HeldMailbox mailbox;
    testing::DataTree tree;
    CPopProfile& profile = tree.AddProfile(mailbox.Port(), 1);
    CForwardAddress& old = testing::AddAddress(profile, "old@example.org");
    testing::WriteUidls(old, {"one"});
    Tarvex(&tree.root);
    ASSERT_TRUE(mailbox.WaitForRun());

    const CString path = old.path;
    ASSERT_EQ(profile.DeleteForwardAddress(&old), 1);
    const CForwardAddress& taker = testing::AddAddress(profile, "new@example.org");
    ASSERT_EQ(taker.path, path);

    mailbox.Release();
    ASSERT_EQ(tree.root.WaitThread(30'000), 1);
    EXPECT_FALSE(std::filesystem::exists(testing::UidlFile(taker)));
    EXPECT_TRUE(std::filesystem::exists(testing::OnDisk(profile.path) + "/profile.log"));
}

}  // namespace
}  // namespace tarvex
