// What the rules of a tree change about loading it and about what takes part in runs.

#include "host/tree/tree_rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "host/edit/edit.h"
#include "host/system/command_error.h"
#include "host/tree/readiness.h"
#include "host/tree/remarks.h"
#include "host/tree/tree_root.h"
#include "tests/host/edit_words.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class TreeRules : public ::testing::Test {
protected:
    TreeRules() {
        WriteFile(folder_ / "host.def", "[version]\n0\n");
        EXPECT_EQ(host::LoadTree(root_, folder_.String()), "");
        Edit({"user", "add", "loginname=taro"});
        Edit({"profile", "add", "taro", "address=me@example.org", "popserver=pop.example.org", "popuser=me"});
        Edit({"forward", "add", "me@example.org", "address=phone@example.net"});
    }

    int Edit(const std::vector<std::string>& words) { return host::Edit(root_, EditOf(words), reply_); }
    void Load() { EXPECT_EQ(host::LoadTree(root_, folder_.String()), ""); }
    CPopProfile& Profile() const { return *root_.users.front()->profiles.front(); }
    std::string InProfile(const std::string& file) const { return folder_ / ("user0/from0/" + file); }

    TempDir folder_;
    CRootPath root_;
    host::Reply reply_;
};

template <class Children>
std::vector<std::string> NamesOf(const Children& children) {
    std::vector<std::string> names;
    for (const auto& child : children) names.push_back(child->path.substr(child->path.rfind('\\') + 1));
    return names;
}

TEST_F(TreeRules, PutChildrenInTheOrderOfTheirNumbers) {
    for (const char* const place :
         {"user10", "user2", "user0/from10", "user0/from2", "user0/from0/forwardto10", "user0/from0/forwardto2"}) {
        const std::string original =
            std::string(place).substr(0, std::string(place).find_last_not_of("0123456789") + 1) + '0';
        fs::create_directory(folder_.Path() / place);
        for (const char* const marker : {"userset.def", "popprofile.def", "forwardaddress.def"}) {
            const fs::path file = folder_.Path() / original / marker;
            if (fs::exists(file)) fs::copy_file(file, folder_.Path() / place / marker);
        }
    }
    Load();
    EXPECT_THAT(NamesOf(root_.users), ElementsAre("user0", "user2", "user10"));
    EXPECT_THAT(NamesOf(root_.users.front()->profiles), ElementsAre("from0", "from2", "from10"));
    EXPECT_THAT(NamesOf(Profile().forward_addresses), ElementsAre("forwardto0", "forwardto2", "forwardto10"));

    ASSERT_EQ(Edit({"forward", "remove", "user0/from0/forwardto0"}), host::kDone) << reply_.error;
    ASSERT_EQ(Edit({"forward", "add", "user0/from0", "address=new@example.net"}), host::kDone) << reply_.error;
    EXPECT_THAT(NamesOf(Profile().forward_addresses), ElementsAre("forwardto0", "forwardto2", "forwardto10"));
    ASSERT_EQ(Edit({"forward", "add", "user0/from0", "address=newer@example.net"}), host::kDone) << reply_.error;
    EXPECT_THAT(NamesOf(Profile().forward_addresses),
                ElementsAre("forwardto0", "forwardto1", "forwardto2", "forwardto10"));

    // Without rules they stay as they were.
    fs::remove(folder_ / "host.def");
    std::ranges::reverse(root_.users);
    const std::vector<std::string> before = NamesOf(root_.users);
    host::ApplyRules(root_);
    EXPECT_EQ(NamesOf(root_.users), before);
}

TEST_F(TreeRules, LeaveOutAProfileOfWhichAFileWasCutShort) {
    for (const char* const file : {"popprofile.def", "forwardto0/forwardaddress.def", "forwardto0/schedule.def"}) {
        const std::string good = ReadFile(InProfile(file));
        for (const char* const text : {"\r\n", "; a comment\n", "[nonsense]\n1\n", "popserver\n"}) {
            WriteFile(InProfile(file), text);
            Load();
            EXPECT_THAT(host::WhyUnreadable(Profile()), HasSubstr("cut short")) << file << text;
            EXPECT_EQ(Edit({"profile", "set", "user0/from0", "timer=7"}), host::kCannotWrite);
            EXPECT_EQ(Edit({"forward", "set", "user0/from0/forwardto0", "nickname=x"}), host::kCannotWrite);
            EXPECT_EQ(ReadFile(InProfile(file)), text);
        }
        WriteFile(folder_ / "host.def", "[keyless]\n0\n");
        Load();
        EXPECT_EQ(host::WhyUnreadable(Profile()), "");
        fs::remove(folder_ / "host.def");
        Load();
        EXPECT_EQ(host::WhyUnreadable(Profile()), "");
        WriteFile(folder_ / "host.def", "[version]\n0\n");
        Load();

        good.empty() ? static_cast<void>(fs::remove(InProfile(file))) : WriteFile(InProfile(file), good);
        EXPECT_THAT(host::WhyUnreadable(Profile()), HasSubstr("cut short"));  // is in memory as it was
        host::LoadAgain(Profile());
        EXPECT_EQ(host::WhyUnreadable(Profile()), "") << file;
    }
}

TEST_F(TreeRules, LeaveOutTheProfilesOfAUserWhoseFileWasCutShort) {
    const std::string file = folder_ / "user0/userset.def";
    const std::string good = ReadFile(file);
    for (const auto& [text, why] : {std::pair("", "is empty"), std::pair("; a comment\n", "cut short")}) {
        WriteFile(file, text);
        Load();
        CUser& user = *root_.users.front();
        EXPECT_THAT(host::WhyUnreadable(Profile()), AllOf(HasSubstr("userset.def"), HasSubstr(why)));
        EXPECT_EQ(Edit({"user", "set", "user0", "status=off"}), host::kCannotWrite);
        EXPECT_EQ(Edit({"profile", "set", "user0/from0", "timer=7"}), host::kCannotWrite);
        EXPECT_EQ(ReadFile(file), text);
        WriteFile(file, good);
        host::LoadAgain(user);
        host::LoadAgain(Profile());
        EXPECT_EQ(host::WhyUnreadable(Profile()), "");
        EXPECT_EQ(Edit({"user", "set", "taro", "status=off"}), host::kDone) << reply_.error;
        EXPECT_EQ(Edit({"user", "set", "taro", "status=on"}), host::kDone) << reply_.error;
        fs::rename(folder_ / "host.def", folder_ / "away");
        WriteFile(file, text);
        Load();
        EXPECT_EQ(host::WhyUnreadable(Profile()), "");
        fs::rename(folder_ / "away", folder_ / "host.def");
        WriteFile(file, good);
        Load();
    }
}

TEST_F(TreeRules, LetAUserSwitchProfilesOff) {
    const auto why = [this] { return host::WhySwitchedOff(*root_.users.front(), Profile()); };
    EXPECT_EQ(why(), "");
    ASSERT_EQ(Edit({"user", "set", "taro", "status=off"}), host::kDone);
    EXPECT_EQ(why(), "switched off with its user (status 0 of taro)");
    fs::remove(folder_ / "host.def");
    EXPECT_EQ(why(), "");
    ASSERT_EQ(Edit({"profile", "set", "user0/from0", "status=off"}), host::kDone);
    EXPECT_EQ(why(), "switched off (status 0)");
}

TEST_F(TreeRules, AreNoReasonNotToSayWhatLooksWrong) {
    EXPECT_TRUE(host::RemarksOn(Profile()).empty());
    const auto remark_on = [this](const std::string& file, const std::string& text) {
        const std::string before = ReadFile(folder_ / file);
        WriteFile(folder_ / file, text + before);
        const std::vector<std::string> remarks = host::RemarksOn(Profile());
        before.empty() ? static_cast<void>(fs::remove(folder_ / file)) : WriteFile(folder_ / file, before);
        EXPECT_EQ(remarks.size(), 1U) << file << text;
        return remarks.empty() ? "" : remarks.front();
    };
    for (const char* const file :
         {"host.def", "user0/userset.def", "user0/from0/host.def", "user0/from0/popprofile.def",
          "user0/from0/forwardto0/forwardaddress.def", "user0/from0/forwardto0/schedule.def"}) {
        EXPECT_THAT(remark_on(file, "[loginnames]\n1\n"), HasSubstr("has an unknown key: [loginnames]")) << file;
    }
    EXPECT_THAT(remark_on("host.def", "[runsize]\nmuch\n"), HasSubstr("no number for runsize but \"much\""));
    EXPECT_THAT(remark_on("host.def", "[runsize]\n0\n"), HasSubstr("0 for runsize, which can be 1 to 1048576"));
    EXPECT_THAT(remark_on("host.def", "[runsize]\n64 MiB\n"), HasSubstr("\"64 MiB\""));
    Profile().forward_addresses.front()->setting.address = "forwardto0";
    EXPECT_THAT(host::RemarksOn(Profile()), ElementsAre(HasSubstr("has an address without \"@\": \"forwardto0\"")));
}

// A forwardaddress.def without a value yields the folder's name.
TEST(HostProgram, MailsNothingToAnAddressWithoutAnAt) {
    for (const bool with_rules : {false, true}) {
        MailboxServer mailbox("user", "secret");
        SinkServer sink;
        mailbox.Add(MailNumber(1));
        Host host;
        const std::string profile = host.AddProfile(mailbox.Port(), sink.Port());
        fs::create_directory(profile + "/forwardto1");
        WriteFile(profile + "/forwardto1/forwardaddress.def", "[address]\n\n");
        if (with_rules) WriteFile(host.Root() + "/host.def", "[version]\n0\n");
        host.Tell({"run"});
        std::vector<std::string> recipients;
        for (const DeliveredMail& mail : sink.Delivered()) {
            recipients.insert(recipients.end(), mail.recipients.begin(), mail.recipients.end());
        }
        if (with_rules) {
            EXPECT_THAT(recipients, ElementsAre(kPhone));
        } else {
            EXPECT_THAT(recipients, ::testing::UnorderedElementsAre(kPhone, "forwardto1"));
        }
        EXPECT_EQ(ReadFile(profile + "/forwardto1/uidl.def").empty(), with_rules);
    }
}

TEST(HostProgram, RunsNoProfileOfAUserWhoIsOff) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    mailbox.Add(MailNumber(1));
    Host host;
    host.AddProfile(mailbox.Port(), sink.Port());
    host.Tell({"user", "set", "user0", "--status", "off"});
    WriteFile(host.Root() + "/host.def", "[version]\n0\n");
    const std::string off = "switched off with its user";
    EXPECT_EQ(host.Tell({"run"}), "No profile was due.\n");
    EXPECT_THAT(host.Tell({"run", "--now", "user0/from0"}), HasSubstr(std::string("user0/from0 is ") + off));
    EXPECT_THAT(host.Tell({"status"}), HasSubstr("switched off"));
    EXPECT_THAT(host.Tell({"plan"}), HasSubstr(off));
    EXPECT_THAT(host.Tell({"check", "--no-dns"}), HasSubstr(off));
    EXPECT_TRUE(sink.Delivered().empty());
    fs::remove(host.Root() + "/host.def");
    host.Tell({"run"});
    EXPECT_EQ(sink.Delivered().size(), 1U);
}

}  // namespace
}  // namespace tarvex::testing
