// Edits, applied to a tree in memory as a service does it.

#include "host/edit/edit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "host/system/command_error.h"
#include "testing/temp_dir.h"
#include "tests/host/edit_words.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class HostEdit : public ::testing::Test {
protected:
    HostEdit() {
        root_.SetRootPath(folder_.String());
        Good({"user", "add", "loginname=taro"});
        Good({"profile", "add", "taro", "address=me@example.org", "popserver=pop.example.org", "popuser=me"},
             {{"poppassword", "secret"}});
        Good({"forward", "add", "me@example.org", "address=phone@example.net", "nickname=phone"});
    }

    int Do(const std::vector<std::string>& words, const std::map<std::string, std::string>& secrets = {},
           const std::vector<std::string>& uidls = {}) {
        return host::Edit(root_, EditOf(words, secrets, uidls), reply_);
    }

    std::string Good(const std::vector<std::string>& words, const std::map<std::string, std::string>& secrets = {},
                     const std::vector<std::string>& uidls = {}) {
        EXPECT_EQ(Do(words, secrets, uidls), host::kDone) << reply_.error;
        EXPECT_EQ(reply_.error, "");
        return reply_.printed;
    }

    // The same with --again.
    static std::vector<std::string> Again(std::vector<std::string> words) {
        words.emplace_back("--again");
        return words;
    }

    // Refused, and nothing has changed in memory or on disk.
    std::string Bad(int exit_code, const std::vector<std::string>& words,
                    const std::map<std::string, std::string>& secrets = {}) {
        const auto before = Files();
        const CPopProfileSetting setting(Profile().setting);
        EXPECT_EQ(Do(words, secrets), exit_code) << reply_.error;
        EXPECT_EQ(reply_.printed, "");
        EXPECT_EQ(Files(), before);
        EXPECT_EQ(root_.users.size(), 1U);
        EXPECT_EQ(Profile().setting == setting, 1);
        EXPECT_EQ(Profile().setting.lasttime, setting.lasttime);
        EXPECT_EQ(Profile().forward_addresses.size(), 1U);
        return reply_.error;
    }

    // What the tree on disk holds.
    std::map<std::string, std::string> Files() const {
        std::map<std::string, std::string> files;
        for (const auto& entry : fs::recursive_directory_iterator(folder_.Path())) {
            files[entry.path().string()] = entry.is_regular_file() ? ReadFile(entry.path()) : "(directory)";
        }
        return files;
    }

    CPopProfile& Profile() const { return *root_.users.front()->profiles.front(); }
    CForwardAddress& Forward() const { return *Profile().forward_addresses.front(); }
    std::string Native(std::string path) const {
        std::ranges::replace(path, '\\', '/');
        return path;
    }

    TempDir folder_;
    CRootPath root_;
    host::Reply reply_;
};

TEST_F(HostEdit, IsInMemoryAndOnDisk) {
    EXPECT_THAT(Good({"profile", "set", "user0/from0", "timer=5", "sslsmtp=starttls", "nickname=仕事"}),
                AllOf(HasSubstr("user0/from0"), HasSubstr("timer: \"10\" -> \"5\""),
                      HasSubstr("sslsmtp: \"plain\" -> \"starttls\""), HasSubstr("nickname: \"\" -> \"仕事\"")));
    EXPECT_EQ(Profile().setting.timer, 5);
    EXPECT_EQ(Profile().setting.sslsmtp, 2);
    EXPECT_EQ(Profile().setting.nickname, "\x8E\x64\x8E\x96");

    CRootPath loaded;
    loaded.SetRootPath(folder_.String());
    const CPopProfile& profile = *loaded.users.front()->profiles.front();
    EXPECT_EQ(profile.setting == Profile().setting, 1);
    EXPECT_EQ(profile.setting.poppassword, "secret");
    EXPECT_EQ(profile.forward_addresses.front()->setting.address, "phone@example.net");
}

TEST_F(HostEdit, SaysWhatItMeansForMailThatIsDeleted) {
    const std::vector<std::vector<std::string>> edits = {{"schedule", "add", "phone", "mon"},
                                                         {"schedule", "off", "phone", "1"},
                                                         {"schedule", "remove", "phone", "all"},
                                                         {"forward", "set", "phone", "status=off"},
                                                         {"forward", "set", "phone", "address=other@example.net"},
                                                         {"profile", "set", "user0/from0", "deletemail=on"}};
    const auto expect = [&](const std::string& note) {
        for (const auto& edit : edits) {
            if (edit[0] == "profile" && note.empty()) continue;
            const std::string said = Good(edit);
            EXPECT_EQ(said.find("Note:") == std::string::npos, note.empty()) << said;
            EXPECT_THAT(said, HasSubstr(note));
        }
        Good({"forward", "set", "phone", "address=phone@example.net"});
    };
    expect("");
    Good({"profile", "set", "user0/from0", "deletemail=on"});
    expect("one that is switched off or outside its schedule never gets what is deleted meanwhile");
    WriteFile(folder_ / "host.def", "[version]\n0\n");
    expect("every address that is switched on has it: one outside its schedule is waited for");
    WriteFile(folder_ / "host.def", "[deletewaits]\n0\n");
    expect("the addresses that take part in a run have it");
    EXPECT_THAT(Good({"forward", "set", "phone", "nickname=phone2"}), Not(HasSubstr("Note:")));
    EXPECT_THAT(Good({"profile", "set", "user0/from0", "deletemail=off"}), Not(HasSubstr("Note:")));
}

TEST_F(HostEdit, AllOrNothingIsSet) {
    EXPECT_THAT(Bad(host::kBadUsage, {"profile", "set", "user0/from0", "timer=5", "popport=0"}), HasSubstr("popport"));
    EXPECT_THAT(Bad(host::kBadData, {"profile", "set", "user0/from0", "timer=5", "nickname=;x"}),
                HasSubstr("nickname"));
    EXPECT_THAT(Bad(host::kBadData, {"profile", "set", "user0/from0", "timer=5", "nickname=😀"}), HasSubstr("U+1F600"));
    EXPECT_THAT(Bad(host::kBadUsage, {"profile", "set", "user0/from0", "timer=5", "colour=red"}), HasSubstr("colour"));
    EXPECT_THAT(Bad(host::kNotFound, {"profile", "set", "user0/from1", "timer=5"}), HasSubstr("user0/from0"));
    EXPECT_THAT(Bad(host::kBadUsage, {"profile", "add", "taro", "address=nonsense"}), HasSubstr("nonsense"));
    EXPECT_THAT(Bad(host::kBadUsage, {"forward", "add", "user0/from0", "address=a@b.c", "status=maybe"}),
                HasSubstr("status"));
}

TEST_F(HostEdit, WhatCannotBeSavedIsTakenBack) {
    const std::string file = Native(Profile().path) + "/popprofile.def";
    fs::remove(file);
    fs::create_directory(file);  // nothing can be renamed over it
    EXPECT_THAT(Bad(host::kCannotWrite, {"profile", "set", "user0/from0", "timer=5", "lasttime=never", "version=3"}),
                HasSubstr("from0"));
    EXPECT_EQ(Profile().setting.version, 0);

    fs::create_directory(Native(Forward().path) + "/schedule.def");
    Bad(host::kCannotWrite, {"schedule", "add", "phone", "daily 9:00-10:00"});
    EXPECT_TRUE(Forward().schedule.terms.empty());
}

TEST_F(HostEdit, PasswordsComeAsSecretsAndAreNotShown) {
    const std::string said =
        Good({"profile", "set", "user0/from0"}, {{"poppassword", "another"}, {"smtppassword", "third"}});
    EXPECT_THAT(said, AllOf(HasSubstr("poppassword: stored"), Not(HasSubstr("another")), Not(HasSubstr("third"))));
    EXPECT_EQ(Profile().setting.poppassword, "another");
    EXPECT_THAT(Good({"profile", "set", "user0/from0"}, {{"smtppassword", ""}}), HasSubstr("smtppassword: removed"));
    EXPECT_EQ(Profile().setting.smtppassword, "");
    EXPECT_THAT(Bad(host::kBadUsage, {"profile", "set", "user0/from0", "poppassword=clear"}), Not(HasSubstr("clear")));
    EXPECT_THAT(Bad(host::kBadData, {"profile", "set", "user0/from0"}, {{"poppassword", "hidden\xFF"}}),
                Not(HasSubstr("hidden")));
}

TEST_F(HostEdit, ALongTimerIsSaidAsItIs) {
    EXPECT_THAT(Good({"profile", "set", "user0/from0", "timer=1440"}), HasSubstr("every 48 hours"));
    EXPECT_THAT(Good({"profile", "set", "user0/from0", "timer=60"}), Not(HasSubstr("every")));
}

TEST_F(HostEdit, ANewAddressStartsWithTheListThatItIsGiven) {
    EXPECT_THAT(Good({"forward", "add", "user0/from0", "address=pager@text.example"}, {}, {"id-1", "id-2"}),
                HasSubstr("2 "));
    EXPECT_EQ(ReadFile(folder_ / "user0/from0/forwardto1/uidl.def"), "id-1\r\nid-2\r\n");
}

// A directory that was there without its marker file belonged to another address.
TEST_F(HostEdit, ANewAddressInheritsNothing) {
    fs::create_directory(folder_ / "user0/from0/forwardto1");
    WriteFile(folder_ / "user0/from0/forwardto1/uidl.def", "id-of-another\r\n");
    WriteFile(folder_ / "user0/from0/forwardto1/schedule.def", "[schedule]\r\nstatus=1\r\nmode=TERM_EVERY_MON\r\n");
    Good({"forward", "add", "user0/from0", "address=pager@text.example"});
    EXPECT_EQ(ReadFile(folder_ / "user0/from0/forwardto1/uidl.def"), "");
    CForwardAddress loaded;
    loaded.SetPath(folder_ / "user0/from0/forwardto1");
    EXPECT_TRUE(loaded.schedule.terms.empty());
}

// What cannot be read now may be readable in the next run.
TEST_F(HostEdit, ANewAddressTakesNoFolderWhoseFilesCannotBeReplaced) {
    for (const char* const file : {"uidl.def", "schedule.def"}) {
        fs::create_directories(fs::path(folder_ / "user0/from0/forwardto1") / file);
        EXPECT_THAT(Bad(host::kCannotWrite, {"forward", "add", "user0/from0", "address=pager@text.example"}),
                    HasSubstr("forwardto1"));
        fs::remove_all(folder_ / "user0/from0/forwardto1");
    }
}

TEST_F(HostEdit, AFolderThatCannotBeEnteredAnyMoreGetsNothingNew) {
    fs::rename(folder_ / "user0", folder_ / "away");
    fs::create_symlink("user0", folder_ / "user0");
    EXPECT_EQ(Do({"profile", "add", "taro", "address=new@example.org", "popserver=pop.example.org", "popuser=new"}),
              host::kCannotMake);
    EXPECT_THAT(reply_.error, HasSubstr("from0"));
}

TEST_F(HostEdit, AUserThatTakesADirectoryOverIsNoAdministrator) {
    Good({"user", "add", "loginname=boss", "administrator=on"});
    EXPECT_EQ(root_.users.back()->setting.administrator, 1);
    fs::create_directory(folder_ / "user2");
    EXPECT_THAT(Good({"user", "add", "loginname=thief", "administrator=on"}), HasSubstr("no administrator rights"));
    EXPECT_EQ(root_.users.back()->setting.administrator, 0);
}

TEST_F(HostEdit, TermsAreAddedAndRemovedByNumber) {
    EXPECT_THAT(Good({"schedule", "add", "phone", "mon,fri 22:00-6:00"}),
                AllOf(HasSubstr("1  every Monday"), HasSubstr("2  every Friday"), HasSubstr("sat 0:00-6:00")));
    Bad(host::kBadUsage, {"schedule", "add", "phone", "some day"});
    for (const char* const which : {"0", "3"}) {
        for (const char* const verb : {"remove", "off"}) Bad(host::kNotFound, {"schedule", verb, "phone", which});
    }
    Good({"schedule", "remove", "phone", "1"});
    ASSERT_EQ(Forward().schedule.terms.size(), 1U);
    EXPECT_EQ(Forward().schedule.terms.front()->kind, TERM_EVERY_FRI);
    EXPECT_THAT(Good({"schedule", "remove", "phone", "all"}), HasSubstr("always takes part"));
    CForwardAddress loaded;
    loaded.SetPath(Forward().path);
    EXPECT_TRUE(loaded.schedule.terms.empty());
}

TEST_F(HostEdit, TermsAreSwitchedOffAndOnByNumber) {
    const auto stored = [this] {
        CForwardAddress loaded;
        loaded.SetPath(Forward().path);
        std::vector<int> status;
        for (const auto& term : loaded.schedule.terms) status.push_back(term->status);
        return status;
    };
    Good({"schedule", "add", "phone", "mon,wed 9:00-17:00"});
    EXPECT_EQ(Good({"schedule", "off", "phone", "2"}),
              "Switched off:\n  2  (switched off) every Wednesday from 9:00 to 17:00\n");
    EXPECT_THAT(stored(), ElementsAre(1, 0));
    EXPECT_THAT(Good({"schedule", "off", "phone", "all"}),
                AllOf(HasSubstr("  1  (switched off)"), HasSubstr("  2  (switched off)"), HasSubstr("in no run")));
    EXPECT_THAT(stored(), ElementsAre(0, 0));
    EXPECT_EQ(Forward().JudgeTakePart(0), 0);
    EXPECT_EQ(Good({"schedule", "on", "phone", "1"}), "Switched on:\n  1  every Monday from 9:00 to 17:00\n");
    EXPECT_THAT(stored(), ElementsAre(1, 0));
    EXPECT_THAT(Bad(host::kNotFound, {"schedule", "off", "phone", "3"}), HasSubstr("the last one is 2"));
    EXPECT_THAT(stored(), ElementsAre(1, 0));
    EXPECT_THAT(Good({"schedule", "remove", "phone", "1"}), HasSubstr("in no run"));
    Good({"schedule", "remove", "phone", "all"});
    EXPECT_THAT(Good({"schedule", "off", "phone", "all"}), HasSubstr("always takes part"));
}

// Any number but 0 counts as on, and saving would make each but 1 a 0.
TEST_F(HostEdit, ATermThatIsOnByAnotherNumberStaysOn) {
    Good({"schedule", "add", "phone", "mon 9:00-17:00"});
    Forward().schedule.terms.front()->status = 2;
    Good({"schedule", "add", "phone", "tue 9:00-17:00"});
    CForwardAddress loaded;
    loaded.SetPath(Forward().path);
    EXPECT_EQ(loaded.schedule.terms.front()->status, 1);
}

TEST_F(HostEdit, RemovingTakesTheDirectoriesAway) {
    Good({"forward", "remove", "phone"});
    EXPECT_FALSE(fs::exists(folder_ / "user0/from0/forwardto0"));
    Good({"profile", "remove", "me@example.org"});
    EXPECT_FALSE(fs::exists(folder_ / "user0/from0"));
    Good({"user", "remove", "taro"});
    EXPECT_TRUE(fs::is_empty(folder_.Path()));
    EXPECT_TRUE(root_.users.empty());
}

// Between the question and the answer others may have changed the tree.
TEST_F(HostEdit, OnlyWhatSomebodyWasToldIsRemoved) {
    EXPECT_THAT(Bad(host::kNotFound, {"forward", "remove", "user0/from0/forwardto0", "old@example.net, with the list"}),
                AllOf(HasSubstr("phone@example.net"), HasSubstr("nothing was removed")));
    const std::string told = host::WhatGoes(Profile());
    Good({"forward", "add", "me@example.org", "address=pager@example.net"});
    EXPECT_EQ(Do({"profile", "remove", "me@example.org", told}), host::kNotFound);
    EXPECT_THAT(reply_.error, HasSubstr("2 forwarding addresses"));
    Good({"forward", "remove", "phone", host::WhatGoes(Forward())});
    Good({"profile", "remove", "me@example.org", host::WhatGoes(Profile())});
    Good({"user", "remove", "taro", host::WhatGoes(*root_.users.front())});
}

TEST_F(HostEdit, MailIsNotForwardedToTheMailboxThatItComesFrom) {
    for (const char* const own :
         {"me@example.org", "Me@Example.ORG", "Taro <me@example.org>", "me@example.org (home)"}) {
        const std::string address = std::string("address=") + own;
        EXPECT_THAT(Bad(host::kBadUsage, {"forward", "add", "me@example.org", address}), HasSubstr("own address"));
        EXPECT_THAT(Bad(host::kBadUsage, {"forward", "set", "phone", address}), HasSubstr("own address"));
    }
    EXPECT_THAT(Bad(host::kBadUsage, {"profile", "set", "me@example.org", "address=Phone@example.net"}),
                HasSubstr("own address"));
    Forward().setting.address = "me@example.org";  // by hand
    Good({"forward", "set", "phone", "nickname=mobile"});
    Good({"profile", "set", "user0/from0", "timer=5"});
}

TEST_F(HostEdit, AnAddressThatIsThereAlreadyIsPointedOut) {
    const std::vector<std::string> add = {"forward", "add", "me@example.org", "address=Phone <PHONE@example.net>"};
    EXPECT_THAT(Bad(host::kBadUsage, add), HasSubstr("user0/from0/forwardto0 is the same address"));
    EXPECT_THAT(Good(Again(add)), HasSubstr("Note: user0/from0/forwardto0 is the same address"));
    EXPECT_THAT(Good({"forward", "add", "me@example.org", "address=phone2@example.net"}), Not(HasSubstr("Note")));
    EXPECT_THAT(Good({"forward", "set", "phone2@example.net", "address=phone@example.net"}), HasSubstr("Note"));
    EXPECT_THAT(Good({"forward", "set", "user0/from0/forwardto2", "status=off"}), Not(HasSubstr("Note")));
}

TEST_F(HostEdit, AMailboxThatIsThereAlreadyIsPointedOut) {
    const std::vector<std::string> add = {
        "profile", "add", "taro", "address=other@example.org", "popserver=POP.example.org", "popuser=me"};
    EXPECT_THAT(Bad(host::kBadUsage, add), HasSubstr("user0/from0 fetches from the same mailbox"));
    Good(Again(add));
    for (const char* const other : {"popserver=pop2.example.org", "popport=1110", "popuser=Me"}) {
        std::vector<std::string> words = {"profile", "add", "taro", "address=other@example.org"};
        for (const char* const value : {"popserver=pop.example.org", "popport=110", "popuser=me"})
            words.emplace_back(value);
        words.emplace_back(other);  // the last one counts
        Good(words);
    }
}

TEST_F(HostEdit, TwoUsersHaveNotTheSameName) {
    EXPECT_THAT(Bad(host::kBadUsage, {"user", "add", "loginname=taro"}), HasSubstr("user0"));
    Good({"user", "set", "taro", "loginname=taro", "status=off"});
    Good({"user", "add", "loginname=hanako"});
    EXPECT_EQ(Do({"user", "set", "hanako", "loginname=taro"}), host::kBadUsage);
}

TEST_F(HostEdit, WhatAProfileNeedsIsNotCleared) {
    for (const char* const word : {"popserver=", "popuser=", "address="}) {
        Bad(host::kBadUsage, {"profile", "set", "me@example.org", word});
    }
    EXPECT_THAT(Bad(host::kBadUsage, {"user", "set", "taro", "loginname="}), HasSubstr("cannot be empty"));
    Good({"profile", "set", "me@example.org", "smtpserver=", "smtpuser="});
}

TEST_F(HostEdit, WhatCannotBeDoneToAKindIsRefused) {
    for (const char* const verb : {"on", "off"}) {
        Bad(host::kBadUsage, {"user", verb, "taro"});
        Bad(host::kBadUsage, {"profile", verb, "user0/from0"});
        Bad(host::kBadUsage, {"forward", verb, "phone"});
    }
    EXPECT_THAT(Bad(host::kBadUsage, {"schedule", "resend", "phone"}), HasSubstr("schedule resend"));
}

// A link that leads nowhere, and a file, can be no directory of something new.
TEST_F(HostEdit, WhatIsNoDirectoryIsPassedOver) {
    fs::create_symlink("nowhere", folder_ / "user1");
    WriteFile(folder_ / "user2", "");
    EXPECT_THAT(Good({"user", "add", "loginname=hanako"}), HasSubstr("user3"));
}

// A worker writes popprofile.def at its end, and into the directories of its addresses.
TEST_F(HostEdit, SaysWhichProfilesMustNotRunMeanwhile) {
    const auto touched = [&](const std::vector<std::string>& words) {
        return host::TouchedProfiles(root_, EditOf(words));
    };
    EXPECT_THAT(touched({"profile", "set", "me@example.org", "timer=5"}), ElementsAre(Profile().path));
    EXPECT_THAT(touched({"profile", "remove", "me@example.org"}), ElementsAre(Profile().path));
    EXPECT_THAT(touched({"forward", "remove", "phone"}), ElementsAre(Profile().path));
    EXPECT_THAT(touched({"user", "remove", "taro"}), ElementsAre(Profile().path));
    EXPECT_THAT(touched({"user", "set", "taro", "status=off"}), IsEmpty());
    EXPECT_THAT(touched({"profile", "add", "taro", "address=a@b.c"}), IsEmpty());
    EXPECT_THAT(touched({"forward", "set", "phone", "status=off"}), IsEmpty());
    EXPECT_THAT(touched({"schedule", "add", "phone", "daily"}), IsEmpty());
    EXPECT_THAT(touched({"schedule", "off", "phone", "all"}), IsEmpty());
    EXPECT_THAT(touched({"profile", "set", "nobody", "timer=5"}), IsEmpty());
}

}  // namespace
}  // namespace tarvex::testing
