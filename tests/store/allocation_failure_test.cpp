// Memory that runs out at any single allocation: no exception leaves an operation, nothing leaks (the address sanitizer
// watches), files stay whole, and no object is left half changed where it could be saved over its own files.

#include "tests/support/allocation_failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "platform/os/clock.h"
#include "tarvex/tree.h"
#include "testing/temp_dir.h"

namespace tarvex {
namespace {

using ::testing::AnyOf;
using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

// Longer than any text that a string holds without allocating.
CString Long(const char* text) { return CString(text) + " - and so on, so that it does not fit into the object"; }

// Runs `operation` with its n-th allocation failing. True when it made as many.
template <class Operation>
bool RunFailing(int n, Operation&& operation) {
    testing::FailAllocation(n);
    try {
        operation();
    } catch (...) {
        testing::EndAllocationFailure();
        ADD_FAILURE() << "an exception left the operation at allocation " << n;
        return true;
    }
    return testing::EndAllocationFailure();
}

// Runs `trial` once for each allocation of the operation in it, then once without failure. A trial prepares, hands
// its operation to the given function, which says whether an allocation failed, and checks.
using Attempt = std::function<bool(const std::function<void()>&)>;

void ForEachAllocation(const std::function<void(const Attempt&)>& trial) {
    bool failed = true;
    int n = 0;
    while (failed && n < 10000 && !::testing::Test::HasFailure()) {
        failed = false;
        ++n;
        const Attempt attempt = [&](const std::function<void()>& operation) {
            return failed = RunFailing(n, operation);
        };
        SCOPED_TRACE("failing allocation " + std::to_string(n));
        trial(attempt);
    }
    EXPECT_FALSE(failed) << "it never succeeded";
    EXPECT_GT(n, 1) << "nothing was allocated";
}

// ---- the records

template <class Record>
struct RecordTraits;

template <>
struct RecordTraits<CAppSetting> {
    static constexpr const char* kFile = "appset.def";
    static void Change(CAppSetting& setting) {
        setting.rootpath = Long("root");
        setting.allowcreatenewuser = 1;
    }
    static bool Same(const CAppSetting& a, const CAppSetting& b) {
        return a.rootpath == b.rootpath && a.allowcreatenewuser == b.allowcreatenewuser;
    }
};

template <>
struct RecordTraits<CUserSetting> {
    static constexpr const char* kFile = "userset.def";
    static void Change(CUserSetting& setting) {
        setting.loginname = Long("login");
        setting.password = Long("password");
        setting.administrator = 1;
    }
    static bool Same(const CUserSetting& a, const CUserSetting& b) { return a == b; }
};

template <>
struct RecordTraits<CPopProfileSetting> {
    static constexpr const char* kFile = "popprofile.def";
    static void Change(CPopProfileSetting& setting) {
        for (CString CPopProfileSetting::*text :
             {&CPopProfileSetting::nickname, &CPopProfileSetting::address, &CPopProfileSetting::popserver,
              &CPopProfileSetting::poppassword, &CPopProfileSetting::smtppassword}) {
            setting.*text = Long("text");
        }
        setting.timer = 5;
        setting.smtpauth_mode = 2;
    }
    static bool Same(const CPopProfileSetting& a, const CPopProfileSetting& b) { return a == b; }
};

template <>
struct RecordTraits<CForwardAddressSetting> {
    static constexpr const char* kFile = "forwardaddress.def";
    static void Change(CForwardAddressSetting& setting) {
        setting.nickname = Long("nickname");
        setting.address = Long("address");
        setting.compress_words = Long("words");
        setting.status = 0;
    }
    static bool Same(const CForwardAddressSetting& a, const CForwardAddressSetting& b) { return a == b; }
};

template <>
struct RecordTraits<CScheduleSetting> {
    static constexpr const char* kFile = "schedule.def";
    static void Change(CScheduleSetting& schedule) {
        CTerm term;
        term.start = Long("start");
        term.end = Long("end");
        schedule.AddNewTerm(&term);
        schedule.AddNewTerm(&term);
    }
    static bool Same(const CScheduleSetting& a, const CScheduleSetting& b) { return a == b; }
};

template <class Record>
class AllocationFailureInARecord : public ::testing::Test {
protected:
    using Traits = RecordTraits<Record>;

    AllocationFailureInARecord() { Traits::Change(changed_); }

    // A failure may also have hit what the operation can do without.
    void ExpectChangedUnlessFailed(const Record& record, bool failed) const {
        EXPECT_TRUE(Traits::Same(record, changed_) || (failed && Traits::Same(record, defaults_)));
    }

    Record changed_;
    const Record defaults_;
};

using Records =
    ::testing::Types<CAppSetting, CUserSetting, CPopProfileSetting, CForwardAddressSetting, CScheduleSetting>;
TYPED_TEST_SUITE(AllocationFailureInARecord, Records);

TYPED_TEST(AllocationFailureInARecord, SaveLeavesTheOldFileOrTheNewOne) {
    const TempDir dir;
    ASSERT_EQ(this->changed_.Save(dir.String()), 1);
    const std::string new_content = ReadFile(dir / TestFixture::Traits::kFile);
    ForEachAllocation([&](const Attempt& attempt) {
        WriteFile(dir / TestFixture::Traits::kFile, "old\r\n");
        int result = -1;
        CString directory = dir.String();
        const bool failed = attempt([&] { result = this->changed_.Save(std::move(directory)); });
        EXPECT_EQ(result, failed ? 0 : 1);
        EXPECT_EQ(ReadFile(dir / TestFixture::Traits::kFile), result == 1 ? new_content : "old\r\n");
    });
}

TYPED_TEST(AllocationFailureInARecord, LoadTakesTheWholeFileOrNothing) {
    const TempDir dir;
    ASSERT_EQ(this->changed_.Save(dir.String()), 1);
    ForEachAllocation([&](const Attempt& attempt) {
        TypeParam record;
        int result = -1;
        CString directory = dir.String();
        const bool failed = attempt([&] { result = record.Load(std::move(directory)); });
        EXPECT_TRUE(result == 1 || (result == 0 && failed));
        EXPECT_TRUE(TestFixture::Traits::Same(record, result == 1 ? this->changed_ : this->defaults_));
    });
}

TYPED_TEST(AllocationFailureInARecord, AssignmentTakesAllOrNothing) {
    ForEachAllocation([&](const Attempt& attempt) {
        TypeParam record;
        const bool failed = attempt([&] { record = this->changed_; });
        this->ExpectChangedUnlessFailed(record, failed);
    });
}

TYPED_TEST(AllocationFailureInARecord, CopyHasEverythingOrTheDefaults) {
    ForEachAllocation([&](const Attempt& attempt) {
        std::optional<TypeParam> copy;
        const bool failed = attempt([&] { copy.emplace(this->changed_); });
        ASSERT_TRUE(copy);
        this->ExpectChangedUnlessFailed(*copy, failed);
    });
}

// ---- schedule, log, lists and functions

TEST(AllocationFailure, TermIsAddedOrRefused) {
    CTerm term;
    term.start = Long("start");
    ForEachAllocation([&](const Attempt& attempt) {
        CScheduleSetting schedule;
        int index = -2;
        const bool failed = attempt([&] { index = schedule.AddNewTerm(&term); });
        EXPECT_EQ(index, failed ? -1 : 0);
        EXPECT_EQ(schedule.terms.size(), failed ? 0u : 1u);
    });
}

TEST(AllocationFailure, LogKeepsWhatItHas) {
    const TempDir dir;
    ForEachAllocation([&](const Attempt& attempt) {
        WriteFile(dir / "profile.log", Long("old") + "\r\n");
        CProfileLog log;
        log.SetLogMode(1);
        int loaded = -1, added = -1, saved = -1;
        CString directory = dir.String(), directory_again = dir.String(), line = Long("new");
        attempt([&] {
            loaded = log.Load(std::move(directory));
            added = log.AddLine(std::move(line));
            saved = log.Save(std::move(directory_again));
        });
        CString expected;
        if (loaded) expected += Long("old") + "\r\n";
        if (added) expected += Long("new") + "\r\n";
        EXPECT_EQ(log.entries.size(), static_cast<std::size_t>(loaded + added));
        EXPECT_EQ(ReadFile(dir / "profile.log"), saved ? expected : Long("old") + "\r\n");
    });
}

TEST(AllocationFailure, ListOfIdsStaysConsistent) {
    const CString id = Long("id");
    ForEachAllocation([&](const Attempt& attempt) {
        CCheckedMail list;
        int index = -2;
        const bool failed = attempt([&] { index = list.Add(id); });
        EXPECT_EQ(index, failed ? -1 : 0);
        EXPECT_EQ(list.GetSize(), failed ? 0 : 1);
        EXPECT_EQ(list.Contains(id), !failed);
        EXPECT_EQ(list.Add(id), 0);
    });
    ForEachAllocation([&](const Attempt& attempt) {
        CStringArray list;
        int index = -2;
        const bool failed = attempt([&] { index = FindOrAppendUidl(list, id); });
        EXPECT_EQ(index, failed ? -1 : 0);
        EXPECT_EQ(list.size(), failed ? 0u : 1u);
    });
    ForEachAllocation([&](const Attempt& attempt) {
        CStringArray list = {id, "x", id};
        const CStringArray other = {"x"};
        const bool failed = attempt([&] { KeepOnlyUidl(list, other); });
        EXPECT_EQ(list, failed ? CStringArray({id, "x", id}) : other);
    });
}

TEST(AllocationFailure, FunctionsYieldAnEmptyTextOrTheWhole) {
    const CString plain = Long("password");
    const CString stored = EncodePassWord(plain);
    ForEachAllocation([&](const Attempt& attempt) {
        CString result;
        const bool failed = attempt([&] { result = EncodePassWord(plain); });
        EXPECT_EQ(result, failed ? "" : stored);
    });
    ForEachAllocation([&](const Attempt& attempt) {
        CString result;
        const bool failed = attempt([&] { result = DecodePassWord(stored); });
        EXPECT_EQ(result, failed ? "" : plain);
    });
    CRootPath root;
    root.path = Long("root");
    ForEachAllocation([&](const Attempt& attempt) {
        CString result;
        const bool failed = attempt([&] { result = root.GetRootPath(); });
        EXPECT_EQ(result, failed ? "" : root.path);
    });
}

// ---- the tree

class AllocationFailureInATree : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(root_.SetRootPath(dir_.String()), 1);
        user_ = root_.CreateNewUser(Long("login"), Long("password"), 1);
        ASSERT_TRUE(user_);
        profile_ = user_->CreateNewPopProfile(Long("nickname"), Long("address"));
        ASSERT_TRUE(profile_);
        for (int i = 0; i < 2; ++i) {
            CForwardAddress* address = profile_->CreateNewForwardAddress(Long("nickname"), Long("address"));
            ASSERT_TRUE(address);
            RecordTraits<CScheduleSetting>::Change(address->schedule);
            ASSERT_EQ(address->SaveScheduleSetting(), 1);
            address->uidls = {Long("id 1"), Long("id 2")};
            ASSERT_EQ(address->SaveUidlSetting(), 1);
        }
    }

    std::string File(const CString& name) const { return ReadFile(dir_ / name); }

    TempDir dir_;
    CRootPath root_;
    CUser* user_ = nullptr;
    CPopProfile* profile_ = nullptr;
};

TEST_F(AllocationFailureInATree, SetRootPathLoadsTheTreeOrKeepsTheFormerOne) {
    const TempDir former;
    ForEachAllocation([&](const Attempt& attempt) {
        CRootPath root;
        ASSERT_EQ(root.SetRootPath(former.String()), 1);
        CString path = dir_.String();
        int result = -1;
        attempt([&] { result = root.SetRootPath(std::move(path)); });
        EXPECT_EQ(root.path, result == 1 ? dir_.String() : former.String());
        ASSERT_EQ(root.users.size(), result == 1 ? 1u : 0u);
        if (result == 0) return;
        const CUser& user = *root.users[0];
        EXPECT_EQ(user.setting == user_->setting, 1);
        ASSERT_EQ(user.profiles.size(), 1u);
        EXPECT_EQ(user.profiles[0]->setting == profile_->setting, 1);
        ASSERT_EQ(user.profiles[0]->forward_addresses.size(), 2u);
        for (const auto& address : user.profiles[0]->forward_addresses) {
            EXPECT_EQ(address->setting == profile_->forward_addresses[0]->setting, 1);
        }
    });
}

// A running copy writes its settings and its lists over those on disk, so it must never be half a copy.
TEST_F(AllocationFailureInATree, CopyOfAProfileIsWholeOrUntouched) {
    ForEachAllocation([&](const Attempt& attempt) {
        CPopProfile copy;
        const bool failed = attempt([&] { copy = *profile_; });
        if (failed) {
            EXPECT_EQ(copy.path, "");
            EXPECT_EQ(copy.setting == CPopProfileSetting(), 1);
            EXPECT_TRUE(copy.forward_addresses.empty());
            return;
        }
        EXPECT_EQ(copy.path, profile_->path);
        EXPECT_EQ(copy.setting == profile_->setting, 1);
        ASSERT_EQ(copy.forward_addresses.size(), 2u);
        for (std::size_t i = 0; i < 2; ++i) {
            EXPECT_EQ(copy.forward_addresses[i]->schedule == profile_->forward_addresses[i]->schedule, 1);
            EXPECT_EQ(copy.forward_addresses[i]->uidls, profile_->forward_addresses[i]->uidls);
        }
    });
}

TEST_F(AllocationFailureInATree, ObjectThatCouldNotBeLoadedHasNoPathToBeSavedTo) {
    const std::string profile_file = File("user0/from0/popprofile.def");
    const std::string user_file = File("user0/userset.def");
    const std::string address_file = File("user0/from0/forwardto0/forwardaddress.def");
    ForEachAllocation([&](const Attempt& attempt) {
        CUser user;
        CString path = user_->path;
        attempt([&] { user.SetPath(std::move(path)); });
        user.SaveSetting();
    });
    ForEachAllocation([&](const Attempt& attempt) {
        CPopProfile profile;
        CString path = profile_->path;
        attempt([&] { profile.SetPath(std::move(path)); });
        profile.setting.lasttime = profile_->setting.lasttime;
        profile.SaveSetting();
    });
    ForEachAllocation([&](const Attempt& attempt) {
        CForwardAddress address;
        CString path = profile_->forward_addresses[0]->path;
        attempt([&] { address.SetPath(std::move(path)); });
        address.SaveSetting();
    });
    EXPECT_EQ(File("user0/userset.def"), user_file);
    EXPECT_EQ(File("user0/from0/popprofile.def").substr(0, 200), profile_file.substr(0, 200));
    EXPECT_EQ(File("user0/from0/forwardto0/forwardaddress.def"), address_file);
}

TEST_F(AllocationFailureInATree, SeekingAppendsAllChildrenOrNone) {
    ForEachAllocation([&](const Attempt& attempt) {
        CPopProfile profile;
        profile.path = profile_->path;
        const bool failed = attempt([&] { profile.SeekForwardAddress(); });
        // A failure inside the schedule's own loading is that schedule's failure.
        EXPECT_THAT(profile.forward_addresses.size(), AnyOf(failed ? 0u : 2u, 2u));
    });
    ForEachAllocation([&](const Attempt& attempt) {
        CUser user;
        user.path = user_->path;
        const bool failed = attempt([&] { user.SeekPopProfile(); });
        EXPECT_THAT(user.profiles.size(), AnyOf(failed ? 0u : 1u, 1u));
    });
}

TEST_F(AllocationFailureInATree, CreationYieldsAChildOrNull) {
    ForEachAllocation([&](const Attempt& attempt) {
        const std::size_t before = root_.users.size();
        CString login = Long("new"), password = Long("secret");
        CUser* user = nullptr;
        const bool failed = attempt([&] { user = root_.CreateNewUser(std::move(login), std::move(password), 1); });
        EXPECT_EQ(root_.users.size(), before + (user ? 1 : 0));
        EXPECT_TRUE(user || failed);
        if (!user) return;
        EXPECT_EQ(user->setting.loginname, Long("new"));
        EXPECT_EQ(root_.DeleteUser(user), 1);
    });
    EXPECT_EQ(File("user0/userset.def").substr(0, 9), "[version]");
}

TEST_F(AllocationFailureInATree, DeletionTakesTheChildOutOfMemory) {
    ForEachAllocation([&](const Attempt& attempt) {
        CUser* user = root_.CreateNewUser(Long("new"), "", 0);
        ASSERT_TRUE(user);
        int result = -1;
        attempt([&] { result = root_.DeleteUser(user); });
        EXPECT_EQ(result, 1);
        EXPECT_EQ(root_.users.size(), 1u);
    });
}

TEST_F(AllocationFailureInATree, IdsAreSavedWholeOrNotAtAll) {
    CForwardAddress& address = *profile_->forward_addresses[0];
    const std::string old_content = File("user0/from0/forwardto0/uidl.def");
    address.uidls.push_back(Long("id 3"));
    ForEachAllocation([&](const Attempt& attempt) {
        int result = -1;
        const bool failed = attempt([&] { result = address.SaveUidlSetting(); });
        EXPECT_EQ(result, failed ? 0 : 1);
        EXPECT_EQ(File("user0/from0/forwardto0/uidl.def"), old_content + (failed ? "" : Long("id 3") + "\r\n"));
    });
    ForEachAllocation([&](const Attempt& attempt) {
        address.uidls = {"old"};
        int result = -1;
        const bool failed = attempt([&] { result = address.LoadUidlSetting(); });
        EXPECT_EQ(result, failed ? 0 : 1);
        EXPECT_EQ(address.uidls.size(), failed ? 0u : 3u);
    });
}

}  // namespace
}  // namespace tarvex
