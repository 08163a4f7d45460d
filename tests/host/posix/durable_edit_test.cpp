// Edits and power failures: what was synced survives, and nothing else.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/edit/edit.h"
#include "host/settings/keys.h"
#include "host/settings/schedule_text.h"
#include "host/system/command_error.h"
#include "host/tree/names.h"
#include "testing/temp_dir.h"
#include "tests/host/edit_words.h"
#include "tests/host/posix/durable_disk.h"
#include "tests/support/posix/system_calls.h"

namespace tarvex::testing {
namespace {

using ::testing::AnyOf;
using ::testing::StartsWith;

template <class Object>
std::string SettingText(const CRootPath& root, const Object& object) {
    std::string text = host::ShownName(root, object.path) + '\n';
    for (const auto& key : host::Keys<std::decay_t<decltype(object.setting)>>()) {
        if (std::string_view(key.name) == "lasttime") continue;  // trees that are compared may be made a minute apart
        text += std::string(key.name) + '=' + host::ShowValue(object.setting, key) + ' ';
    }
    return text + '\n';
}

// All that a tree is.
std::string TreeText(const CRootPath& root) {
    std::string text;
    for (const CUser* const user : host::AllUsers(root)) text += SettingText(root, *user);
    for (const auto& [user, profile] : host::AllProfiles(root)) text += SettingText(root, *profile);
    for (const auto& [user, profile, forward] : host::AllForwards(root)) {
        text += SettingText(root, *forward);
        for (const auto& term : forward->schedule.terms) text += host::DescribeTerm(*term) + '\n';
        forward->LoadUidlSetting();
        for (const CString& id : forward->uidls) text += id + '\n';
    }
    return text;
}

std::string TreeTextIn(const std::string& folder) {
    CRootPath root;
    EXPECT_EQ(root.SetRootPath(folder), 1);
    return TreeText(root);
}

class DurableEdit : public ::testing::TestWithParam<std::vector<std::string>> {
protected:
    // Makes the edit in a tree of its own. The results of syncs are those of the function.
    void Make(const std::function<bool(int descriptor)>& on_sync) {
        system_calls = {};
        system_calls.on_sync = on_sync;
        exit_code_ = host::Edit(*root_, EditOf(GetParam(), {}, {"id-3", "id-4"}), reply_);
        system_calls = {};
        now_ = TreeTextIn(folder_->String());
        if (exit_code_ == host::kDone) after_ = now_;
    }

    void MakeTree() {
        root_.emplace();
        folder_.emplace();
        root_->SetRootPath(folder_->String());
        Do({"user", "add", "loginname=taro"});
        Do({"profile", "add", "taro", "address=me@example.org", "popserver=pop.example.org"});
        Do({"forward", "add", "me@example.org", "address=phone@example.net"});
        Do({"schedule", "add", "phone@example.net", "mon,wed 9:00-17:00"});
        before_ = TreeTextIn(folder_->String());
    }

    void Do(const std::vector<std::string>& words) {
        ASSERT_EQ(host::Edit(*root_, EditOf(words, {}, {"id-1", "id-2"}), reply_), host::kDone) << reply_.error;
    }

    std::optional<TempDir> folder_;
    std::optional<CRootPath> root_;
    host::Reply reply_;
    int exit_code_ = -1;
    std::string before_;
    std::string now_;
    std::string after_;  // of an edit that succeeded
};

TEST_P(DurableEdit, IsThereAfterAPowerFailureOnceItIsConfirmedAndWholeOrNotAtAllBefore) {
    MakeTree();
    DurableDisk disk(folder_->Path());
    std::vector<std::string> states;
    Make([&](int descriptor) {
        disk.Synced(descriptor);
        const TempDir restored;
        disk.RestoreTo(restored.Path());
        states.push_back(TreeTextIn(restored.String()));
        return true;
    });
    ASSERT_EQ(exit_code_, host::kDone) << reply_.error;
    ASSERT_NE(after_, before_);
    for (const std::string& state : states) EXPECT_THAT(state, AnyOf(before_, after_));
    EXPECT_EQ(states.back(), after_);
}

TEST_P(DurableEdit, IsTheSameInMemoryAndOnDiskWhicheverSyncFailsAndTheReplySaysWhichItIs) {
    MakeTree();
    int syncs = 0;
    Make([&](int) { return ++syncs > 0; });
    int made = 0;
    for (int failing = 1; failing <= syncs; ++failing) {
        SCOPED_TRACE("sync " + std::to_string(failing) + " of " + std::to_string(syncs));
        MakeTree();
        int count = 0;
        Make([&](int) { return ++count != failing; });
        EXPECT_EQ(exit_code_, host::kCannotWrite);
        EXPECT_EQ(TreeText(*root_), now_);
        if (now_ != before_) {
            ++made;
            EXPECT_EQ(now_, after_);
            EXPECT_THAT(reply_.error, StartsWith("the change was made, but may not survive a power failure"));
        } else {
            EXPECT_THAT(reply_.error, StartsWith("cannot "));
        }
    }
    EXPECT_GE(made, 1);
}

INSTANTIATE_TEST_SUITE_P(
    AllKinds, DurableEdit,
    ::testing::Values(std::vector<std::string>{"user", "add", "loginname=hanako", "administrator=on"},
                      std::vector<std::string>{"user", "set", "taro", "status=off"},
                      std::vector<std::string>{"user", "remove", "taro"},
                      std::vector<std::string>{"profile", "add", "taro", "address=you@example.org", "timer=7"},
                      std::vector<std::string>{"profile", "set", "me@example.org", "timer=5", "nickname=work"},
                      std::vector<std::string>{"profile", "remove", "me@example.org"},
                      std::vector<std::string>{"forward", "add", "me@example.org", "address=pager@example.net"},
                      std::vector<std::string>{"forward", "set", "phone@example.net", "textonly=120"},
                      std::vector<std::string>{"forward", "remove", "phone@example.net"},
                      std::vector<std::string>{"schedule", "add", "phone@example.net", "fri 9:00-12:00"},
                      std::vector<std::string>{"schedule", "off", "phone@example.net", "1"},
                      std::vector<std::string>{"schedule", "remove", "phone@example.net", "all"}));

}  // namespace
}  // namespace tarvex::testing
