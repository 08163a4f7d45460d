// What is left of mail that is set aside when the disk fails, the power fails or the process is killed: at each call
// that changes the disk, one after the other.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "host/held/held.h"
#include "host/held/held_sending.h"
#include "loopback/mail_servers.h"
#include "testing/temp_dir.h"
#include "tests/host/posix/durable_disk.h"
#include "tests/host/rules/held_mail.h"
#include "tests/support/posix/system_calls.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using host::HeldRecord;
using host::HeldStore;
using host::HoldOutcome;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// What is done to a store in which `before` messages are held, and what must be there once it has said that it is done.
struct Change {
    const char* name;
    int before;
    bool is_new;  // it sets a message aside
    std::function<bool(const HeldStore&)> make;
    std::function<void(const HeldStore&)> expect_made;
};

HeldRecord WithSecondAddress(char digest) {
    HeldRecord record = SomeRecord("phone", digest);
    record.addresses.push_back(SomeRecord("office").addresses.front());
    return record;
}

bool AddSecondAddress(const HeldStore& store) {
    return store.Hold(HeldText("a"), WithSecondAddress('a'), {}) == HoldOutcome::Held;
}

bool HoldNew(const HeldStore& store) {
    return store.Hold(HeldText("new"), SomeRecord("phone", 'n'), {}) == HoldOutcome::Held;
}

void ExpectNew(const HeldStore& store) {
    const auto all = store.List();
    ASSERT_TRUE(all && !all->empty());
    EXPECT_EQ(all->back().digest, std::string(32, 'n'));
    EXPECT_EQ(all->back().damage, "");
    EXPECT_EQ(store.Text(all->back().id), HeldText("new"));
}

void ExpectTwoAddresses(const HeldStore& store) {
    EXPECT_EQ(store.Find(1).value_or(HeldRecord()).addresses.size(), 2U);
}

const std::vector<Change> kChanges = {
    {"the first message", 0, true, HoldNew, ExpectNew},
    {"a further message", 2, true, HoldNew, ExpectNew},
    {"a further address", 2, false, AddSecondAddress, ExpectTwoAddresses},
    {"a new record", 2, false,
     [](const HeldStore& store) {
         HeldRecord record = WithSecondAddress('a');
         record.id = 1;
         record.bytes = static_cast<std::int64_t>(HeldText("a").size());
         return store.Update(record);
     },
     ExpectTwoAddresses},
    {"a removal", 2, false, [](const HeldStore& store) { return store.Remove(1); },
     [](const HeldStore& store) {
         EXPECT_FALSE(store.Find(1));
         EXPECT_FALSE(store.Text(1));
     }},
};

void HoldSome(const HeldStore& store, int count) {
    for (char letter = 'a'; letter < 'a' + count; ++letter) {
        const HeldRecord record = SomeRecord("phone", letter);
        ASSERT_EQ(store.Hold(HeldText(std::string(1, letter)), record, {}), HoldOutcome::Held);
    }
}

// Every message that counts is whole, and none but that of a removal has gone.
void ExpectWhole(const HeldStore& store, const Change& change) {
    store.CleanUp();
    const auto all = store.List();
    ASSERT_TRUE(all);
    for (const HeldRecord& record : *all) {
        EXPECT_EQ(record.damage, "");
        const std::string subject = record.digest.starts_with('n') ? "new" : record.digest.substr(0, 1);
        EXPECT_EQ(store.Text(record.id), HeldText(subject));
    }
    for (int id = change.name == std::string("a removal") ? 2 : 1; id <= change.before; ++id) {
        EXPECT_TRUE(store.Find(id)) << id;
    }
}

TEST(HeldFaults, AfterAFailureOfTheDiskAMessageIsHeldWholeOrTheStoreHasSaidNo) {
    for (const Change& change : kChanges) {
        for (std::size_t failing = 1;; ++failing) {
            SCOPED_TRACE(std::string(change.name) + ", call " + std::to_string(failing));
            const TempDir profile;
            const HeldStore store(profile.String());
            HoldSome(store, change.before);
            const auto names = change.before == 0 ? std::vector<std::string>() : NamesIn(profile / "held");
            system_calls = {true, {}, {}, {}, 0, nullptr, true, failing};
            const bool made = change.make(store);
            const std::size_t calls = system_calls.calls.size();
            system_calls = {};
            if (made) change.expect_made(store);
            if (!made && change.is_new && fs::exists(profile / "held")) {
                EXPECT_EQ(NamesIn(profile / "held"), names) << "something was left behind";
            }
            ExpectWhole(store, change);
            if (HasFailure()) return;
            if (calls >= failing) continue;
            EXPECT_TRUE(made);
            EXPECT_GE(calls, 4U);
            break;
        }
    }
}

TEST(HeldFaults, AfterAPowerFailureWhatWasConfirmedIsThereAndNothingIsHalf) {
    for (const Change& change : kChanges) {
        SCOPED_TRACE(change.name);
        const TempDir profile;
        const HeldStore store(profile.String());
        HoldSome(store, change.before);
        DurableDisk disk(profile.Path());
        const auto look = [&](const std::function<void(const HeldStore&)>& expect) {
            const TempDir restored;
            disk.RestoreTo(restored.Path());
            ExpectWhole(HeldStore(restored.String()), change);
            if (expect) expect(HeldStore(restored.String()));
        };
        int syncs = 0;
        system_calls.on_sync = [&](int descriptor) {
            disk.Synced(descriptor);
            ++syncs;
            look(nullptr);
            return true;
        };
        const bool made = change.make(store);
        system_calls = {};
        EXPECT_TRUE(made);
        EXPECT_GE(syncs, 2);
        look(change.expect_made);
    }
}

TEST(HeldFaults, AKillLeavesAMessageWholeOrWithoutWhatMakesItCount) {
    for (const Change& change : kChanges) {
        bool survived = false;
        for (std::size_t step = 1; !survived; ++step) {
            SCOPED_TRACE(std::string(change.name) + ", step " + std::to_string(step));
            const TempDir profile;
            const HeldStore store(profile.String());
            HoldSome(store, change.before);
            const pid_t child = fork();
            if (child == 0) {
                system_calls = {true, {}, {}, {}, step, nullptr, true};
                _exit(change.make(store) ? 0 : 1);
            }
            int status = -1;
            waitpid(child, &status, 0);
            survived = WIFEXITED(status);
            ASSERT_TRUE(survived ? WEXITSTATUS(status) == 0 : WIFSIGNALED(status));
            if (survived) change.expect_made(store);
            ExpectWhole(store, change);
            // It is simply done again.
            EXPECT_TRUE(change.make(store));
            change.expect_made(store);
            if (HasFailure()) return;
        }
    }
}

// The server may have taken it: then it is sent twice, and never lost.
TEST(HeldFaults, AKillWhileItIsSentLeavesAMessageHeldOrDelivered) {
    bool survived = false;
    int twice = 0;
    for (std::size_t step = 1; !survived; ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        const TempDir folder;
        const loopback::SinkServer sink;
        CRootPath root;
        ASSERT_EQ(root.SetRootPath(folder.String()), 1);
        CPopProfile& profile = *root.CreateNewUser("taro", "", 0)->CreateNewPopProfile("", "me@example.org");
        profile.setting.smtpserver = "127.0.0.1";
        profile.setting.smtpport = sink.Port();
        profile.CreateNewForwardAddress("phone", "phone@example.net");
        HeldRecord record = SomeRecord("phone");
        record.addresses = {host::RefusedNow(profile, *profile.forward_addresses.front(), CRunStage::Data,
                                             CFailureClass::Transient, "450 later", kNow)};
        const HeldStore store(profile.path);
        ASSERT_EQ(store.Hold(HeldText("one"), record, {}), HoldOutcome::Held);
        const auto send = [&] {
            CPopProfile copy;
            copy = profile;
            host::SendHeld(copy, host::AllHeld(*store.List()), {kNow, {}, nullptr, 0});
        };
        const pid_t child = fork();
        if (child == 0) {
            system_calls = {true, {}, {}, {}, step, nullptr, true};
            send();
            _exit(0);
        }
        int status = -1;
        waitpid(child, &status, 0);
        survived = WIFEXITED(status);
        store.CleanUp();
        const bool held = !store.List()->empty();
        EXPECT_TRUE(held || !sink.Delivered().empty());
        EXPECT_TRUE(!held || store.Text(1) == HeldText("one"));
        send();
        EXPECT_THAT(*store.List(), IsEmpty());
        EXPECT_GE(sink.Delivered().size(), 1U);
        if (sink.Delivered().size() == 2) ++twice;
        ASSERT_LT(step, 50U);
    }
    EXPECT_EQ(twice, 1) << "only between the server's yes and the record";
}

// ---- what strangers may have put there

TEST(HeldStore, IsItsOwnersAlone) {
    const TempDir profile;
    const mode_t old_mask = umask(0);
    const HoldOutcome outcome = HeldStore(profile.String()).Hold(HeldText("one"), SomeRecord("phone"), {});
    umask(old_mask);
    ASSERT_EQ(outcome, HoldOutcome::Held);
    EXPECT_EQ(fs::status(profile / "held").permissions(), fs::perms::owner_all);
    for (const char* const name : {"held/1.mail", "held/1.def"}) {
        EXPECT_EQ(fs::status(profile / name).permissions(), fs::perms::owner_read | fs::perms::owner_write) << name;
    }
}

TEST(HeldStore, FollowsNoLinkAndWaitsForNoPipe) {
    const TempDir profile;
    const TempDir elsewhere;
    const HeldStore store(profile.String());
    HoldSome(store, 2);
    fs::rename(profile / "held/1.def", elsewhere / "1.def");
    fs::create_symlink(elsewhere / "1.def", profile / "held/1.def");
    fs::remove(profile / "held/2.def");
    ASSERT_EQ(mkfifo((profile / "held/2.def").c_str(), 0600), 0);
    fs::remove(profile / "held/2.mail");
    ASSERT_EQ(mkfifo((profile / "held/2.mail").c_str(), 0600), 0);
    store.CleanUp();
    const auto all = *store.List();
    ASSERT_THAT(Ids(all), ElementsAre(1, 2));
    for (const HeldRecord& record : all) EXPECT_EQ(record.damage, "its record cannot be read");
    EXPECT_FALSE(store.Text(2));
    EXPECT_TRUE(HoldNew(store));
    EXPECT_TRUE(store.Remove(1));
    EXPECT_TRUE(fs::exists(elsewhere / "1.def"));
}

TEST(HeldStore, AFolderThatIsALinkOrCannotBeReadHoldsNothingAndTakesNothing) {
    const TempDir profile;
    const TempDir elsewhere;
    const HeldStore store(profile.String());
    fs::create_directory_symlink(elsewhere.Path(), profile / "held");
    EXPECT_FALSE(store.List());
    EXPECT_FALSE(HoldNew(store));
    EXPECT_THAT(NamesIn(elsewhere.Path()), IsEmpty());
    fs::remove(profile / "held");
    HoldSome(store, 1);
    const RefusedLook refused(Look::List, "held", EIO);
    EXPECT_FALSE(store.List());
    EXPECT_FALSE(HoldNew(store));
}

}  // namespace
}  // namespace tarvex::testing
