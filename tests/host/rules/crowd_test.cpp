// Many profiles at one relay that takes few connections.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/rules/ruled_runs.h"
#include "testing/scripted_server.h"
#include "tests/support/forwarding.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;

constexpr int kProfiles = 60;
constexpr int kConnections = 10;

// A mailbox, and a relay that answers 421 to everybody beyond its connections.
class Crowd {
public:
    explicit Crowd(bool with_rules) : with_rules_(with_rules) {
        if (with_rules) WriteFile(tree_.root.path + "/host.def", "[version]\r\n0\r\n");
        pop_.Add(Mail("u1"));
        for (int i = 0; i < kProfiles; ++i) {
            CPopProfile& profile = tree_.AddProfile(pop_.Port(), relay_.Port());
            AddAddress(profile, "a@x");
            profile.setting.timeout = 20;
            waiting_.push_back(&profile);
        }
    }

    // Runs every profile once; how many failed.
    int Run() {
        host::RuledRuns runs(tree_.root.path, [](const std::string&) {});
        int failed = 0;
        while (!waiting_.empty() || !tree_.root.running_copies.empty()) {
            std::erase_if(waiting_, [&](CPopProfile* profile) {
                return runs.HasRoomFor(tree_.root, *profile) &&
                       runs.Start(tree_.root, *profile) == CStartResult::Started;
            });
            tree_.root.WaitThread(5);
            std::erase_if(tree_.root.running_copies, [&](const auto& copy) {
                if (copy->worker_thread.load()) return false;
                runs.Finish(*copy);
                failed += copy->result.ending == CRunEnding::Delivered ? 0 : 1;
                return true;
            });
        }
        return failed;
    }

private:
    void Serve(Peer& peer) {
        ++came_;
        if (++served_ > kConnections) {
            --served_;
            peer.Send("421 too many connections\r\n");
            return peer.WaitForClose();
        }
        peer.Send("220 ready\r\n");
        for (std::string command = peer.ReadLine(); command != "QUIT"; command = peer.ReadLine()) {
            if (command == "DATA") {
                peer.Send("354 go on\r\n");
                peer.ReadMessage();
                WaitForAll();
            }
            peer.Send("250 fine\r\n");
        }
        --served_;
        peer.Send("221 bye\r\n");
    }

    // Without rules all come at once: nobody is served before the last has come.
    void WaitForAll() const {
        const auto deadline = std::chrono::steady_clock::now() + 15s;
        while (!with_rules_ && came_ < kProfiles && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(1ms);
        }
    }

    const bool with_rules_;
    std::atomic<int> came_ = 0;
    std::atomic<int> served_ = 0;
    MailboxServer pop_{"alice", "secret"};
    ScriptedServer relay_{[this](Peer& peer) { Serve(peer); }};
    DataTree tree_;
    std::vector<CPopProfile*> waiting_;
};

TEST(Crowd, AtARelayThatTakesTenConnectionsFailsWithoutRulesAndNotWithThem) {
    EXPECT_EQ(Crowd(false).Run(), kProfiles - kConnections);
    EXPECT_EQ(Crowd(true).Run(), 0);
}

}  // namespace
}  // namespace tarvex::testing
