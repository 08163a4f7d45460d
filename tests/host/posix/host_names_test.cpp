// How things in a tree are named on the command line.

#include "host/tree/names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "host/system/command_error.h"
#include "testing/temp_dir.h"

namespace tarvex::testing {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StrEq;

// Two users. user0 (taro) has a profile "work" with addresses "phone" and one without a nickname; user1 (hana) has two
// profiles, of which one has an address "phone", too.
class HostNames : public ::testing::Test {
protected:
    HostNames() {
        root_.SetRootPath(folder_.String());
        CUser& taro = *root_.CreateNewUser("taro", "", 0);
        CPopProfile& work = *taro.CreateNewPopProfile("work", "taro@example.org");
        work.CreateNewForwardAddress("phone", "taro@phone.example");
        work.CreateNewForwardAddress("", "Taro <pager@text.example>");
        CUser& hana = *root_.CreateNewUser("hana", "", 0);
        CPopProfile& home = *hana.CreateNewPopProfile("\x89\xC6", "hana@example.org");  // 家
        home.CreateNewForwardAddress("phone", "hana@phone.example");
        hana.CreateNewPopProfile("a/b", "Work@example.org");
    }

    std::string Profile(const std::string& name) const {
        return host::ShownName(root_, host::FindProfile(root_, name).profile->path);
    }
    std::string Forward(const std::string& name) const {
        return host::ShownName(root_, host::FindForward(root_, name).forward->path);
    }

    // What is said about a name that finds nothing, or too much.
    template <class Find>
    static std::string Refusal(Find find, int exit_code) {
        try {
            find();
        } catch (const host::CommandError& trouble) {
            EXPECT_EQ(trouble.ExitCode(), exit_code);
            return trouble.what();
        }
        ADD_FAILURE() << "was found";
        return {};
    }

    TempDir folder_;
    CRootPath root_;
};

TEST_F(HostNames, AUserHasAPathAndALoginName) {
    for (const char* const name : {"user1", "hana", "user1/", "HANA", "USER1"}) {
        EXPECT_EQ(host::ShownName(root_, host::FindUser(root_, name).path), "user1") << name;
    }
}

TEST_F(HostNames, AProfileHasAPathANicknameAndAnAddress) {
    for (const char* const name :
         {"user0/from0", "work", "taro@example.org", "taro/from0", "taro/work", "user0/work"}) {
        EXPECT_EQ(Profile(name), "user0/from0") << name;
    }
    EXPECT_EQ(Profile("家"), "user1/from0");
    EXPECT_EQ(Profile("hana/家"), "user1/from0");
    EXPECT_EQ(Profile("from1"), "user1/from1");
    EXPECT_EQ(Profile("a/b"), "user1/from1");
}

TEST_F(HostNames, AnAddressIsAlsoNamedWithoutItsDisplayName) {
    for (const char* const name : {"pager@text.example", "Taro <pager@text.example>", "forwardto1", "work/forwardto1",
                                   "taro/from0/pager@text.example", "user0/from0/forwardto1"}) {
        EXPECT_EQ(Forward(name), "user0/from0/forwardto1") << name;
    }
}

TEST_F(HostNames, AnAmbiguousNameListsItsCandidates) {
    EXPECT_THAT(
        Refusal([&] { Forward("phone"); }, host::kBadUsage),
        AllOf(HasSubstr("\"phone\""), HasSubstr("\n  user0/from0/forwardto0  (phone, taro@phone.example)"),
              HasSubstr("\n  user1/from0/forwardto0  (phone, hana@phone.example)"), Not(HasSubstr("forwardto1"))));
    EXPECT_EQ(Forward("work/phone"), "user0/from0/forwardto0");
    EXPECT_EQ(Forward("hana/from0/phone"), "user1/from0/forwardto0");
}

TEST_F(HostNames, AnUnknownNameListsWhatThereIs) {
    EXPECT_THAT(Refusal([&] { Profile("play"); }, host::kNotFound),
                AllOf(HasSubstr("\"play\""), HasSubstr("\n  user0/from0  (work, taro@example.org)"),
                      HasSubstr("\n  user1/from0  (家, hana@example.org)")));
    EXPECT_THAT(Refusal([&] { Profile("user0/from0/forwardto0"); }, host::kNotFound), HasSubstr("there is no profile"));
    EXPECT_THAT(Refusal([&] { Profile(""); }, host::kNotFound), HasSubstr("there is no profile"));
    EXPECT_THAT(Refusal([&] { Profile("\x1B[2J"); }, host::kNotFound), Not(HasSubstr("\x1B")));
}

TEST_F(HostNames, AnEmptyTreeSaysHowToAddSomething) {
    const TempDir folder;
    CRootPath empty;
    empty.SetRootPath(folder.String());
    EXPECT_THAT(Refusal([&] { host::FindForward(empty, "x"); }, host::kNotFound),
                StrEq("no forwarding address \"x\" (there is none yet); `tarvex forward add` adds one"));
}

TEST_F(HostNames, AWholePathIsNeverTakenForANickname) {
    root_.users.front()->profiles.front()->setting.nickname = "user1/from0";
    root_.users.back()->profiles.front()->setting.nickname = "user1/from0";
    EXPECT_EQ(Profile("user1/from0"), "user1/from0");
}

TEST_F(HostNames, WhatIsWrittenExactlySoGoesBeforeWhatDiffersInCase) {
    CUser& hana = host::FindUser(root_, "hana");
    hana.profiles.front()->setting.nickname = "Work";
    EXPECT_EQ(Profile("work"), "user0/from0");
    EXPECT_THAT(Refusal([&] { Profile("WORK"); }, host::kBadUsage), HasSubstr("more than one"));
}

TEST_F(HostNames, StandInTheOrderInWhichPeopleCount) {
    for (const char* const name : {"user10", "user2", "userdata"}) {
        std::filesystem::create_directory(folder_ / name);
        WriteFile(folder_ / (std::string(name) + "/userset.def"), "");
    }
    root_.SetRootPath(folder_.String());
    std::vector<std::string> names;
    for (const CUser* const user : host::AllUsers(root_)) names.push_back(host::ShownName(root_, user->path));
    EXPECT_THAT(names, ElementsAre("user0", "user1", "user2", "user10", "userdata"));
}

}  // namespace
}  // namespace tarvex::testing
