// The account tree: loading, numbering, deleting, copying.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/os/clock.h"
#include "tarvex/tree.h"
#include "testing/temp_dir.h"

namespace tarvex {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::ReadFile;
using testing::TempDir;
using ::testing::UnorderedElementsAre;
using testing::WriteFile;

// A root on disk, and what is written below it.
class Tree : public ::testing::Test {
protected:
    const fs::path& Path() const { return dir_.Path(); }
    std::string Root() const { return dir_.String(); }

    void Put(const fs::path& file, const std::string& content = "") const {
        fs::create_directories((Path() / file).parent_path());
        WriteFile(Path() / file, content);
    }

    bool Exists(const fs::path& file) const { return fs::exists(Path() / file); }

    // Two users; the first with two profiles, the first of which has two addresses.
    void PutSmallTree() const {
        Put("user0/userset.def", "[loginname]\nfirst\n");
        Put("user0/from0/popprofile.def", "[nickname]\nwork\n[timer]\n5\n");
        Put("user0/from0/forwardto0/forwardaddress.def", "[address]\na@example.org\n");
        Put("user0/from0/forwardto0/schedule.def", "[schedule]\nstatus=1\nterm=s:e\n");
        Put("user0/from0/forwardto0/uidl.def", "id-1\nid-2\n");
        Put("user0/from0/forwardto1/forwardaddress.def", "[nickname]\nphone\n");
        Put("user0/from1/popprofile.def", "[nickname]\nhome\n");
        Put("user1/userset.def", "[loginname]\nsecond\n");
    }

    CUser* UserNamed(const CString& login_name) {
        for (const auto& user : root_.users) {
            if (user->setting.loginname == login_name) return user.get();
        }
        return nullptr;
    }

    TempDir dir_;
    CRootPath root_;
};

std::vector<CString> Paths(const auto& children) {
    std::vector<CString> paths;
    for (const auto& child : children) paths.push_back(child->path);
    return paths;
}

CPopProfile* ProfileNamed(CUser& user, const CString& nickname) {
    for (const auto& profile : user.profiles) {
        if (profile->setting.nickname == nickname) return profile.get();
    }
    return nullptr;
}

CForwardAddress* AddressAt(CPopProfile& profile, const CString& path) {
    for (const auto& address : profile.forward_addresses) {
        if (address->path == path) return address.get();
    }
    return nullptr;
}

// ---- loading

TEST_F(Tree, NewRootIsEmpty) {
    EXPECT_EQ(root_.GetRootPath(), "");
    EXPECT_THAT(root_.users, IsEmpty());
    EXPECT_THAT(root_.running_copies, IsEmpty());
}

TEST_F(Tree, ExistingEmptyDirectoryIsARootWithoutUsers) {
    EXPECT_EQ(root_.SetRootPath(Root()), 1);
    EXPECT_EQ(root_.GetRootPath(), Root());
    EXPECT_THAT(root_.users, IsEmpty());
}

TEST_F(Tree, MissingRootIsCreated) {
    EXPECT_EQ(root_.SetRootPath(Root() + "\\data"), 1);
    EXPECT_TRUE(fs::is_directory(Path() / "data"));
    EXPECT_EQ(root_.GetRootPath(), Root() + "\\data");
}

TEST_F(Tree, RootThatCannotBeCreatedLeavesTheFormerTree) {
    PutSmallTree();
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    const CUser* user = root_.users[0].get();
    for (const CString& path : {Root() + "\\no\\two levels", CString(), Root() + "\\user0\\userset.def\\x"}) {
        EXPECT_EQ(root_.SetRootPath(path), 0) << path;
        EXPECT_EQ(root_.GetRootPath(), Root());
        EXPECT_EQ(root_.users.size(), 2u);
        EXPECT_EQ(root_.users[0].get(), user);
    }
    EXPECT_FALSE(Exists("no"));
}

TEST_F(Tree, WholeTreeIsLoaded) {
    PutSmallTree();
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    EXPECT_THAT(Paths(root_.users), UnorderedElementsAre(Root() + "\\user0", Root() + "\\user1"));
    CUser* user = UserNamed("first");
    ASSERT_TRUE(user);
    EXPECT_THAT(Paths(user->profiles), UnorderedElementsAre(user->path + "\\from0", user->path + "\\from1"));
    CPopProfile* profile = ProfileNamed(*user, "work");
    ASSERT_TRUE(profile);
    EXPECT_EQ(profile->setting.timer, 5);
    EXPECT_EQ(profile->worker_thread.load(), nullptr);
    EXPECT_EQ(profile->log.log_mode, 0) << "the log is not loaded with the tree";
    EXPECT_THAT(Paths(profile->forward_addresses),
                UnorderedElementsAre(profile->path + "\\forwardto0", profile->path + "\\forwardto1"));
    CForwardAddress* address = AddressAt(*profile, profile->path + "\\forwardto0");
    EXPECT_EQ(address->setting.address, "a@example.org");
    ASSERT_EQ(address->schedule.terms.size(), 1u);
    EXPECT_EQ(address->schedule.terms[0]->end, "e");
    EXPECT_THAT(address->uidls, IsEmpty()) << "the ids are not loaded with the tree";
    EXPECT_EQ(address->takes_part, 0);
    EXPECT_EQ(AddressAt(*profile, profile->path + "\\forwardto1")->setting.address, "forwardto1");
    EXPECT_THAT(UserNamed("second")->profiles, IsEmpty());
}

TEST_F(Tree, OnlyDirectoriesWithTheirPrefixAndTheirMarkerFileCount) {
    Put("user0/userset.def");
    Put("user1/other.def");               // no marker
    Put("user5");                         // a plain file
    Put("userdata/userset.def");          // any name with the prefix
    Put("user/userset.def");              // the prefix alone
    Put("user007/userset.def");           // leading zeros
    Put("xuser2/userset.def");            // the prefix is not in front
    Put("user4/popprofile.def");          // the marker of another level
    Put("from0/popprofile.def");          // the prefix of another level
    Put("user6/userset.def/inside", "");  // a marker only has to exist
    fs::create_directory(Path() / "user8");
    for (const char* name : {"forwardto", "forward1", "forward"}) {
        Put(fs::path("from0") / name / "forwardaddress.def");
    }
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    EXPECT_THAT(Paths(root_.users), UnorderedElementsAre(Root() + "\\user0", Root() + "\\userdata", Root() + "\\user",
                                                         Root() + "\\user007", Root() + "\\user6"));
    CPopProfile profile;
    profile.SetPath(Root() + "\\from0");
    EXPECT_THAT(Paths(profile.forward_addresses), ElementsAre(Root() + "\\from0\\forwardto"));
}

TEST_F(Tree, ChildrenComeInTheOrderOfTheDirectory) {
    for (const int number : {10, 2, 1, 33, 4}) Put("user" + std::to_string(number) + "/userset.def");
    std::vector<CString> expected;
    for (const auto& entry : fs::directory_iterator(Path())) {
        expected.push_back(Root() + "\\" + entry.path().filename().string());
    }
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    EXPECT_EQ(Paths(root_.users), expected);
}

TEST_F(Tree, SetRootPathReplacesTheTree) {
    PutSmallTree();
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    EXPECT_EQ(root_.users.size(), 2u);
    ASSERT_EQ(root_.SetRootPath(Root() + "\\user1"), 1);
    EXPECT_THAT(root_.users, IsEmpty());
}

TEST_F(Tree, SeekingAppends) {
    PutSmallTree();
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    root_.SeekUser();
    EXPECT_EQ(root_.users.size(), 4u);
    CUser& user = *UserNamed("first");
    EXPECT_EQ(user.SeekPopProfile(), 1);
    EXPECT_EQ(user.profiles.size(), 4u);
    CPopProfile& profile = *ProfileNamed(user, "work");
    EXPECT_EQ(profile.SeekForwardAddress(), 1);
    EXPECT_EQ(profile.forward_addresses.size(), 4u);
    CUser empty;
    empty.path = Root() + "\\missing";
    EXPECT_EQ(empty.SeekPopProfile(), 1);
    EXPECT_THAT(empty.profiles, IsEmpty());
}

TEST_F(Tree, DeleteAllUserLeavesTheDisk) {
    PutSmallTree();
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    root_.DeleteAllUser();
    EXPECT_THAT(root_.users, IsEmpty());
    EXPECT_EQ(root_.GetRootPath(), Root());
    EXPECT_TRUE(Exists("user0/from0/forwardto0/uidl.def"));
}

TEST_F(Tree, DestructorsLeaveTheDisk) {
    PutSmallTree();
    {
        CRootPath other;
        ASSERT_EQ(other.SetRootPath(Root()), 1);
        other.users[0]->setting.loginname = "unsaved";
    }
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    EXPECT_TRUE(UserNamed("first") && UserNamed("second"));
}

TEST_F(Tree, UserSetPathKeepsTheSettingThatTheFileDoesNotGive) {
    Put("user0/userset.def", "[loginname]\nfile\n");
    CUser user;
    user.setting.administrator = 1;
    user.setting.loginname = "memory";
    user.profiles.push_back(std::make_unique<CPopProfile>());
    user.SetPath(Root() + "\\user0");
    EXPECT_EQ(user.path, Root() + "\\user0");
    EXPECT_EQ(user.setting.loginname, "file");
    EXPECT_EQ(user.setting.administrator, 1);
    EXPECT_THAT(user.profiles, IsEmpty());
}

TEST_F(Tree, UserResetDestroysTheProfilesOnly) {
    PutSmallTree();
    CUser user;
    user.SetPath(Root() + "\\user0");
    user.Reset();
    EXPECT_THAT(user.profiles, IsEmpty());
    EXPECT_EQ(user.path, Root() + "\\user0");
    EXPECT_EQ(user.setting.loginname, "first");
}

TEST_F(Tree, ProfileResetRestoresTheDefaults) {
    PutSmallTree();
    CPopProfile profile;
    EXPECT_EQ(profile.path, "");
    profile.SetPath(Root() + "\\user0\\from0");
    EXPECT_EQ(profile.forward_addresses.size(), 2u);
    profile.setting.version = 3;
    profile.worker_thread = reinterpret_cast<Thread*>(&profile);
    const CTime before = CurrentTime();
    profile.Reset();
    EXPECT_EQ(profile.path, "");
    EXPECT_EQ(profile.setting == CPopProfileSetting(), 1);
    EXPECT_EQ(profile.setting.version, 0);
    EXPECT_GE(profile.setting.lasttime, before);
    EXPECT_THAT(profile.forward_addresses, IsEmpty());
    EXPECT_EQ(profile.worker_thread.load(), nullptr);
}

TEST_F(Tree, ProfileSetPathStartsFromTheDefaults) {
    PutSmallTree();
    CPopProfile profile;
    profile.setting.timer = 99;
    profile.setting.popserver = "before";
    profile.SetPath(Root() + "\\user0\\from1");
    EXPECT_EQ(profile.path, Root() + "\\user0\\from1");
    EXPECT_EQ(profile.setting.nickname, "home");
    EXPECT_EQ(profile.setting.timer, 10);
    EXPECT_EQ(profile.setting.popserver, "");
}

TEST_F(Tree, UnreadableSettingsLeaveTheDefaults) {
    fs::create_directories(Path() / "user0" / "from0" / "popprofile.def");
    Put("user0/userset.def");
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    ASSERT_EQ(root_.users[0]->profiles.size(), 1u);
    CPopProfile& profile = *root_.users[0]->profiles[0];
    EXPECT_EQ(profile.setting == CPopProfileSetting(), 1);
    EXPECT_EQ(profile.LoadSetting(), 0);
    EXPECT_EQ(profile.SaveSetting(), 0);
}

TEST_F(Tree, SettingsOfEachLevelAreLoadedAndSavedThroughTheirObjects) {
    PutSmallTree();
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    CUser& user = *UserNamed("first");
    CPopProfile& profile = *ProfileNamed(user, "work");
    CForwardAddress& address = *AddressAt(profile, profile.path + "\\forwardto0");
    user.setting.loginname = "changed user";
    profile.setting.nickname = "changed profile";
    address.setting.nickname = "changed address";
    EXPECT_EQ(user.SaveSetting(), 1);
    EXPECT_EQ(profile.SaveSetting(), 1);
    EXPECT_EQ(address.SaveSetting(), 1);
    user.setting.Initialize();
    profile.setting.Initialize();
    address.setting.Initialize();
    EXPECT_EQ(user.LoadSetting(), 1);
    EXPECT_EQ(profile.LoadSetting(), 1);
    EXPECT_EQ(address.LoadSetting(), 1);
    EXPECT_EQ(user.setting.loginname, "changed user");
    EXPECT_EQ(profile.setting.nickname, "changed profile");
    EXPECT_EQ(address.setting.nickname, "changed address");
    EXPECT_EQ(address.setting.address, "a@example.org");

    address.schedule.terms[0]->end = "changed";
    EXPECT_EQ(address.SaveScheduleSetting(), 1);
    address.schedule.Reset();
    EXPECT_EQ(address.LoadScheduleSetting(), 1);
    EXPECT_EQ(address.LoadScheduleSetting(), 1) << "loading again appends";
    ASSERT_EQ(address.schedule.terms.size(), 2u);
    EXPECT_EQ(address.schedule.terms[1]->end, "changed");
}

TEST_F(Tree, ObjectsWithoutAPathHaveNoSettingsToLoadOrSave) {
    CUser user;
    CPopProfile profile;
    CForwardAddress address;
    EXPECT_EQ(user.SaveSetting(), 0);
    EXPECT_EQ(profile.SaveSetting(), 0);
    EXPECT_EQ(address.SaveSetting(), 0);
    EXPECT_EQ(address.SaveScheduleSetting(), 0);
    const CString missing = Root() + "\\missing";
    user.path = profile.path = address.path = missing;
    EXPECT_EQ(user.LoadSetting(), 0);
    EXPECT_EQ(profile.LoadSetting(), 0);
    EXPECT_EQ(address.LoadSetting(), 0);
    EXPECT_EQ(address.LoadScheduleSetting(), 0);
}

// ---- creation

TEST_F(Tree, CreationMakesTheDirectoryAndTheMarkerFile) {
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    CUser* user = root_.CreateNewUser("name", "abc", 5);
    ASSERT_TRUE(user);
    EXPECT_EQ(root_.users.back().get(), user);
    EXPECT_EQ(user->path, Root() + "\\user0");
    EXPECT_EQ(ReadFile(Path() / "user0" / "userset.def"),
              "[version]\r\n0\r\n\r\n[loginname]\r\nname\r\n\r\n[password]\r\nnp2c\r\n\r\n[status]\r\n1\r\n\r\n"
              "[administrator]\r\n5\r\n\r\n");

    CPopProfile* profile = user->CreateNewPopProfile("nick", "me@example.org");
    ASSERT_TRUE(profile);
    EXPECT_EQ(user->profiles.back().get(), profile);
    EXPECT_EQ(profile->path, user->path + "\\from0");
    EXPECT_EQ(profile->setting.nickname, "nick");
    EXPECT_EQ(profile->setting.address, "me@example.org");
    EXPECT_TRUE(Exists("user0/from0/popprofile.def"));

    CForwardAddress* address = profile->CreateNewForwardAddress("phone", "phone@example.org");
    ASSERT_TRUE(address);
    EXPECT_EQ(profile->forward_addresses.back().get(), address);
    EXPECT_EQ(address->path, profile->path + "\\forwardto0");
    EXPECT_EQ(address->setting.nickname, "phone");
    EXPECT_EQ(address->setting.address, "phone@example.org");
    EXPECT_TRUE(Exists("user0/from0/forwardto0/forwardaddress.def"));

    CRootPath again;
    ASSERT_EQ(again.SetRootPath(Root()), 1);
    ASSERT_EQ(again.users.size(), 1u);
    EXPECT_EQ(again.users[0]->setting == user->setting, 1);
    EXPECT_EQ(again.users[0]->profiles.at(0)->setting == profile->setting, 1);
    EXPECT_EQ(again.users[0]->profiles.at(0)->forward_addresses.at(0)->setting == address->setting, 1);
}

TEST_F(Tree, NumbersCountUpAndGapsAreFilled) {
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(root_.CreateNewUser("u" + std::to_string(i), "", 0)->path, Root() + "\\user" + std::to_string(i));
    }
    EXPECT_EQ(root_.DeleteUser(UserNamed("u3")), 1);
    EXPECT_EQ(root_.DeleteUser(UserNamed("u7")), 1);
    EXPECT_EQ(root_.CreateNewUser("a", "", 0)->path, Root() + "\\user3");
    EXPECT_EQ(root_.CreateNewUser("b", "", 0)->path, Root() + "\\user7");
    EXPECT_EQ(root_.CreateNewUser("c", "", 0)->path, Root() + "\\user12");
}

TEST_F(Tree, DirectoryWithoutItsMarkerFileIsTakenOverAsItIs) {
    Put("user0/userset.def");
    Put("user1/keepsake", "x");
    Put("user1/from0/popprofile.def", "[nickname]\nleft over\n");
    Put("user2/userset.def");
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    EXPECT_EQ(root_.users.size(), 2u);
    CUser* user = root_.CreateNewUser("name", "secret", 1);
    ASSERT_TRUE(user);
    EXPECT_EQ(user->path, Root() + "\\user1");
    EXPECT_EQ(user->setting.loginname, "name");
    EXPECT_EQ(user->setting.password, "secret");
    EXPECT_EQ(user->setting.administrator, 0) << "whoever takes a directory over is no administrator";
    EXPECT_EQ(ReadFile(Path() / "user1" / "keepsake"), "x");
    ASSERT_EQ(user->profiles.size(), 1u);
    EXPECT_EQ(user->profiles[0]->setting.nickname, "left over");
    EXPECT_NE(ReadFile(Path() / "user1" / "userset.def").find("[administrator]\r\n0\r\n"), std::string::npos);
}

TEST_F(Tree, LeftOverScheduleAndIdsBelongToTheNewAddress) {
    Put("from0/popprofile.def");
    Put("from0/forwardto0/schedule.def", "[schedule]\nstatus=1\nterm=s:e\n");
    Put("from0/forwardto0/uidl.def", "id\n");
    CPopProfile profile;
    profile.SetPath(Root() + "\\from0");
    EXPECT_THAT(profile.forward_addresses, IsEmpty());
    CForwardAddress* address = profile.CreateNewForwardAddress("n", "a");
    ASSERT_TRUE(address);
    EXPECT_EQ(address->path, Root() + "\\from0\\forwardto0");
    EXPECT_EQ(address->schedule.terms.size(), 1u);
    EXPECT_EQ(address->LoadUidlSetting(), 1);
    EXPECT_THAT(address->uidls, ElementsAre("id"));
}

TEST_F(Tree, PlainFileIsTakenOverAndTheFailingSaveGoesUnnoticed) {
    Put("user0", "a file");
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    EXPECT_THAT(root_.users, IsEmpty());
    CUser* user = root_.CreateNewUser("name", "secret", 1);
    ASSERT_TRUE(user);
    EXPECT_EQ(user->path, Root() + "\\user0");
    EXPECT_EQ(user->setting.loginname, "name");
    EXPECT_EQ(user->setting.administrator, 0);
    EXPECT_EQ(user->SaveSetting(), 0);
    EXPECT_EQ(root_.users.size(), 1u);
    EXPECT_EQ(ReadFile(Path() / "user0"), "a file");
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    EXPECT_THAT(root_.users, IsEmpty());
}

TEST_F(Tree, DirectoryThatCannotBeCreatedYieldsNull) {
    ASSERT_EQ(root_.SetRootPath(Root() + "\\data"), 1);
    CUser* user = root_.CreateNewUser("name", "", 0);
    CPopProfile* profile = user->CreateNewPopProfile("n", "a");
    fs::remove_all(Path() / "data");
    EXPECT_EQ(profile->CreateNewForwardAddress("n", "a"), nullptr);
    EXPECT_EQ(user->CreateNewPopProfile("n", "a"), nullptr);
    EXPECT_EQ(root_.CreateNewUser("name", "", 0), nullptr);
    EXPECT_THAT(profile->forward_addresses, IsEmpty());
    EXPECT_EQ(user->profiles.size(), 1u);
    EXPECT_EQ(root_.users.size(), 1u);
}

// ---- deletion

TEST_F(Tree, DeletionTakesTheDirectoryAndClosesTheGap) {
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    std::vector<CUser*> users;
    for (const char* name : {"a", "b", "c"}) users.push_back(root_.CreateNewUser(name, "", 0));
    ASSERT_TRUE(users[1]->CreateNewPopProfile("n", "a")->CreateNewForwardAddress("n", "a"));
    EXPECT_EQ(root_.DeleteUser(users[1]), 1);
    EXPECT_THAT(Paths(root_.users), ElementsAre(Root() + "\\user0", Root() + "\\user2"));
    EXPECT_FALSE(Exists("user1"));
    EXPECT_TRUE(Exists("user0/userset.def"));
    EXPECT_TRUE(Exists("user2/userset.def"));
    EXPECT_EQ(root_.CreateNewUser("d", "", 0)->path, Root() + "\\user1");
    EXPECT_EQ(root_.DeleteUser(users[0]), 1);
    EXPECT_THAT(Paths(root_.users), ElementsAre(Root() + "\\user2", Root() + "\\user1"));
}

TEST_F(Tree, DeletionWorksOnEveryLevel) {
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    CUser* user = root_.CreateNewUser("a", "", 0);
    CPopProfile* profile = user->CreateNewPopProfile("n", "a");
    CForwardAddress* address = profile->CreateNewForwardAddress("n", "a");
    EXPECT_EQ(profile->DeleteForwardAddress(address), 1);
    EXPECT_THAT(profile->forward_addresses, IsEmpty());
    EXPECT_FALSE(Exists("user0/from0/forwardto0"));
    EXPECT_EQ(user->DeletePopProfile(profile), 1);
    EXPECT_THAT(user->profiles, IsEmpty());
    EXPECT_FALSE(Exists("user0/from0"));
    EXPECT_TRUE(Exists("user0"));
}

TEST_F(Tree, WhatIsNoChildIsNotDeleted) {
    PutSmallTree();
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    CUser stranger;
    stranger.SetPath(Root() + "\\user0");
    EXPECT_EQ(root_.DeleteUser(&stranger), 0);
    EXPECT_EQ(root_.DeleteUser(nullptr), 0);
    CUser& user = *UserNamed("first");
    EXPECT_EQ(user.DeletePopProfile(stranger.profiles[0].get()), 0);
    EXPECT_EQ(user.DeletePopProfile(nullptr), 0);
    CPopProfile& profile = *ProfileNamed(user, "work");
    EXPECT_EQ(profile.DeleteForwardAddress(nullptr), 0);
    EXPECT_EQ(root_.users.size(), 2u);
    EXPECT_EQ(user.profiles.size(), 2u);
    EXPECT_EQ(profile.forward_addresses.size(), 2u);
    EXPECT_TRUE(Exists("user0/from0/forwardto0/uidl.def"));
}

TEST_F(Tree, DeletionTakesTheChildOutOfMemoryEvenWhenTheDirectoryStays) {
    Put("user0", "a file");
    ASSERT_EQ(root_.SetRootPath(Root()), 1);
    CUser* user = root_.CreateNewUser("name", "", 0);
    EXPECT_EQ(root_.DeleteUser(user), 1);
    EXPECT_THAT(root_.users, IsEmpty());
    EXPECT_EQ(ReadFile(Path() / "user0"), "a file");
}

// ---- passwords in clear

TEST_F(Tree, LoadingRewritesAPasswordInClear) {
    Put("from0/popprofile.def", "[popserver]\npop\n[poppassword]\npa$$word!\n; comment\n");
    CPopProfile profile;
    profile.SetPath(Root() + "\\from0");
    EXPECT_EQ(profile.setting.poppassword, "pa$$word!");
    EXPECT_THAT(ReadFile(Path() / "from0" / "popprofile.def"),
                ::testing::HasSubstr("[poppassword]\r\n" + EncodePassWord("pa$$word!") + "\r\n"));
    EXPECT_EQ(profile.LoadSetting(), 1);
    EXPECT_EQ(profile.setting.poppassword, "pa$$word!");
}

TEST_F(Tree, LoadingDoesNotRewriteTheSettings) {
    const std::string content = "[popserver]\npop\n[poppassword]\nnp2c\n; comment\n";
    Put("from0/popprofile.def", content);
    CPopProfile profile;
    profile.SetPath(Root() + "\\from0");
    EXPECT_EQ(profile.LoadSetting(), 1);
    EXPECT_EQ(profile.setting.poppassword, "abc");
    EXPECT_EQ(ReadFile(Path() / "from0" / "popprofile.def"), content);
}

// ---- assignment

TEST_F(Tree, AssignedProfileIsADeepCopyWithItsLastTimeButWithoutItsVersion) {
    PutSmallTree();
    CPopProfile source;
    source.SetPath(Root() + "\\user0\\from0");
    source.setting.version = 5;
    source.setting.lasttime = 1234567890;
    source.log.SetLogMode(1);
    source.log.AddLine("x");
    source.worker_thread = reinterpret_cast<Thread*>(&source);

    CPopProfile target;
    target.setting.version = 8;
    target.log.SetLogMode(1);
    target.log.AddLine("own");
    target.worker_thread = reinterpret_cast<Thread*>(&target);
    target.forward_addresses.push_back(std::make_unique<CForwardAddress>());
    target = source;
    EXPECT_EQ(target.path, source.path);
    EXPECT_EQ(target.setting == source.setting, 1);
    EXPECT_EQ(target.setting.lasttime, 1234567890);
    EXPECT_EQ(target.setting.version, 8);
    EXPECT_EQ(target.worker_thread.load(), reinterpret_cast<Thread*>(&target));
    EXPECT_THAT(target.log.entries, ElementsAre("own"));
    source.worker_thread = target.worker_thread = nullptr;
    ASSERT_EQ(target.forward_addresses.size(), source.forward_addresses.size());
    for (std::size_t i = 0; i < source.forward_addresses.size(); ++i) {
        const CForwardAddress& copy = *target.forward_addresses[i];
        const CForwardAddress& original = *source.forward_addresses[i];
        EXPECT_NE(&copy, &original);
        EXPECT_EQ(copy.path, original.path);
        EXPECT_EQ(copy.setting == original.setting, 1);
        EXPECT_EQ(copy.schedule == original.schedule, 1);
    }
}

TEST_F(Tree, AssignedProfileHasTheIdsThatAreOnDisk) {
    PutSmallTree();
    CPopProfile source;
    source.SetPath(Root() + "\\user0\\from0");
    for (const auto& address : source.forward_addresses) address->uidls = {"unsaved"};
    CPopProfile copy;
    copy = source;
    EXPECT_THAT(AddressAt(copy, source.path + "\\forwardto0")->uidls, ElementsAre("id-1", "id-2"));
    EXPECT_THAT(AddressAt(copy, source.path + "\\forwardto1")->uidls, IsEmpty());
}

TEST_F(Tree, AssignedAddressKeepsItsOwnTakesPartFlagAndSpareInteger) {
    PutSmallTree();
    CForwardAddress source;
    source.SetPath(Root() + "\\user0\\from0\\forwardto0");
    source.takes_part = 1;
    source.setting.spare = 1;
    CForwardAddress target;
    target.takes_part = 2;
    target.uidls = {"old"};
    target = source;
    EXPECT_EQ(target.path, source.path);
    EXPECT_EQ(target.takes_part, 2);
    EXPECT_EQ(target.setting.spare, 0);
    EXPECT_EQ(target.setting == source.setting, 1);
    EXPECT_EQ(target.schedule == source.schedule, 1);
    EXPECT_THAT(target.uidls, ElementsAre("id-1", "id-2"));
    source.path = Root() + "\\user0\\from0\\forwardto1";
    target = source;
    EXPECT_THAT(target.uidls, IsEmpty()) << "it has no file";
}

TEST_F(Tree, AssignmentToItselfChangesNothing) {
    PutSmallTree();
    CPopProfile profile;
    profile.SetPath(Root() + "\\user0\\from0");
    const CForwardAddress* address = profile.forward_addresses[0].get();
    profile.forward_addresses[0]->uidls = {"unsaved"};
    profile = static_cast<const CPopProfile&>(profile);
    ASSERT_EQ(profile.forward_addresses.size(), 2u);
    EXPECT_EQ(profile.forward_addresses[0].get(), address);
    *profile.forward_addresses[0] = static_cast<const CForwardAddress&>(*address);
    EXPECT_THAT(profile.forward_addresses[0]->uidls, ElementsAre("unsaved"));
    EXPECT_EQ(profile.path, Root() + "\\user0\\from0");
}

TEST_F(Tree, AssigningAnEmptyProfileEmptiesTheTarget) {
    PutSmallTree();
    CPopProfile target;
    target.SetPath(Root() + "\\user0\\from0");
    target = CPopProfile();
    EXPECT_EQ(target.path, "");
    EXPECT_THAT(target.forward_addresses, IsEmpty());
    EXPECT_EQ(target.setting == CPopProfileSetting(), 1);
}

// Nothing is reset before: a second time the terms stand twice, and what the file does not give stays.
TEST_F(Tree, AddressSetPathLoadsSettingAndScheduleButNotTheIds) {
    PutSmallTree();
    CForwardAddress address;
    address.setting.nickname = "kept";
    address.uidls = {"kept"};
    address.SetPath(Root() + "\\user0\\from0\\forwardto0");
    EXPECT_EQ(address.path, Root() + "\\user0\\from0\\forwardto0");
    EXPECT_EQ(address.setting.address, "a@example.org");
    EXPECT_EQ(address.schedule.terms.size(), 1u);
    EXPECT_THAT(address.uidls, ElementsAre("kept"));
    address.SetPath(Root() + "\\user0\\from0\\forwardto0");
    EXPECT_EQ(address.schedule.terms.size(), 2u);
    EXPECT_EQ(address.setting.nickname, "kept");
}

}  // namespace
}  // namespace tarvex
