// What loading says of files and directories that could not be read. The calls are made to fail in the test program, so
// that all of this holds for the superuser as well, whom no mode keeps out.

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "tarvex/tree.h"
#include "testing/temp_dir.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/posix/system_calls.h"

namespace tarvex {
namespace {

using testing::Look;
using testing::RefusedLook;
using testing::TempDir;
using testing::WriteFile;

// A user with a profile with two addresses.
class Loaded : public ::testing::Test {
protected:
    Loaded() {
        WriteAll("user0/userset.def", "[loginname]\nlogin\n");
        WriteAll("user0/from0/popprofile.def", "[popserver]\npop.example\n");
        for (const std::string address : {"user0/from0/forwardto0", "user0/from0/forwardto1"}) {
            WriteAll(address + "/forwardaddress.def", "[address]\na@example\n");
            WriteAll(address + "/schedule.def", "[schedule]\nstatus=1\n");
            WriteAll(address + "/uidl.def", "id\n");
        }
    }

    void WriteAll(const std::string& file, const std::string& content) const {
        std::filesystem::create_directories((dir_.Path() / file).parent_path());
        WriteFile(dir_.Path() / file, content);
    }

    void Load() { ASSERT_EQ(root_.SetRootPath(dir_.String()), 1); }
    CPopProfile& Profile() { return *root_.users.at(0)->profiles.at(0); }
    CForwardAddress& Address(const std::string& name) {
        for (const auto& address : Profile().forward_addresses) {
            if (address->path.ends_with(name)) return *address;
        }
        throw std::out_of_range(name);
    }

    // What is not whole, as "path: reason", a line each.
    std::string Unread() {
        std::string text;
        const auto add = [&](const CLoaded& loaded) {
            if (!loaded.whole) text += loaded.path.substr(dir_.String().size()) + ": " + loaded.reason + "\n";
        };
        add(root_.users_loaded);
        for (const auto& user : root_.users) {
            add(user->setting_loaded);
            add(user->profiles_loaded);
            for (const auto& profile : user->profiles) {
                add(profile->setting_loaded);
                add(profile->addresses_loaded);
                for (const auto& address : profile->forward_addresses) {
                    add(address->setting_loaded);
                    add(address->schedule_loaded);
                    add(address->uidls_loaded);
                }
            }
        }
        return text;
    }

    TempDir dir_;
    CRootPath root_;
};

struct RefusedFile {
    Look look;
    const char* path_end;
    const char* path;  // in the tree, of what was not read
};

std::string Line(const RefusedFile& refused, int error) {
    return std::string(refused.path) + ": " + std::generic_category().message(error) + "\n";
}

TEST_F(Loaded, IsWholeWhenAllWasReadAndWhenFilesAreMissing) {
    Load();
    EXPECT_EQ(Unread(), "");
    std::filesystem::remove(dir_.Path() / "user0/from0/forwardto0/schedule.def");
    std::filesystem::create_symlink("nowhere", dir_.Path() / "user1");
    WriteAll("user0/from0/forwardto2/schedule.def", "");  // without its marker file it is no address
    Load();
    Address("forwardto1").LoadUidlSetting();
    EXPECT_EQ(Unread(), "");
}

TEST_F(Loaded, FileThatCannotBeReadIsNamedWithTheSystemsWordsAndTheRestIsLoaded) {
    const RefusedFile cases[] = {
        {Look::Open, "user0/userset.def", "\\user0\\userset.def"},
        {Look::Read, "user0/userset.def", "\\user0\\userset.def"},
        {Look::Open, "from0/popprofile.def", "\\user0\\from0\\popprofile.def"},
        {Look::Read, "from0/popprofile.def", "\\user0\\from0\\popprofile.def"},
        {Look::Open, "forwardto1/forwardaddress.def", "\\user0\\from0\\forwardto1\\forwardaddress.def"},
        {Look::Read, "forwardto1/forwardaddress.def", "\\user0\\from0\\forwardto1\\forwardaddress.def"},
        {Look::Open, "forwardto1/schedule.def", "\\user0\\from0\\forwardto1\\schedule.def"},
        {Look::Read, "forwardto1/schedule.def", "\\user0\\from0\\forwardto1\\schedule.def"},
    };
    for (const RefusedFile& c : cases) {
        for (const int error : {EACCES, EIO, ESTALE, EPERM}) {
            const RefusedLook refused(c.look, c.path_end, error);
            Load();
            EXPECT_EQ(Unread(), Line(c, error));
            EXPECT_EQ(Profile().forward_addresses.size(), 2U);
        }
    }
}

TEST_F(Loaded, DirectoryThatCannotBeLookedIntoIsNoChildAndItsParentTells) {
    const RefusedFile cases[] = {
        {Look::Open, "user0/from0/", "\\user0\\from0"},
        {Look::List, "user0/from0/", "\\user0\\from0"},
        {Look::Open, "user0/", "\\user0"},
        {Look::List, "user0/", "\\user0"},
        {Look::Stat, "forwardto1/forwardaddress.def", "\\user0\\from0\\forwardto1"},
        {Look::Stat, "from0/popprofile.def", "\\user0\\from0"},
        {Look::Stat, "user0/userset.def", "\\user0"},
    };
    for (const RefusedFile& c : cases) {
        for (const int error : {EACCES, EIO, ESTALE}) {
            const RefusedLook refused(c.look, c.path_end, error);
            Load();
            EXPECT_EQ(Unread(), Line(c, error));
        }
    }
    const RefusedLook refused(Look::Stat, "forwardto1/forwardaddress.def", EACCES);
    Load();
    ASSERT_EQ(Profile().forward_addresses.size(), 1U);
    EXPECT_TRUE(Profile().forward_addresses[0]->path.ends_with("forwardto0"));
}

TEST_F(Loaded, LinkWhoseTargetCannotBeSeenMayBeAChild) {
    std::filesystem::create_symlink(dir_.Path() / "user0", dir_.Path() / "user1");
    const RefusedLook refused(Look::Stat, "user1", ESTALE);
    Load();
    EXPECT_EQ(Unread(), Line({Look::Stat, "", "\\user1"}, ESTALE));
}

TEST_F(Loaded, SettingsFileWithoutAByteWasCutWhileAListMayBeEmpty) {
    for (const std::string file :
         {"user0/userset.def", "user0/from0/popprofile.def", "user0/from0/forwardto1/forwardaddress.def",
          "user0/from0/forwardto1/schedule.def"}) {
        SCOPED_TRACE(file);
        const std::string content = testing::ReadFile(dir_.Path() / file);
        WriteAll(file, "");
        Load();
        std::string path = "\\" + file;
        std::ranges::replace(path, '/', '\\');
        EXPECT_EQ(Unread(), path + ": it is empty\n");
        WriteAll(file, "; nothing but this\n");
        Load();
        EXPECT_EQ(Unread(), "");
        WriteAll(file, content);
    }
    WriteAll("user0/from0/forwardto1/uidl.def", "");
    EXPECT_EQ(Address("forwardto1").LoadUidlSetting(), 1);
    EXPECT_EQ(Unread(), "");
}

TEST_F(Loaded, IsOfTheLastReading) {
    const std::string file = "forwardto1/forwardaddress.def";
    const std::string schedule = "forwardto1/schedule.def";
    Load();
    CForwardAddress& address = Address("forwardto1");
    {
        const RefusedLook refused(Look::Open, file, EIO);
        EXPECT_EQ(address.LoadSetting(), 0);
    }
    {
        const RefusedLook refused(Look::Read, schedule, EIO);
        EXPECT_EQ(address.LoadScheduleSetting(), 0);
    }
    {
        const RefusedLook refused(Look::Open, "from0/popprofile.def", EIO);
        EXPECT_EQ(Profile().LoadSetting(), 0);
        const RefusedLook also(Look::Open, "user0/userset.def", EIO);
        EXPECT_EQ(root_.users[0]->LoadSetting(), 0);
    }
    EXPECT_FALSE(address.setting_loaded.whole || address.schedule_loaded.whole || Profile().setting_loaded.whole ||
                 root_.users[0]->setting_loaded.whole);
    address.LoadSetting();
    address.LoadScheduleSetting();
    Profile().LoadSetting();
    root_.users[0]->LoadSetting();
    EXPECT_EQ(Unread(), "");
}

TEST_F(Loaded, ListOfIdsTellsAndSoDoesACopy) {
    Load();
    CPopProfile copy;
    {
        const RefusedLook refused(Look::Read, "forwardto1/uidl.def", EIO);
        EXPECT_EQ(Address("forwardto1").LoadUidlSetting(), 0);
        copy = Profile();
    }
    EXPECT_EQ(Unread(), Line({Look::Read, "", "\\user0\\from0\\forwardto1\\uidl.def"}, EIO));
    const auto is_whole = [](const auto& address) { return address->uidls_loaded.whole; };
    EXPECT_EQ(std::ranges::count_if(copy.forward_addresses, is_whole), 1);

    Profile().setting_loaded.whole = Profile().addresses_loaded.whole = false;
    Address("forwardto0").setting_loaded.whole = Address("forwardto0").schedule_loaded.whole = false;
    copy = Profile();
    EXPECT_FALSE(copy.setting_loaded.whole || copy.addresses_loaded.whole);
    EXPECT_EQ(std::ranges::count_if(copy.forward_addresses, is_whole), 2) << "it was read for the copy";
    const auto is_set_whole = [](const auto& address) {
        return address->setting_loaded.whole && address->schedule_loaded.whole;
    };
    EXPECT_EQ(std::ranges::count_if(copy.forward_addresses, is_set_whole), 1);
}

TEST_F(Loaded, MemoryThatRunsOutIsNoMissingFile) {
    Load();
    const auto starved = [](auto operation) {
        testing::FailAllocation(1);
        operation();
        testing::EndAllocationFailure();
    };
    CForwardAddress& address = Address("forwardto1");
    starved([&] { address.LoadSetting(); });
    starved([&] { address.LoadScheduleSetting(); });
    starved([&] { address.LoadUidlSetting(); });
    starved([&] { Profile().LoadSetting(); });
    starved([&] { Profile().SeekForwardAddress(); });
    starved([&] { root_.users[0]->LoadSetting(); });
    starved([&] { root_.users[0]->SeekPopProfile(); });
    starved([&] { root_.SeekUser(); });
    for (const CLoaded* loaded :
         {&address.setting_loaded, &address.schedule_loaded, &address.uidls_loaded, &Profile().setting_loaded,
          &Profile().addresses_loaded, &root_.users[0]->setting_loaded, &root_.users[0]->profiles_loaded,
          &root_.users_loaded}) {
        EXPECT_FALSE(loaded->whole);
        EXPECT_EQ(loaded->path + loaded->reason, "out of memory");
    }
    const CString path = Profile().path;
    const auto without_path = [&](auto& object, const CLoaded& loaded) {
        CString moved = path;
        starved([&] { object.SetPath(std::move(moved)); });
        EXPECT_EQ(object.path, "");
        EXPECT_EQ(loaded.reason, "out of memory");
    };
    CUser user;
    CPopProfile profile;
    CForwardAddress other;
    without_path(user, user.profiles_loaded);
    without_path(profile, profile.addresses_loaded);
    without_path(other, other.schedule_loaded);
}

// Open files that have run out are memory that has.
TEST_F(Loaded, NoDescriptorLeftIsNoMissingFile) {
    Load();
    const RefusedLook refused(Look::Open, "from0/popprofile.def", EMFILE);
    EXPECT_EQ(Profile().LoadSetting(), 0);
    EXPECT_EQ(Profile().setting_loaded.reason, "out of memory");
}

TEST_F(Loaded, NewChildTakesNoDirectoryThatCannotBeLookedInto) {
    Load();
    std::filesystem::create_symlink("nowhere", dir_.Path() / "user1");
    std::filesystem::create_directory(dir_.Path() / "user2");
    const RefusedLook refused(Look::Stat, "user2/userset.def", EACCES);
    const CUser* user = root_.CreateNewUser("new", "", 1);
    ASSERT_TRUE(user);
    EXPECT_EQ(user->path, dir_.String() + "\\user3");
    EXPECT_EQ(user->setting.administrator, 1);
    EXPECT_TRUE(std::filesystem::is_symlink(dir_.Path() / "user1"));
    const CUser* another = root_.CreateNewUser("another", "", 1);
    ASSERT_TRUE(another);
    EXPECT_EQ(another->path, dir_.String() + "\\user4");
    Load();
    EXPECT_EQ(root_.users.size(), 3U);
}

}  // namespace
}  // namespace tarvex
