// Edits of a process that is killed: at each call that changes the disk, one after the other.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "host/edit/edit.h"
#include "host/edit/root_lock.h"
#include "host/system/command_error.h"
#include "testing/temp_dir.h"
#include "tests/host/edit_words.h"
#include "tests/support/posix/system_calls.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AnyOf;
using ::testing::ElementsAre;

const std::vector<std::string> kIds = {"id-1", "id-2"};
constexpr const char* kNewProfile = "box@example.org";

class KilledEdit : public ::testing::Test {
protected:
    // Every state that the edit can leave behind, and the last one: that of an edit that nobody killed.
    void KillAtEachStep(const host::EditRequest& request, const std::function<void(const CRootPath&)>& expect) {
        for (std::size_t step = 1;; ++step) {
            SCOPED_TRACE("step " + std::to_string(step));
            const TempDir folder;
            MakeTree(folder);
            const bool survived = Survives(folder, request, step);
            CRootPath root;
            ASSERT_EQ(root.SetRootPath(folder.String()), 1);
            expect(root);
            ExpectSwept(folder);
            if (HasFailure()) return;
            if (survived) {
                EXPECT_GE(step, 3U);
                return;
            }
        }
    }

    static bool IsThere(const CRootPath& root, const CString& address) {
        return std::ranges::any_of(root.users, [&](const auto& user) {
            return std::ranges::any_of(user->profiles, [&](const auto& profile) {
                return profile->setting.address == address ||
                       std::ranges::any_of(profile->forward_addresses,
                                           [&](const auto& forward) { return forward->setting.address == address; });
            });
        });
    }

    // Each address that counts has its list.
    static void ExpectLists(const CRootPath& root) {
        for (const auto& user : root.users) {
            for (const auto& profile : user->profiles) {
                for (const auto& forward : profile->forward_addresses) {
                    EXPECT_EQ(forward->LoadUidlSetting(), 1) << forward->path;
                    EXPECT_EQ(forward->uidls, kIds) << forward->path;
                    EXPECT_EQ(forward->setting.textonly, 120) << forward->path;
                }
            }
        }
    }

private:
    static void Make(CRootPath& root, const host::EditRequest& request) {
        host::Reply reply;
        ASSERT_EQ(host::Edit(root, request, reply), host::kDone) << reply.error;
    }

    static void MakeTree(const TempDir& folder) {
        CRootPath root;
        ASSERT_EQ(root.SetRootPath(folder.String()), 1);
        Make(root, EditOf({"user", "add", "loginname=taro"}));
        Make(root, EditOf({"profile", "add", "taro", "address=me@example.org", "popserver=pop.example.org"}));
        for (const char* const address : {"address=phone@example.net", "address=office@example.net"}) {
            Make(root, EditOf({"forward", "add", "me@example.org", address, "textonly=120"}, {}, kIds));
        }
    }

    static bool Survives(const TempDir& folder, const host::EditRequest& request, std::size_t step) {
        const pid_t child = fork();
        if (child == 0) {
            CRootPath root;
            root.SetRootPath(folder.String());
            host::Reply reply;
            system_calls = {true, {}, {}, {}, step};
            _exit(host::Edit(root, request, reply));
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status) || (WIFEXITED(status) && WEXITSTATUS(status) == host::kDone));
        return WIFEXITED(status);
    }

    // Whoever takes the root next leaves nothing in it but its users, and its lock.
    static void ExpectSwept(const TempDir& folder) {
        ASSERT_TRUE(host::RootLock::Try(folder.String(), "test"));
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder.Path())) names.push_back(entry.path().filename());
        std::ranges::sort(names);
        EXPECT_THAT(names, AnyOf(ElementsAre(".tarvex.lock", "user0"), ElementsAre(".tarvex.lock")));
    }
};

TEST_F(KilledEdit, ANewAddressThatCountsHasItsListAndItsSettings) {
    KillAtEachStep(EditOf({"forward", "add", "me@example.org", "address=pager@example.net", "textonly=120"}, {}, kIds),
                   ExpectLists);
}

TEST_F(KilledEdit, ANewProfileThatCountsHasItsSettings) {
    KillAtEachStep(EditOf({"profile", "add", "taro", std::string("address=") + kNewProfile, "popserver=pop.example.org",
                           "status=off", "--again"}),
                   [](const CRootPath& root) {
                       for (const auto& profile : root.users.front()->profiles) {
                           EXPECT_EQ(profile->setting.popserver, "pop.example.org");
                           EXPECT_EQ(profile->setting.status, profile->setting.address == kNewProfile ? 0 : 1);
                       }
                       ExpectLists(root);
                   });
}

TEST_F(KilledEdit, ARemovedAddressIsThereWithItsListOrNotAtAll) {
    KillAtEachStep(EditOf({"forward", "remove", "phone@example.net"}), [](const CRootPath& root) {
        ExpectLists(root);
        EXPECT_TRUE(IsThere(root, "office@example.net"));
    });
}

// What is left of a profile would belong to the next one that gets its directory.
TEST_F(KilledEdit, ARemovedProfileIsThereWithAllItsAddressesOrNotAtAll) {
    for (const auto& words :
         {std::vector<std::string>{"profile", "remove", "me@example.org"}, {"user", "remove", "taro"}}) {
        SCOPED_TRACE(words.front());
        KillAtEachStep(EditOf(words), [&](const CRootPath& root) {
            ExpectLists(root);
            EXPECT_EQ(IsThere(root, "phone@example.net"), IsThere(root, "me@example.org"));
            EXPECT_EQ(IsThere(root, "office@example.net"), IsThere(root, "me@example.org"));
            EXPECT_FALSE(fs::exists(root.path + "/user0/from0") && !IsThere(root, "me@example.org"));
        });
    }
}

}  // namespace
}  // namespace tarvex::testing
