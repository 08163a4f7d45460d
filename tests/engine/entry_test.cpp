// The entry and its workers: what is started, what is not, and how it ends.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "engine/worker.h"
#include "platform/net/name_lookup.h"
#include "platform/os/clock.h"
#include "platform/os/threads.h"
#include "testing/scripted_server.h"
#include "tests/support/busy_profile.h"
#include "tests/support/forwarding.h"

namespace tarvex::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Clock = std::chrono::steady_clock;

constexpr int kLongEnough_ms = 60'000;

std::vector<std::string> PathsOfCopies(const CRootPath& root) {
    std::vector<std::string> paths;
    for (const auto& copy : root.running_copies) paths.push_back(copy->path);
    return paths;
}

bool HasLog(const CPopProfile& profile) { return std::filesystem::exists(OnDisk(profile.path) + "/profile.log"); }

int EndedRuns(const CPopProfile& profile) {
    int count = 0;
    for (const std::string& line : Lines(OnDisk(profile.path) + "/profile.log")) {
        if (line.starts_with("---- End Operation at ")) ++count;
    }
    return count;
}

// What is started.

TEST(Entry, IgnoresANullRoot) { Tarvex(nullptr); }

TEST(Entry, StartsNothingInAnEmptyTree) {
    CRootPath root;
    Tarvex(&root);
    EXPECT_THAT(root.running_copies, IsEmpty());
    DataTree tree;
    tree.AddUser();
    Tarvex(&tree.root);
    EXPECT_THAT(tree.root.running_copies, IsEmpty());
}

TEST(Entry, RunsEveryDueProfileOfEveryUserInTheirOrder) {
    DataTree tree;
    std::vector<std::string> due;
    for (int u = 0; u < 3; ++u) {
        CUser& user = tree.AddUser();
        for (int p = 0; p < 3; ++p) {
            CPopProfile& profile = DataTree::AddProfile(user, UnusedPort(), UnusedPort());
            if (p == 1) profile.setting.status = 0;
            if (p != 1) due.push_back(profile.path);
        }
    }
    Tarvex(&tree.root);
    EXPECT_EQ(PathsOfCopies(tree.root), due);
    ASSERT_EQ(tree.root.WaitThread(kLongEnough_ms), 1);
    for (const auto& user : tree.root.users) {
        for (const auto& profile : user->profiles) EXPECT_EQ(HasLog(*profile), profile->setting.status == 1);
    }
}

TEST(Entry, LeavesAProfileAloneUntilItsIntervalHasPassed) {
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(UnusedPort(), UnusedPort());
    profile.setting.timer = 60;
    const CTime last = CurrentTime() - 1800;
    profile.setting.lasttime = last;
    Tarvex(&tree.root);
    EXPECT_THAT(tree.root.running_copies, IsEmpty());
    EXPECT_EQ(profile.setting.lasttime, last);

    profile.setting.lasttime = CurrentTime() - 3600;
    Tarvex(&tree.root);
    EXPECT_EQ(tree.root.running_copies.size(), 1U);
    ASSERT_EQ(tree.root.WaitThread(kLongEnough_ms), 1);
    Tarvex(&tree.root);
    EXPECT_THAT(tree.root.running_copies, IsEmpty()) << "it has just run";
}

TEST(Entry, RunStartsAtTheJudgedTimeAndSavesIt) {
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(UnusedPort(), UnusedPort());
    Tarvex(&tree.root);
    ASSERT_EQ(tree.root.WaitThread(kLongEnough_ms), 1);
    EXPECT_THAT(ReadFile(OnDisk(profile.path) + "/profile.log"),
                HasSubstr("---- Operation starting at " + LongTime(profile.setting.lasttime) + "\r\n"));
    CPopProfile loaded;
    loaded.SetPath(profile.path);
    EXPECT_EQ(loaded.setting.lasttime, profile.setting.lasttime - profile.setting.lasttime % 60)
        << "the seconds of a stored stamp are dropped";
}

TEST(Entry, GivesTheWorkerACopyOfItsOwn) {
    DataTree tree;
    SilentServer pop;
    CPopProfile& profile = AddBusyProfile(tree, pop.Port());
    profile.setting.nickname = "in memory only";
    profile.setting.version = 7;
    CForwardAddress& address = *profile.forward_addresses[0];
    address.uidls = {"in memory only"};
    WriteUidls(address, {"u1"});
    CTerm term;
    term.status = 0;
    AddAddress(profile, "b@example.org").schedule.AddNewTerm(&term);
    Tarvex(&tree.root);
    ASSERT_TRUE(pop.WaitForConnections(1));

    ASSERT_EQ(tree.root.running_copies.size(), 1U);
    const CPopProfile& copy = *tree.root.running_copies[0];
    EXPECT_NE(copy.worker_thread.load(), nullptr);
    EXPECT_EQ(profile.worker_thread.load(), nullptr);
    // These are set before the worker starts and not changed by it, so they may be read here.
    EXPECT_EQ(copy.path, profile.path);
    EXPECT_EQ(copy.setting == profile.setting, 1);
    EXPECT_EQ(copy.setting.lasttime, profile.setting.lasttime);
    EXPECT_EQ(copy.setting.version, 0);
    ASSERT_EQ(copy.forward_addresses.size(), 2U);
    EXPECT_NE(copy.forward_addresses[0].get(), &address);
    EXPECT_EQ(copy.forward_addresses[0]->path, address.path);
    EXPECT_THAT(copy.forward_addresses[0]->uidls, ElementsAre("u1"));
    EXPECT_EQ(copy.forward_addresses[1]->schedule == profile.forward_addresses[1]->schedule, 1);
    EXPECT_THAT(address.uidls, ElementsAre("in memory only"));
}

// The same profile never runs twice at a time.

TEST(Entry, DoesNotStartAProfileThatIsRunningButMovesItsLasttime) {
    DataTree tree;
    SilentServer pop;
    CPopProfile& profile = AddBusyProfile(tree, pop.Port());
    profile.setting.timer = 1;
    Tarvex(&tree.root);
    ASSERT_EQ(tree.root.running_copies.size(), 1U);
    const CPopProfile* const copy = tree.root.running_copies[0].get();

    profile.setting.lasttime = 1000;
    const CTime before = CurrentTime();
    Tarvex(&tree.root);
    EXPECT_GE(profile.setting.lasttime, before);
    ASSERT_EQ(tree.root.running_copies.size(), 1U);
    EXPECT_EQ(tree.root.running_copies[0].get(), copy);
    EXPECT_NE(copy->worker_thread.load(), nullptr);

    // The interval counts from the call that started nothing.
    const CTime moved = profile.setting.lasttime;
    Tarvex(&tree.root);
    EXPECT_EQ(profile.setting.lasttime, moved);
}

TEST(Entry, RecognisesARunningProfileByItsPath) {
    DataTree tree;
    SilentServer pop;
    CPopProfile& profile = AddBusyProfile(tree, pop.Port());
    auto& profiles = tree.root.users[0]->profiles;
    profiles.push_back(std::make_unique<CPopProfile>());
    *profiles[1] = profile;
    profiles.push_back(std::make_unique<CPopProfile>());
    *profiles[2] = profile;
    Tarvex(&tree.root);
    EXPECT_THAT(PathsOfCopies(tree.root), ElementsAre(profile.path));
    EXPECT_EQ(profiles[1]->setting.lasttime, profile.setting.lasttime) << "judged all the same";
}

TEST(Entry, PathsThatDifferOnlyInLetterCaseAreDifferentProfiles) {
    DataTree tree;
    SilentServer pop;
    CPopProfile& profile = AddBusyProfile(tree, pop.Port());
    const std::string other_path = tree.root.users[0]->path + "\\FROM0";
    std::filesystem::create_directory(OnDisk(other_path));
    auto& profiles = tree.root.users[0]->profiles;
    profiles.push_back(std::make_unique<CPopProfile>());
    *profiles[1] = profile;
    profiles[1]->path = other_path;
    Tarvex(&tree.root);
    EXPECT_THAT(PathsOfCopies(tree.root), ElementsAre(profile.path, other_path));
}

TEST(Entry, FinishedCopyDoesNotBlockItsProfile) {
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(UnusedPort(), UnusedPort());
    for (int run = 1; run <= 3; ++run) {
        Tarvex(&tree.root);
        ASSERT_EQ(tree.root.running_copies.size(), 1U);
        ASSERT_EQ(tree.root.WaitThread(kLongEnough_ms), 1);
        EXPECT_EQ(tree.root.running_copies.size(), 1U) << "it stays until it is reaped";
        EXPECT_EQ(tree.root.running_copies[0]->worker_thread.load(), nullptr);
        EXPECT_EQ(EndedRuns(profile), run);
    }
}

// One profile alone.

TEST(StartRun, RunsAProfileThatIsNotDueAndSwitchedOff) {
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(UnusedPort(), UnusedPort());
    CPopProfile& other = tree.AddProfile(UnusedPort(), UnusedPort());
    profile.setting.timer = 60;
    profile.setting.lasttime = CurrentTime() - 30;
    profile.setting.status = 0;
    const CTime before = CurrentTime();
    EXPECT_EQ(StartRun(tree.root, profile), CStartResult::Started);
    EXPECT_GE(profile.setting.lasttime, before);
    EXPECT_THAT(PathsOfCopies(tree.root), ElementsAre(profile.path));
    ASSERT_EQ(tree.root.WaitThread(kLongEnough_ms), 1);
    EXPECT_EQ(tree.root.running_copies[0]->result.ending, CRunEnding::NobodyTakesPart);
    EXPECT_THAT(ReadFile(OnDisk(profile.path) + "/profile.log"),
                HasSubstr("---- Operation starting at " + LongTime(profile.setting.lasttime) + "\r\n"));
    EXPECT_FALSE(HasLog(other));
    EXPECT_EQ(StartRun(tree.root, profile), CStartResult::Started) << "what has ended does not block";
    EXPECT_EQ(tree.root.running_copies.size(), 2U) << "nor is it freed";
}

TEST(StartRun, IsRefusedWhileTheSameDirectoryRuns) {
    DataTree tree;
    SilentServer pop;
    CPopProfile& profile = AddBusyProfile(tree, pop.Port());
    Tarvex(&tree.root);
    profile.setting.lasttime = 1000;
    EXPECT_EQ(StartRun(tree.root, profile), CStartResult::AlreadyRunning);
    EXPECT_EQ(profile.setting.lasttime, 1000);
    EXPECT_EQ(tree.root.running_copies.size(), 1U);
    tree.root.KillThread();
    EXPECT_EQ(StartRun(tree.root, profile), CStartResult::Started);
    profile.JudgeDoOperation();
    Tarvex(&tree.root);
    EXPECT_EQ(tree.root.running_copies.size(), 1U) << "the entry sees what was started without it";
}

TEST(InterruptRuns, EndsEveryRunAndLeavesTheResults) {
    DataTree tree;
    SilentServer pop;
    CPopProfile& first = AddBusyProfile(tree, pop.Port());
    CPopProfile& second = AddBusyProfile(tree, pop.Port());
    Tarvex(&tree.root);
    InterruptRuns(tree.root);
    ASSERT_EQ(tree.root.WaitThread(kLongEnough_ms), 1);
    ASSERT_EQ(tree.root.running_copies.size(), 2U);
    for (const auto& copy : tree.root.running_copies) {
        EXPECT_EQ(copy->result.ending, CRunEnding::MailboxFailed);
        EXPECT_TRUE(copy->result.interrupted);
    }
    EXPECT_EQ(EndedRuns(first) + EndedRuns(second), 2) << "their state is saved";
    InterruptRuns(tree.root);  // nothing runs any more
}

// A copy whose worker ended after the reaping that begins a call is still in the list while the call looks for
// duplicates. Here a profile stands in the tree many times, and between two of its places another one takes its time to
// be copied. Nothing is written, since the directories do not exist, so a run takes next to no time.
TEST(Entry, CopyThatFinishesDuringTheCallDoesNotBlockEither) {
    constexpr int kPlaces = 20;
    DataTree tree;
    const std::string quick_path = tree.Folder() / "quick";
    std::filesystem::create_directory(tree.Folder() / "ids");
    CForwardAddress many_ids;
    many_ids.path = tree.Folder() / "ids";
    many_ids.setting.status = 0;
    WriteUidls(many_ids, Ids(40'000, "a-short-id"));
    auto& profiles = tree.AddUser().profiles;
    for (int i = 0; i < kPlaces; ++i) {
        profiles.push_back(std::make_unique<CPopProfile>());
        profiles.back()->path = quick_path;
        profiles.push_back(std::make_unique<CPopProfile>());
        profiles.back()->path = tree.Folder() / ("slow" + std::to_string(i));
        profiles.back()->forward_addresses.push_back(std::make_unique<CForwardAddress>());
        *profiles.back()->forward_addresses[0] = many_ids;
    }
    for (const auto& profile : profiles) profile->setting.timer = 0;
    Tarvex(&tree.root);
    const std::vector<std::string> paths = PathsOfCopies(tree.root);
    EXPECT_GT(std::count(paths.begin(), paths.end(), quick_path), 1);
    EXPECT_EQ(tree.root.WaitThread(kLongEnough_ms), 1);
}

// The host's other operations.

TEST(RefreshThread, FreesFinishedCopiesAndKeepsTheOthersInTheirOrder) {
    DataTree tree;
    SilentServer pop;
    const CPopProfile& finished = tree.AddProfile(UnusedPort(), UnusedPort());
    const CPopProfile& second = AddBusyProfile(tree, pop.Port());
    const CPopProfile& third = AddBusyProfile(tree, pop.Port());
    Tarvex(&tree.root);
    EXPECT_THAT(PathsOfCopies(tree.root), ElementsAre(finished.path, second.path, third.path));
    ASSERT_TRUE(WaitForThread(tree.root.running_copies[0]->worker_thread.load(), kLongEnough_ms));
    tree.root.RefreshThread();
    EXPECT_THAT(PathsOfCopies(tree.root), ElementsAre(second.path, third.path));
    tree.root.RefreshThread();
    EXPECT_THAT(PathsOfCopies(tree.root), ElementsAre(second.path, third.path));
}

TEST(RefreshThread, OfAnEmptyListMayBeCalledAtAnyTime) {
    CRootPath root;
    for (int i = 0; i < 3; ++i) root.RefreshThread();
    EXPECT_THAT(root.running_copies, IsEmpty());
}

TEST(KillThread, OfAnEmptyListMayBeCalledAtAnyTime) {
    CRootPath root;
    for (int i = 0; i < 3; ++i) root.KillThread();
    EXPECT_EQ(root.running_copies.capacity(), 0U);
}

TEST(KillThread, EndsRunningWorkersAndFreesFinishedCopies) {
    DataTree tree;
    SilentServer pop;
    CPopProfile& stalled = AddBusyProfile(tree, pop.Port());
    const CPopProfile& finished = tree.AddProfile(UnusedPort(), UnusedPort());
    Tarvex(&tree.root);
    ASSERT_TRUE(pop.WaitForConnections(1));
    tree.root.KillThread();
    EXPECT_THAT(tree.root.running_copies, IsEmpty());
    EXPECT_EQ(tree.root.running_copies.capacity(), 0U);
    EXPECT_EQ(EndedRuns(stalled), 1);
    EXPECT_EQ(EndedRuns(finished), 1);

    // The root lives on.
    stalled.setting.popport = UnusedPort();
    Tarvex(&tree.root);
    ASSERT_EQ(tree.root.WaitThread(kLongEnough_ms), 1);
    EXPECT_EQ(EndedRuns(stalled), 2);
}

TEST(WaitThread, OfNothingReturnsOneWhateverTheTime) {
    CRootPath root;
    for (const int milliseconds : {0, 1, -1}) EXPECT_EQ(root.WaitThread(milliseconds), 1);
}

TEST(WaitThread, ReturnsZeroWhenTheTimeIsUp) {
    DataTree tree;
    SilentServer pop;
    AddBusyProfile(tree, pop.Port());
    AddBusyProfile(tree, pop.Port());
    Tarvex(&tree.root);
    EXPECT_EQ(tree.root.WaitThread(0), 0);
    const auto start = Clock::now();
    EXPECT_EQ(tree.root.WaitThread(50), 0);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(50));
    EXPECT_EQ(tree.root.running_copies.size(), 2U);
}

TEST(WaitThread, WithoutLimitWaitsUntilEveryWorkerHasFinished) {
    DataTree tree;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    Counter waiting;
    ScriptedServer pop([&waiting, released](Peer& peer) {
        waiting.Add();
        released.wait();
        peer.Send("-ERR busy\r\n");
        peer.WaitForClose();
    });
    for (int i = 0; i < 3; ++i) AddBusyProfile(tree, pop.Port());
    Tarvex(&tree.root);
    ASSERT_TRUE(waiting.WaitFor(3));
    EXPECT_EQ(tree.root.WaitThread(0), 0);
    release.set_value();
    EXPECT_EQ(tree.root.WaitThread(-1), 1);
    EXPECT_EQ(tree.root.WaitThread(0), 1);
    ASSERT_EQ(tree.root.running_copies.size(), 3U) << "they stay for the host to read";
    for (const auto& copy : tree.root.running_copies) {
        EXPECT_EQ(copy->worker_thread.load(), nullptr);
        EXPECT_THAT(copy->log.entries, ::testing::Contains("-ERR busy"));
    }
}

// The tree is the host's while workers run.

TEST(Entry, TreeMayBeChangedAndEmptiedWhileWorkersRun) {
    DataTree tree;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    Counter waiting;
    MailboxServer mailbox("alice", "secret");
    SinkServer sink;
    mailbox.Add(Mail("u1"));
    mailbox.SetFault([&waiting, released](const std::string& command) -> std::string {
        if (command.starts_with("UIDL")) {
            waiting.Add();
            released.wait();
        }
        return "";
    });
    CPopProfile& profile = tree.AddProfile(mailbox.Port(), sink.Port());
    AddAddress(profile, "a@example.org");
    const std::string path = profile.path;
    Tarvex(&tree.root);
    ASSERT_TRUE(waiting.WaitFor(1));

    profile.setting.address = "changed@example.org";
    profile.forward_addresses[0]->setting.address = "changed@example.org";
    profile.forward_addresses[0]->uidls = {"changed"};
    profile.Reset();
    tree.root.DeleteAllUser();
    release.set_value();
    ASSERT_EQ(tree.root.WaitThread(kLongEnough_ms), 1);
    EXPECT_EQ(Arrived(sink), (Arrivals{{"u1 -> a@example.org", 1}}));
    EXPECT_THAT(Lines(OnDisk(path) + "/forwardto0/uidl.def"), ElementsAre("u1"));
}

TEST(Entry, DirectoryOfARunningProfileMayBeDeleted) {
    DataTree tree;
    SilentServer pop;
    CPopProfile& profile = AddBusyProfile(tree, pop.Port());
    const std::string path = profile.path;
    Tarvex(&tree.root);
    ASSERT_TRUE(pop.WaitForConnections(1));
    EXPECT_EQ(tree.root.users[0]->DeletePopProfile(&profile), 1);
    tree.root.KillThread();
    EXPECT_FALSE(std::filesystem::exists(OnDisk(path))) << "the end of a run does not bring a directory back";
}

// The worker procedure.

TEST(Worker, WithoutACopyReturnsOne) { EXPECT_EQ(WorkerProcedure(nullptr), 1U); }

// A run that ends before the entry has stored the thread reference must not leave the field set: the worker waits for
// the reference, and its zero is the last word.
TEST(Worker, ThatEndsBeforeTheEntryHasStoredItsThreadClearsTheFieldAfterwards) {
    DataTree tree;
    const CPopProfile& profile = tree.AddProfile(UnusedPort(), UnusedPort());
    std::filesystem::remove(ProfileFile(profile));
    CPopProfile copy;
    copy = profile;
    std::future<unsigned> worker = std::async(std::launch::async, WorkerProcedure, &copy);

    // The settings are the last that a run saves.
    const auto deadline = Clock::now() + std::chrono::seconds(30);
    while (!std::filesystem::exists(ProfileFile(profile)) && Clock::now() < deadline) std::this_thread::yield();
    ASSERT_TRUE(std::filesystem::exists(ProfileFile(profile)));
    EXPECT_EQ(worker.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout)
        << "the worker has not waited for its thread reference";

    static char reference;
    copy.worker_thread.store(reinterpret_cast<Thread*>(&reference));
    ASSERT_EQ(worker.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_EQ(worker.get(), 1U);
    EXPECT_EQ(copy.worker_thread.load(), nullptr);
}

TEST(Worker, ManyShortRunsNeverBlockTheirProfile) {
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(UnusedPort(), UnusedPort());
    profile.setting.logmode = 0;
    for (int run = 0; run < 200; ++run) {
        Tarvex(&tree.root);
        ASSERT_EQ(tree.root.running_copies.size(), 1U);
        ASSERT_EQ(tree.root.WaitThread(kLongEnough_ms), 1);
        ASSERT_EQ(tree.root.running_copies[0]->worker_thread.load(), nullptr) << "run " << run;
    }
}

// Many workers.

// A profile as files alone, quicker than through the tree.
void WriteProfile(const std::string& directory, int pop_port, int smtp_port) {
    std::filesystem::create_directories(directory + "/forwardto0");
    WriteFile(directory + "/popprofile.def",
              "[address]\r\nme@example.org\r\n[popuser]\r\nalice\r\n[poppassword]\r\n" + EncodePassWord("secret") +
                  "\r\n[popserver]\r\n127.0.0.1\r\n[popport]\r\n" + std::to_string(pop_port) +
                  "\r\n[smtpserver]\r\n127.0.0.1\r\n[smtpport]\r\n" + std::to_string(smtp_port) +
                  "\r\n[lasttime]\r\n2009,3,15,10,20,0\r\n");
    WriteFile(directory + "/forwardto0/forwardaddress.def", "[address]\r\na@example.org\r\n");
}

TEST(Entry, ReturnsAtOnceWithAThousandDueProfilesWhichAllEnd) {
    const TempDir folder;
    std::filesystem::create_directory(folder / "user0");
    WriteFile(folder / "user0/userset.def", "");
    const int port = UnusedPort();
    for (int i = 0; i < 1000; ++i) WriteProfile(folder / ("user0/from" + std::to_string(i)), port, port);
    CRootPath root;
    ASSERT_EQ(root.SetRootPath(folder.String()), 1);
    ASSERT_EQ(root.users.size(), 1U);
    ASSERT_EQ(root.users[0]->profiles.size(), 1000U);

    Tarvex(&root);
    EXPECT_EQ(root.running_copies.size(), 1000U);
    ASSERT_EQ(root.WaitThread(kLongEnough_ms), 1);
    for (const auto& profile : root.users[0]->profiles) {
        ASSERT_EQ(EndedRuns(*profile), 1) << profile->path;
        ASSERT_THAT(ReadFile(OnDisk(profile->path) + "/profile.log"),
                    HasSubstr("* POP Process error : me@example.org"));
    }
    root.RefreshThread();
    EXPECT_THAT(root.running_copies, IsEmpty());
}

// A resolver in place of the system's, whose look-ups come to no end before it is destroyed.
class StalledResolver {
public:
    StalledResolver() {
        SetNameResolver([state = state_](const std::string&) {
            state->asked.Add();
            state->released.wait();
            return NameAnswer{{}, "released"};
        });
    }
    ~StalledResolver() {
        SetNameResolver(nullptr);
        state_->release.set_value();
    }
    StalledResolver(const StalledResolver&) = delete;
    StalledResolver& operator=(const StalledResolver&) = delete;

    bool WaitForLookUps(int count) { return state_->asked.WaitFor(count); }

private:
    // Look-ups are left behind by those who asked, so they may outlive the resolver.
    struct State {
        Counter asked;
        std::promise<void> release;
        std::shared_future<void> released = release.get_future().share();
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

// A hundred profiles whose workers stall at five places, twenty at each, and would do so for an hour.
class StalledProfiles {
public:
    static constexpr int kOfEachKind = 20;

    std::vector<CPopProfile*> in_look_up, at_greeting, in_retrieval, in_first_message, in_second_message;
    DataTree tree;

    StalledProfiles() {
        for (const char* id : {"u1", "u2", "u3"}) mailbox_.Add(Mail(id));
        for (const char* id : {"u1", "u2", "u3"}) stalling_mailbox_.Add(Mail(id));
        stalling_mailbox_.SetFault([this](const std::string& command) {
            if (command != "RETR 2") return "";
            retrievals_.Add();
            return "stall";
        });
        sink_.SetFault([this](const std::string& command) {
            if (!command.starts_with("RCPT") || ++messages_to_[command] < 2) return "";
            second_messages_.Add();
            return "stall";
        });
        stalling_sink_.SetFault([this](const std::string& command) {
            if (command != ".") return "";
            first_messages_.Add();
            return "stall";
        });
        for (int i = 0; i < kOfEachKind; ++i) {
            in_look_up.push_back(&Add("mail.example.org", mailbox_.Port(), sink_.Port()));
            at_greeting.push_back(&Add("127.0.0.1", silent_.Port(), sink_.Port()));
            in_retrieval.push_back(&Add("127.0.0.1", stalling_mailbox_.Port(), sink_.Port()));
            in_first_message.push_back(&Add("127.0.0.1", mailbox_.Port(), stalling_sink_.Port()));
            in_second_message.push_back(&Add("127.0.0.1", mailbox_.Port(), sink_.Port()));
        }
    }

    void RunUntilAllAreStalled() {
        Tarvex(&tree.root);
        ASSERT_EQ(tree.root.running_copies.size(), 5U * kOfEachKind);
        ASSERT_TRUE(resolver_.WaitForLookUps(kOfEachKind));
        ASSERT_TRUE(silent_.WaitForConnections(kOfEachKind));
        ASSERT_TRUE(retrievals_.WaitFor(kOfEachKind));
        ASSERT_TRUE(first_messages_.WaitFor(kOfEachKind));
        ASSERT_TRUE(second_messages_.WaitFor(kOfEachKind));
    }

    // From now on every profile finds servers that do their work.
    void Heal() {
        sink_.SetFault(nullptr);
        for (const auto& profile : tree.root.users[0]->profiles) {
            profile->setting.popserver = "127.0.0.1";
            profile->setting.popport = mailbox_.Port();
            profile->setting.smtpport = sink_.Port();
        }
    }

    Arrivals Arrived() const { return testing::Arrived(sink_); }

private:
    CPopProfile& Add(const std::string& pop_server, int pop_port, int smtp_port) {
        CPopProfile& profile = tree.AddProfile(pop_port, smtp_port);
        profile.setting.popserver = pop_server;
        profile.setting.timeout = 3600;
        profile.SaveSetting();
        WriteUidls(AddAddress(profile, "a" + std::to_string(count_++) + "@example.org"), {"gone"});
        return profile;
    }

    MailboxServer mailbox_{"alice", "secret"};
    MailboxServer stalling_mailbox_{"alice", "secret"};
    SinkServer sink_;
    SinkServer stalling_sink_;
    SilentServer silent_;
    StalledResolver resolver_;
    Counter retrievals_, first_messages_, second_messages_;
    Arrivals messages_to_;  // of the sink's thread
    int count_ = 0;
};

void ExpectSavedSettings(const CPopProfile& profile) {
    CPopProfile loaded;
    loaded.SetPath(profile.path);
    EXPECT_EQ(loaded.setting == profile.setting, 1) << profile.path;
    EXPECT_EQ(loaded.setting.lasttime, profile.setting.lasttime - profile.setting.lasttime % 60) << profile.path;
}

TEST(Destruction, OfARootWithAHundredStalledWorkersIsQuickAndLosesNothing) {
    StalledProfiles stalled;
    ASSERT_NO_FATAL_FAILURE(stalled.RunUntilAllAreStalled());
    auto dying = std::make_unique<CRootPath>();
    dying->running_copies.swap(stalled.tree.root.running_copies);
    const auto start = Clock::now();
    dying.reset();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));

    const auto& profiles = stalled.tree.root.users[0]->profiles;
    for (const auto& profile : profiles) {
        EXPECT_EQ(EndedRuns(*profile), 1) << profile->path;
        ExpectSavedSettings(*profile);
    }
    const auto uidls = [](const CPopProfile* profile) { return UidlsOnDisk(*profile->forward_addresses[0]); };
    for (const CPopProfile* profile : stalled.in_look_up) EXPECT_THAT(uidls(profile), ElementsAre("gone"));
    for (const CPopProfile* profile : stalled.at_greeting) EXPECT_THAT(uidls(profile), ElementsAre("gone"));
    // A message that cannot be fetched does not fail the retrieval, so its list is pruned.
    for (const CPopProfile* profile : stalled.in_retrieval) EXPECT_THAT(uidls(profile), IsEmpty());
    for (const CPopProfile* profile : stalled.in_first_message) EXPECT_THAT(uidls(profile), IsEmpty());
    for (const CPopProfile* profile : stalled.in_second_message) EXPECT_THAT(uidls(profile), ElementsAre("u1"));

    // One more pass brings everything to everyone, and nothing twice that was remembered.
    stalled.Heal();
    Tarvex(&stalled.tree.root);
    ASSERT_EQ(stalled.tree.root.WaitThread(kLongEnough_ms), 1);
    Arrivals expected;
    for (const auto& profile : profiles) {
        for (const char* id : {"u1", "u2", "u3"}) {
            expected[id + (" -> " + profile->forward_addresses[0]->setting.address)] = 1;
        }
    }
    EXPECT_EQ(stalled.Arrived(), expected);
}

}  // namespace
}  // namespace tarvex::testing
