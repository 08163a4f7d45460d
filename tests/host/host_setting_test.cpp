// The rules of a tree, as host.def holds them.

#include "host/settings/host_setting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "host/settings/settings_sections.h"
#include "host/system/command_error.h"
#include "host/system/durable_files.h"
#include "testing/temp_dir.h"

namespace tarvex::host {
namespace {

using ::testing::HasSubstr;

class RulesFile : public ::testing::Test {
protected:
    RulesFile() { std::filesystem::create_directories(std::string(folder_ / "profile")); }

    std::string Root() const { return folder_.String(); }
    std::string Profile() const { return Root() + "\\profile"; }
    std::optional<HostRules> Read() const { return RulesOf(Root(), Profile()); }
    void WriteRoot(const std::string& text) const { testing::WriteFile(folder_ / "host.def", text); }
    void WriteProfile(const std::string& text) const { testing::WriteFile(folder_ / "profile/host.def", text); }

    std::string Refusal() const {
        try {
            Read();
        } catch (const CommandError& error) {
            EXPECT_EQ(error.ExitCode(), kCannotWrite);
            return error.what();
        }
        return "";
    }

    testing::TempDir folder_;
};

TEST_F(RulesFile, IsWhatMakesATreeHaveRules) {
    WriteProfile("[floodlimit]\n7\n");
    EXPECT_EQ(Read(), std::nullopt);
    EXPECT_FALSE(HasRules(Root()));
    WriteRoot("[version]\n0\n");
    EXPECT_TRUE(HasRules(Root()));
    EXPECT_EQ(RulesOf(Root()), HostRules());
}

TEST_F(RulesFile, OfAProfileHoldsWhatDiffersThere) {
    WriteRoot("[floodlimit]\r\n7\r\n\r\n[Sentonce]\r\n0\r\n[allruns]\r\n5\r\n");
    WriteProfile("; mine\n// too\n[FLOODLIMIT]\n\n  9 messages \n[nonsense]\n12\n[allruns]\n6\n");
    HostRules expected;
    expected.floodlimit = 9;
    expected.sentonce = false;
    expected.allruns = 5;  // of the root alone
    EXPECT_EQ(Read(), expected);
}

TEST_F(RulesFile, HoldsHowToLogIn) {
    WriteRoot("[pop_login]\n1\n[token_command]\n/bin/one --for \"me\"\n");
    WriteProfile("[smtp_login]\n2\n[token_command]\n/bin/two\n");
    HostRules expected;
    expected.pop_login = 1;
    expected.smtp_login = 2;
    expected.token_command = "/bin/two";
    EXPECT_EQ(Read(), expected);
    EXPECT_EQ(RulesOf(Root()).value().token_command, "/bin/one --for \"me\"");
    WriteProfile("[pop_login]\n3\n");
    EXPECT_THAT(Refusal(), HasSubstr("pop_login cannot be \"3\""));
}

// The folder of the user lies between.
TEST(RulesFiles, OfAUserStandsBetweenThoseOfTreeAndProfile) {
    const testing::TempDir root;
    std::filesystem::create_directories(std::string(root / "user0/from0"));
    testing::WriteFile(root / "host.def", "[floodlimit]\n1\n[runsize]\n1\n[heldsize]\n1\n[allruns]\n1\n");
    testing::WriteFile(root / "user0/host.def", "[runsize]\n2\n[heldsize]\n2\n[allruns]\n2\n");
    testing::WriteFile(root / "user0/from0/host.def", "[heldsize]\n3\n");
    HostRules expected;
    expected.floodlimit = 1;
    expected.runsize = 2;
    expected.heldsize = 3;
    expected.allruns = 1;
    EXPECT_EQ(RulesOf(root.String(), root.String() + "\\user0\\from0"), expected);
    expected.heldsize = 2;
    EXPECT_EQ(RulesOfUser(root.String(), root.String() + "\\user0"), expected);
}

TEST_F(RulesFile, IsNeverGuessedAt) {
    for (const char* const text :
         {"", "\r\n", "; [floodlimit]\n", "[nonsense]\n1\n", "[floodlimit]\n", "[floodlimit]\nmany\n",
          "[floodlimit]\n0\n", "[setaside]\non\n", "[setaside]\n2\n", "[runsize]\n99999999999\n"}) {
        WriteRoot(text);
        EXPECT_THAT(Refusal(), HasSubstr("host.def")) << text;
        WriteRoot("[version]\n0\n");
        WriteProfile(text);
        EXPECT_THAT(Refusal(), HasSubstr("host.def")) << text;
        std::filesystem::remove(std::string(folder_ / "profile/host.def"));
    }
    std::filesystem::remove(std::string(folder_ / "host.def"));
    std::filesystem::create_directory(std::string(folder_ / "host.def"));
    EXPECT_TRUE(HasRules(Root()));
    EXPECT_THAT(Refusal(), HasSubstr("no regular file"));
}

TEST(SettingsSections, KeepsWhatItDoesNotKnow) {
    const std::string before = "; first\r\n[other]\r\n1\r\n\r\n[Limit]\r\n; why\r\n5\r\n6\r\n\r\n[gone]\r\n1\r\n";
    SettingsSections file(before);
    EXPECT_EQ(file.Text(), before);
    EXPECT_EQ(file.Find("limit")->Value(), "6");
    file.Set("limit", "7");
    file.Set("new", "8");
    file.Remove("gone");
    EXPECT_EQ(file.Text(), "; first\r\n[other]\r\n1\r\n\r\n[Limit]\r\n7\r\n; why\r\n\r\n[new]\r\n8\r\n\r\n");
    EXPECT_EQ(file.Find("gone"), nullptr);
}

// 0x5B and 0x5D are brackets, and second bytes of double-byte characters.
TEST(SettingsSections, TakesNoHalfCharacterForABracket) {
    const SettingsSections file("[name]\n\x81\x5Bx\x81\x5D\n");
    EXPECT_THAT(file.HeadersBut({}), ::testing::ElementsAre("[name]"));
    EXPECT_EQ(file.Find("name")->Value(), "\x81\x5Bx\x81\x5D");
}

TEST_F(RulesFile, IsReplacedWhole) {
    EXPECT_EQ(ReadWholeFile(Root() + "\\host.def"), std::nullopt);
    for (const char* const text : {"old", "", "new and longer"}) {
        EXPECT_EQ(ReplaceContent(Root() + "\\host.def", text), Saved::Yes);
        EXPECT_EQ(ReadWholeFile(Root() + "\\host.def"), text);
    }
    EXPECT_FALSE(std::filesystem::exists(std::string(folder_ / "host.def.new")));
    EXPECT_EQ(ReplaceContent(Root() + "\\profile", "x"), Saved::No);
    EXPECT_EQ(ReplaceContent(Root() + "\\nowhere\\host.def", "x"), Saved::No);
}

}  // namespace
}  // namespace tarvex::host
