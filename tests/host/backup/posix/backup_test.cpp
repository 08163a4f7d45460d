// Backups of a tree that changes meanwhile, and what a killed backup or restore leaves.

#include "host/backup/backup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "host/edit/edit.h"
#include "host/held/held.h"
#include "host/memory/memory.h"
#include "host/system/command_error.h"
#include "host/system/file_in_making.h"
#include "tests/host/edit_words.h"
#include "tests/support/forwarding.h"
#include "tests/support/host_program.h"
#include "tests/support/posix/system_calls.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

const Ids kIds = {"id-1", "id-2"};

// Before the write with that number, counted from 1, something happens.
struct Interruption {
    std::size_t number = 0;
    std::function<void()> happens;
};

std::string Saved(const CRootPath& root, const Interruption& interruption = {}, std::size_t* writes = nullptr) {
    std::string archive;
    std::size_t count = 0;
    host::ArchiveWriter writer(
        [&](std::string_view bytes) {
            if (++count == interruption.number) interruption.happens();
            archive += bytes;
        },
        0);
    host::BackUp(root, writer);
    if (writes) *writes = count;
    return archive;
}

void RestoreTo(const std::string& place, const std::string& archive) {
    std::istringstream input(archive);
    host::Restore(input, place);
}

std::vector<std::string> NamesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename());
    return names;
}

// Every plain file of a tree and what it holds.
std::map<std::string, std::string> FilesOf(const fs::path& root) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (entry.is_regular_file()) files[entry.path().lexically_relative(root)] = ReadFile(entry.path());
    }
    return files;
}

// A tree in use, and the place where it is restored.
class House {
public:
    House() {
        EXPECT_EQ(root.SetRootPath(Root()), 1);
        Make(EditOf({"user", "add", "loginname=taro"}));
        Make(EditOf({"rules", "add", ""}));
        Make(EditOf({"profile", "add", "taro", "address=me@example.org", "popserver=pop.example.org"}));
        Make(EditOf({"forward", "add", "me@example.org", "address=phone@example.net"}, {}, kIds));
        Make(EditOf({"schedule", "add", "phone@example.net", "daily 08:00-18:00"}));
    }

    void Make(const host::EditRequest& request) {
        host::Reply reply;
        ASSERT_EQ(host::Edit(root, request, reply), host::kDone) << reply.error;
    }

    std::string Root() const { return folder / "tree"; }
    std::string Place() const { return folder / "restored"; }
    CPopProfile& Profile() { return *root.users.front()->profiles.front(); }

    void Hold(int number) {
        host::HeldRecord record;
        record.uidl = "held-" + std::to_string(number);
        record.digest = std::string(31, '0') + std::to_string(number);
        record.addresses = {host::WaitingNow(Profile(), *Profile().forward_addresses.front())};
        ASSERT_EQ(host::HeldStore(Profile().path).Hold("\r\nbody\r\n.\r\n", record, {}), host::HoldOutcome::Held);
    }

    TempDir folder;
    CRootPath root;
};

// What happens before each file is written in turn, each time in a new tree and restored.
void InterruptEachWrite(const std::function<void(House&)>& happens,
                        const std::function<void(const CRootPath&)>& expect) {
    std::size_t writes = 1;
    constexpr std::size_t kWritesOfAFile = 3;
    for (std::size_t number = 1; number <= writes; number += kWritesOfAFile) {
        SCOPED_TRACE("write " + std::to_string(number));
        House house;
        house.Hold(9);
        CRootPath loaded;  // as the command loads it
        ASSERT_EQ(loaded.SetRootPath(house.Root()), 1);
        RestoreTo(house.Place(), Saved(loaded, {number, [&] { happens(house); }}, &writes));
        CRootPath restored;
        ASSERT_EQ(restored.SetRootPath(house.Place()), 1);
        expect(restored);
        if (::testing::Test::HasFailure()) return;
    }
    EXPECT_GT(writes, 20U);
}

// The addresses that count, with what they have received.
std::map<std::string, Ids> ListsOf(const CRootPath& root) {
    std::map<std::string, Ids> lists;
    for (const auto& user : root.users) {
        for (const auto& profile : user->profiles) {
            for (const auto& forward : profile->forward_addresses) {
                lists[forward->setting.address] = UidlsOnDisk(*forward);
            }
        }
    }
    return lists;
}

TEST(Backup, GivesBackEveryFileForItsOwnerAlone) {
    House house;
    house.Hold(1);
    house.Make(EditOf({"rules", "set", "me@example.org", "floodlimit=7"}));
    fs::create_directories(house.Root() + "/providers.d");
    WriteFile(house.Root() + "/providers.d/google.def", "[token_endpoint]\n");
    fs::create_directories(house.Root() + "/.tarvex/tokens");
    WriteFile(house.Root() + "/.tarvex/tokens/user0+from0.json", "{}");
    WriteFile(house.Root() + "/user0/from0/profile.log", "log\r\n");
    WriteFile(house.Root() + "/user0/host.def", "[version]\r\n0\r\n");
    const auto before = FilesOf(house.Root());
    const std::string archive = Saved(house.root);
    EXPECT_EQ(FilesOf(house.Root()), before);
    RestoreTo(house.Place(), archive);
    EXPECT_EQ(FilesOf(house.Place()), before);
    for (const auto& entry : fs::recursive_directory_iterator(house.Place())) {
        struct stat status {};
        ASSERT_EQ(stat(entry.path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, entry.is_directory() ? 0700U : 0600U) << entry.path();
    }
    EXPECT_THAT(NamesIn(house.folder.Path()), UnorderedElementsAre("tree", "restored"));
}

TEST(Backup, LeavesOutWhatIsNoPartOfTheTreeAndNamesIt) {
    House house;
    WriteFile(house.Root() + "/authority.pem", "x");
    WriteFile(house.Root() + "/.tarvex.lock", "1 serve\n");
    fs::create_directory(house.Root() + "/user7");  // without its marker file
    host::ArchiveWriter writer([](std::string_view) {}, 0);
    EXPECT_THAT(host::BackUp(house.root, writer).left_out, ElementsAre("authority.pem", "user7"));
}

TEST(Backup, IsRefusedWhereTheTreeCannotBeReadWhole) {
    House house;
    fs::remove(house.Root() + "/user0/from0/forwardto0/uidl.def");
    fs::create_directory(house.Root() + "/user0/from0/forwardto0/uidl.def");
    EXPECT_THROW(Saved(house.root), host::CommandError);
}

// A list says that a message is handled: then held/ has it.
TEST(Backup, LosesNoMessageThatIsSetAsideMeanwhile) {
    InterruptEachWrite(
        [](House& house) {
            house.Hold(1);
            WriteUidls(*house.Profile().forward_addresses.front(), {"id-1", "id-2", "held-1"});
        },
        [](const CRootPath& restored) {
            const Ids ids = ListsOf(restored).at("phone@example.net");
            const auto held = host::HeldStore(restored.users.front()->profiles.front()->path).List();
            ASSERT_TRUE(held);
            for (const host::HeldRecord& record : *held) EXPECT_EQ(record.damage, "");
            EXPECT_GE(std::ranges::count(*held, "held-1", &host::HeldRecord::uidl), std::ranges::count(ids, "held-1"));
        });
}

TEST(Backup, TakesNoAddressWithoutItsList) {
    InterruptEachWrite(
        [](House& house) {
            house.Make(EditOf({"forward", "add", "me@example.org", "address=new@example.net"}, {}, {"a", "b"}));
        },
        [](const CRootPath& restored) {
            auto lists = ListsOf(restored);
            EXPECT_EQ(lists.at("phone@example.net"), kIds);
            lists.try_emplace("new@example.net", Ids{"a", "b"});  // or it is not there
            EXPECT_THAT(lists["new@example.net"], ElementsAre("a", "b"));
        });
}

TEST(Backup, GivesNoAddressTheListOfAnotherInItsPlace) {
    InterruptEachWrite(
        [](House& house) {
            house.Make(EditOf({"forward", "remove", "phone@example.net"}));
            house.Make(EditOf({"forward", "add", "me@example.org", "address=other@example.net"}));
        },
        [](const CRootPath& restored) {
            for (const auto& [address, ids] : ListsOf(restored)) {
                EXPECT_EQ(ids, address == "phone@example.net" ? kIds : Ids()) << address;
            }
        });
}

TEST(Backup, KeepsWhatWasSentUnderItsNewFoldersAlsoWhenARunWasCutOff) {
    House house;
    const auto silent = [](const std::string& said) { ADD_FAILURE() << said; };
    const CTime now = std::time(nullptr);
    const std::string first = "first";
    const std::string second = "second";
    const std::vector<CString> phone = {"phone@example.net"};
    std::string archive;
    {
        host::RuleMemory memory(house.Root(), silent);
        memory.Of(house.Profile().path).RecordSent(phone, memory.DigestOf(first), now);
        ASSERT_TRUE(memory.Save(now));
        memory.Of(house.Profile().path).RecordSent(phone, memory.DigestOf(second), now);
        archive = Saved(house.root);  // the second one is in the journal alone
    }
    RestoreTo(house.Place(), archive);
    const CString profile = house.Place() + "\\user0\\from0";
    for (int opened = 0; opened < 2; ++opened) {
        SCOPED_TRACE(opened);
        host::RuleMemory memory(house.Place(), silent);
        for (const std::string& text : {first, second}) {
            EXPECT_TRUE(memory.Of(profile).WasSent(phone[0], memory.DigestOf(text), now)) << text;
        }
        memory.Of(profile).RecordSent(phone, memory.DigestOf("third"), now);
        ASSERT_TRUE(memory.Save(now));
    }
}

TEST(Restore, TakesAPlaceWhereNothingIsOrAnEmptyDirectory) {
    House house;
    const std::string archive = Saved(house.root);
    fs::create_directory(house.Place());
    RestoreTo(house.Place(), archive);
    EXPECT_EQ(FilesOf(house.Place()), FilesOf(house.Root()));
    EXPECT_THROW(RestoreTo(house.Place(), archive), host::CommandError);
    EXPECT_EQ(FilesOf(house.Place()), FilesOf(house.Root()));
    const std::string file = house.folder / "file";
    const std::string link = house.folder / "link";
    WriteFile(file, "x");
    fs::create_directory(house.folder / "empty");
    fs::create_directory_symlink(house.folder / "empty", link);
    for (const std::string& place : {file, link}) EXPECT_THROW(RestoreTo(place, archive), host::CommandError);
    EXPECT_EQ(ReadFile(file), "x");
    EXPECT_THAT(NamesIn(house.folder.Path()), UnorderedElementsAre("tree", "restored", "file", "link", "empty"));
}

TEST(Restore, LeavesNothingOfAnArchiveThatIsBad) {
    House house;
    const std::string good = Saved(house.root);
    std::string changed = good;
    changed[good.size() / 2] ^= 1;
    std::string twice;
    host::ArchiveWriter writer([&](std::string_view bytes) { twice += bytes; }, 0);
    for (int i = 0; i < 2; ++i) writer.Add("host.def", "");
    writer.Finish();
    for (const std::string& bad : {good.substr(0, good.size() - 3000), changed, twice}) {
        EXPECT_THROW(RestoreTo(house.Place(), bad), host::CommandError);
        EXPECT_THAT(NamesIn(house.folder.Path()), ElementsAre("tree"));
    }
}

// Runs the work in a process that is killed at that call. True when it was not.
bool Survives(std::size_t call, const std::function<void()>& work) {
    const pid_t child = fork();
    if (child == 0) {
        system_calls = {true, {}, {}, {}, call};
        system_calls.contents = true;
        work();
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) || (WIFEXITED(status) && WEXITSTATUS(status) == 0));
    return WIFEXITED(status);
}

TEST(KilledBackup, LeavesTheOldFileOrTheNewOne) {
    House house;
    const std::string file = house.folder / "backup.tar";
    const std::string expected = Saved(house.root);
    for (std::size_t call = 1;; ++call) {
        SCOPED_TRACE("call " + std::to_string(call));
        WriteFile(file, "old");
        const bool survived = Survives(call, [&] {
            host::FileInMaking made(file);
            host::ArchiveWriter writer([&](std::string_view bytes) { made.Write(bytes); }, 0);
            host::BackUp(house.root, writer);
            made.Keep();
        });
        const std::string found = ReadFile(file);
        ASSERT_TRUE(found == expected || (found == "old" && !survived));
        if (survived) {
            EXPECT_GT(call, 20U);
            return;
        }
    }
}

TEST(KilledRestore, LeavesNoTreeOrTheWholeOne) {
    House house;
    house.Hold(1);
    const std::string archive = Saved(house.root);
    const auto expected = FilesOf(house.Root());
    for (std::size_t call = 1;; ++call) {
        SCOPED_TRACE("call " + std::to_string(call));
        const TempDir folder;
        const bool survived = Survives(call, [&] { RestoreTo(folder / "tree", archive); });
        const bool is_there = fs::exists(folder / "tree");
        ASSERT_TRUE(!is_there || FilesOf(folder / "tree") == expected);
        for (const std::string& name : NamesIn(folder.Path())) {
            EXPECT_TRUE(name == "tree" || name.starts_with("tree.restore-")) << name;
        }
        if (survived) {
            EXPECT_TRUE(is_there);
            EXPECT_GT(call, 20U);
            return;
        }
    }
}

// ---- the commands

class BackupCommand : public ::testing::Test {
protected:
    // One after the other, in the order of their numbers.
    void AddMails(int count) {
        for (int i = 0; i < count; ++i) mailbox_.Add(MailNumber(++mails_));
    }

    int DeliveredCount() const { return static_cast<int>(sink_.Delivered().size()); }

    std::map<std::string, int> Arrivals(std::size_t first = 0) const { return Arrived(sink_, first); }

    template <class Condition>
    static bool Eventually(Condition condition) {
        const auto deadline = std::chrono::steady_clock::now() + 30s;
        while (!condition() && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(2ms);
        return condition();
    }

    Host host_;
    MailboxServer mailbox_{"user", "secret"};
    SinkServer sink_;
    int mails_ = 0;
};

// What was delivered before the backup began is not sent again; what came later is; what was delivered while the backup
// was made may be sent again.
TEST_F(BackupCommand, WhileRunsAreUnderWayMakesATreeThatForwardsWhatIsNew) {
    host_.AddProfile(mailbox_.Port(), sink_.Port(), [](CPopProfile& profile) { profile.setting.timer = 0; });
    host_.Tell({"init", "--rules"});
    const TempDir folder;
    ChildProcess service({TARVEX_HOST, "--root", host_.Root(), "serve", "--every", "0.02"},
                         ChildProcess::Output::Together);
    struct Made {
        std::string file;
        std::size_t before, after;  // deliveries
    };
    std::vector<Made> backups;
    for (int i = 0; i < 5; ++i) {
        AddMails(10);
        ASSERT_TRUE(Eventually([&] { return DeliveredCount() > i * 10 + 2 * i; }));
        // What the server took last, the service may not have heard of.
        Made made{folder / std::to_string(i), static_cast<std::size_t>(DeliveredCount() - 1), 0};
        host_.Tell({"backup", made.file});
        made.after = static_cast<std::size_t>(DeliveredCount());
        backups.push_back(made);
        ASSERT_TRUE(Eventually([&] { return DeliveredCount() == mails_; }));
    }
    service.Signal(SIGTERM);
    service.Wait();
    AddMails(3);
    for (const Made& made : backups) {
        SCOPED_TRACE(made.file);
        const std::string place = made.file + ".tree";
        const std::size_t delivered = sink_.Delivered().size();
        ChildProcess restore({TARVEX_HOST, "restore", made.file, place});
        restore.Wait();
        ASSERT_EQ(restore.ExitCode(), 0) << restore.Errors();
        ChildProcess run({TARVEX_HOST, "--root", place, "run"});
        run.Wait();
        EXPECT_EQ(run.ExitCode(), 0) << run.Errors();
        const auto again = Arrivals(delivered);
        for (std::size_t i = 1; i <= static_cast<std::size_t>(mails_); ++i) {
            const std::string name = MailNumber(static_cast<int>(i)).uidl + " -> " + kPhone;
            const int times = again.contains(name) ? again.at(name) : 0;
            EXPECT_LE(times, i <= made.before ? 0 : 1) << name;
            EXPECT_GE(times, i > made.after ? 1 : 0) << name;
        }
    }
}

TEST_F(BackupCommand, WritesAFileForItsOwnerAloneOrToStandardOutput) {
    host_.AddProfile(mailbox_.Port(), sink_.Port());
    const TempDir folder;
    const std::string file = folder / "backup.tar";
    EXPECT_THAT(host_.Tell({"backup", file}), HasSubstr("Saved 1 profile"));
    struct stat status {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_EQ(host_.Tell({"backup", "-"}).size(), ReadFile(file).size());
    ChildProcess restore({TARVEX_HOST, "restore", "-", folder / "tree"}, ChildProcess::Output::Pipe, {},
                         ReadFile(file));
    restore.Wait();
    EXPECT_EQ(restore.ExitCode(), 0) << restore.Errors();
    EXPECT_EQ(FilesOf(folder / "tree").size(), 3U);  // the marker files
    fs::create_directory(folder / "folder");
    for (const std::string& bad : {folder / "folder", folder / "nowhere/backup.tar"}) {
        ChildProcess command = host_.StartCommand({"backup", bad});
        command.Wait();
        EXPECT_EQ(command.ExitCode(), host::kCannotMake) << command.Errors();
    }
    EXPECT_THAT(NamesIn(folder.Path()), UnorderedElementsAre("backup.tar", "tree", "folder"));
}

TEST_F(BackupCommand, OfTheSuperuserKeepsTheOwnerOfTheTree) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser gives files away";
    constexpr uid_t kNobody = 65534;
    host_.AddProfile(mailbox_.Port(), sink_.Port());
    host_.Tell({"init", "--rules"});
    const TempDir folder;  // the superuser's
    const auto give = [](const fs::path& path) { EXPECT_EQ(lchown(path.c_str(), kNobody, kNobody), 0); };
    const fs::path tree = host_.Root();
    fs::permissions(tree.parent_path(), fs::perms::others_exec, fs::perm_options::add);
    give(tree);
    for (const auto& entry : fs::recursive_directory_iterator(tree)) give(entry.path());
    host_.Tell({"backup", folder / "backup.tar"});
    fs::create_directory(folder / "tree");
    give(folder / "tree");
    ChildProcess restore({TARVEX_HOST, "restore", folder / "backup.tar", folder / "tree"});
    restore.Wait();
    ASSERT_EQ(restore.ExitCode(), 0) << restore.Errors();
    for (const fs::path& root : {tree, fs::path(folder / "tree")}) {
        for (const auto& entry : fs::recursive_directory_iterator(root)) {
            struct stat status {};
            ASSERT_EQ(lstat(entry.path().c_str(), &status), 0);
            EXPECT_EQ(status.st_uid, kNobody) << entry.path();
        }
    }
}

}  // namespace
}  // namespace tarvex::testing
