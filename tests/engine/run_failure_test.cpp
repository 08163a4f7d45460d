// Memory that runs out inside a run, at one allocation or from one on: the run ends by itself, no list on disk names a
// message that did not arrive, no file is torn, and the next run makes good what this one missed.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "testing/scripted_server.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/forwarding.h"

namespace tarvex::testing {
namespace {

using ::testing::IsSubsetOf;
using ::testing::UnorderedElementsAreArray;

// Too long to fit into a string without an allocation.
constexpr const char* kIds[] = {"unique-id-of-the-first", "unique-id-of-the-second", "unique-id-of-the-third"};
const Ids kKnown[] = {{"gone", kIds[0]}, {"gone", kIds[0], kIds[1]}};

// Runs the work with its n-th allocation failing. True when it made so many.
bool Failing(long n, Outage outage, const std::function<void()>& work) {
    FailAllocation(n, outage);
    bool thrown = false;
    try {
        work();
    } catch (...) {
        thrown = true;
    }
    const bool failed = EndAllocationFailure();
    EXPECT_FALSE(thrown) << "an exception left the operation";
    return failed;
}

// How the run of a trial is set up.
struct Plan {
    int textonly;
    int replace;  // From and To
};

// One profile with two addresses, between two servers.
class Scene {
public:
    explicit Scene(const Plan& plan) {
        profile_.setting.deletemail = 1;
        profile_.setting.replacefrom = profile_.setting.replaceto = plan.replace;
        EXPECT_EQ(profile_.SaveSetting(), 1);
        settings_ = SettingsOnDisk();
        CTerm always;
        always.status = 1;
        always.kind = TERM_DEFINED_TERM;
        always.start = "2001,1,1,0,0,0";
        always.end = "2037,1,1,0,0,0";
        for (const char* to : {"first@example.org", "second@example.org"}) {
            CForwardAddress& address = AddAddress(profile_, to);
            address.setting.textonly = plan.textonly;
            address.schedule.AddNewTerm(&always);
        }
    }

    // Three messages on the server, of which the first address has the first and the second the first two.
    void Prepare() {
        for (const char* id : kIds) {
            mailbox_.Remove(id);
            mailbox_.Add(Mail(id));
        }
        for (std::size_t i = 0; i < 2; ++i) WriteUidls(*profile_.forward_addresses[i], kKnown[i]);
        delivered_before_ = sink_.Delivered().size();
    }

    void RefuseEverything() {
        sink_.SetFault([](const std::string& command) { return command == "." ? "554 no" : ""; });
    }

    DataTree& Tree() { return tree_; }
    const CRunResult& Result() const { return result_; }

    // One run on a copy, on this thread, during which the n-th allocation fails. True when so many were made.
    bool RunFailing(long n, Outage outage) {
        CPopProfile copy;
        copy = profile_;
        const bool failed = Failing(n, outage, [&copy] { copy.DoOperation(); });
        CheckResult(copy.result);
        result_ = copy.result;
        return failed;
    }

    void CheckLists(const Ids (&expected)[2]) {
        for (std::size_t i = 0; i < 2; ++i) EXPECT_EQ(UidlsOnDisk(*profile_.forward_addresses[i]), expected[i]);
    }

    // What holds after any run: nothing is remembered, and nothing deleted on the server, that has not arrived.
    void CheckDisk() {
        for (std::size_t i = 0; i < 2; ++i) {
            const CForwardAddress& address = *profile_.forward_addresses[i];
            std::set<std::string> allowed = Received(i);
            allowed.insert("gone");
            EXPECT_THAT(UidlsOnDisk(address), IsSubsetOf(allowed)) << address.setting.address;
            EXPECT_THAT(DeletedOnTheServer(), IsSubsetOf(allowed)) << address.setting.address;
        }
        EXPECT_EQ(SettingsOnDisk(), settings_);
        for (const std::string& line : Lines(OnDisk(profile_.path) + "/profile.log")) {
            EXPECT_FALSE(line.starts_with("(bare)")) << line;
        }
    }

    // One more run, with memory enough, after which everything has arrived and is remembered or deleted.
    void CheckRecovery() {
        RunOnce(profile_);
        for (std::size_t i = 0; i < 2; ++i) {
            EXPECT_THAT(Received(i), UnorderedElementsAreArray(kIds)) << i;
            std::set<std::string> settled = DeletedOnTheServer();
            for (const std::string& id : UidlsOnDisk(*profile_.forward_addresses[i])) settled.insert(id);
            EXPECT_THAT(settled, UnorderedElementsAreArray(kIds)) << i;
        }
        CheckDisk();
    }

private:
    // What the run tells of itself is what happened, as far as it could know.
    void CheckResult(const CRunResult& result) const {
        int arrived = 0;
        for (const auto& [what, count] : Arrived(sink_, delivered_before_)) arrived += count;
        EXPECT_LE(result.copies, arrived);
        EXPECT_NE(result.ending, CRunEnding::NotEnded);
        EXPECT_EQ(result.ending == CRunEnding::MailboxFailed, result.mailbox.failure_class != CFailureClass::None);
        EXPECT_EQ(result.ending == CRunEnding::DeliveryFailed, result.delivery.failure_class != CFailureClass::None);
        if (result.ending == CRunEnding::Delivered) {
            EXPECT_EQ(result.copies, arrived);
        }
        if (!result.addresses.empty()) {
            EXPECT_EQ(result.addresses.at(0).copies + result.addresses.at(1).copies, result.copies);
            EXPECT_EQ(result.lists, std::max(result.addresses[0].list, result.addresses[1].list));
        }
    }

    // The messages that the address had from the start or received since.
    std::set<std::string> Received(std::size_t i) const {
        std::set<std::string> ids(kKnown[i].begin(), kKnown[i].end());
        ids.erase("gone");
        const Arrivals arrived = Arrived(sink_, delivered_before_);
        for (const char* id : kIds) {
            if (arrived.contains(id + (" -> " + profile_.forward_addresses[i]->setting.address))) ids.insert(id);
        }
        return ids;
    }

    // All but the value of lasttime, which the entry moves.
    std::string SettingsOnDisk() const {
        std::vector<std::string> lines = Lines(ProfileFile(profile_));
        const auto key = std::find(lines.begin(), lines.end(), "[lasttime]");
        if (lines.end() - key > 1) *(key + 1) = "(a time)";
        return Joined(lines);
    }

    std::set<std::string> DeletedOnTheServer() const {
        std::set<std::string> ids(std::begin(kIds), std::end(kIds));
        for (const StoredMail& mail : mailbox_.Mails()) ids.erase(mail.uidl);
        return ids;
    }

    MailboxServer mailbox_{"alice", "secret"};
    SinkServer sink_;
    DataTree tree_;
    CPopProfile& profile_ = tree_.AddProfile(mailbox_.Port(), sink_.Port());
    std::size_t delivered_before_ = 0;
    CRunResult result_;  // of the last run
    std::string settings_;
};

// About so many trials, spread over the allocations of a run, not at the same distance.
constexpr long kTrials = 120;

long AllocationsOfARun(Scene& scene) {
    long low = 1;
    long high = 1;
    const auto enough = [&scene](long n) {
        scene.Prepare();
        return !scene.RunFailing(n, Outage::Once);
    };
    while (!enough(high)) {
        low = high;
        high *= 2;
    }
    while (low + 1 < high) {
        const long middle = (low + high) / 2;
        (enough(middle) ? high : low) = middle;
    }
    return low;
}

void CheckRuns(const Plan& plan, Outage outage) {
    Scene scene(plan);
    const long allocations = AllocationsOfARun(scene);
    EXPECT_GT(allocations, 100);
    const long step = std::max(allocations / kTrials, 1L);
    for (long trial = 0; trial * step < allocations; ++trial) {
        const long n = 1 + trial * step + trial * 7 % step;
        SCOPED_TRACE("failing allocation " + std::to_string(n) + " of " + std::to_string(allocations));
        scene.Prepare();
        scene.RunFailing(n, outage);
        scene.CheckDisk();
        scene.CheckRecovery();
        if (::testing::Test::HasFailure()) return;
    }
}

constexpr Plan kBatch{0, 0};
constexpr Plan kSingle{-100, 1};

TEST(RunWithoutMemory, AtOneAllocationOfABatchLosesNothing) { CheckRuns(kBatch, Outage::Once); }
TEST(RunWithoutMemory, AtOneAllocationOfSingleCopiesLosesNothing) { CheckRuns(kSingle, Outage::Once); }
TEST(RunWithoutMemory, FromOneAllocationOnInABatchLosesNothing) { CheckRuns(kBatch, Outage::Lasting); }
TEST(RunWithoutMemory, FromOneAllocationOnInSingleCopiesLosesNothing) { CheckRuns(kSingle, Outage::Lasting); }

// The server takes nothing, so every id that was noted has to be taken back, and memory runs out while that is done.
TEST(RunWithoutMemory, LeavesTheListsAsTheyWereWhenIdsCannotBeTakenBack) {
    Scene scene(kBatch);
    scene.RefuseEverything();
    const auto lists_left = [&scene] {
        const auto& addresses = scene.Result().addresses;
        return std::ranges::all_of(addresses, [](const auto& address) { return address.list == CSaved::Failed; });
    };
    // One allocation that fails in a file being saved costs one list, in taking back both.
    long n = AllocationsOfARun(scene);
    do {
        scene.Prepare();
        scene.RunFailing(n, Outage::Once);
        scene.CheckDisk();
    } while (--n > 0 && !HasFailure() && !(scene.Result().ending == CRunEnding::DeliveryFailed && lists_left()));
    ASSERT_GT(n, 0) << "no allocation was one of taking back";
    scene.CheckLists(kKnown);
}

// The host's own thread.

TEST(EntryWithoutMemory, StartsWholeCopiesOrNone) {
    Scene scene(kSingle);
    CRootPath& root = scene.Tree().root;
    for (const Outage outage : {Outage::Once, Outage::Lasting}) {
        bool failed = true;
        for (long n = 1; failed && n < 1000; ++n) {
            SCOPED_TRACE("failing allocation " + std::to_string(n));
            scene.Prepare();
            failed = Failing(n, outage, [&root] { Tarvex(&root); });
            ASSERT_EQ(root.WaitThread(60'000), 1);
            // What could not begin is told by the copy, and where there is none by the profile.
            const auto& copies = root.running_copies;
            const CRunResult& told = copies.empty() ? root.users[0]->profiles[0]->result : copies[0]->result;
            EXPECT_TRUE(failed || told.ending == CRunEnding::Delivered);
            if (copies.empty() || told.ending != CRunEnding::Delivered) {
                EXPECT_EQ(told.ending, CRunEnding::CouldNotBegin);
            }
            scene.CheckDisk();
            EXPECT_EQ(root.users[0]->profiles[0]->forward_addresses.size(), 2U);
            scene.CheckRecovery();
            if (HasFailure()) return;
        }
        EXPECT_FALSE(failed) << "it never succeeded";
    }
}

TEST(StartRunWithoutMemory, StartsARunOrChangesNothing) {
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(UnusedPort(), UnusedPort());
    AddAddress(profile, "a-long-name@example.org");
    const CTime last_time = profile.setting.lasttime;
    bool failed = true;
    for (long n = 1; failed && n < 1000 && !::testing::Test::HasFailure(); ++n) {
        SCOPED_TRACE("failing allocation " + std::to_string(n));
        CStartResult result = CStartResult::AlreadyRunning;
        failed = Failing(n, Outage::Once, [&] { result = StartRun(tree.root, profile); });
        ASSERT_EQ(tree.root.WaitThread(60'000), 1);
        EXPECT_EQ(tree.root.running_copies.size(), result == CStartResult::Started ? 1U : 0U);
        EXPECT_TRUE(failed || result == CStartResult::Started);
        if (result != CStartResult::Started) {
            EXPECT_EQ(result, CStartResult::CouldNotBegin);
            EXPECT_EQ(profile.setting.lasttime, last_time);
        }
        tree.root.RefreshThread();
        profile.setting.lasttime = last_time;
    }
    EXPECT_FALSE(failed) << "it never succeeded";
}

TEST(EntryWithoutMemory, EndsItsWorkersAllTheSame) {
    MailboxServer mailbox("alice", "secret");
    Counter listings;
    mailbox.SetFault([&listings](const std::string& command) -> std::string {
        if (command != "UIDL") return "";
        listings.Add();
        return "stall";
    });
    DataTree tree;
    for (int i = 0; i < 3; ++i) AddAddress(tree.AddProfile(mailbox.Port(), UnusedPort()), "a@example.org");
    int rounds = 0;
    for (const auto& end : std::vector<std::function<void()>>{[&tree] { tree.root.KillThread(); },
                                                              [&tree] {
                                                                  EXPECT_EQ(tree.root.WaitThread(10), 0);
                                                                  tree.root.RefreshThread();
                                                                  tree.root.KillThread();
                                                              }}) {
        Tarvex(&tree.root);
        ASSERT_TRUE(listings.WaitFor(3 * ++rounds));
        Failing(1, Outage::Lasting, end);
        EXPECT_TRUE(tree.root.running_copies.empty());
    }
}

}  // namespace
}  // namespace tarvex::testing
