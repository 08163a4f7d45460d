// Paths in code page 932, whose double-byte characters may have the backslash as their second byte. The program's
// manifest asks for that code page.

#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "loopback/mail_servers.h"
#include "platform/os/files.h"
#include "tarvex/tarvex.h"
#include "testing/temp_dir.h"
#include "tests/support/forwarding.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;

// "table" and "so", each with 0x5C behind.
const std::string kTable = "\x95\x5C";
const std::wstring kWideTable = L"\u8868";
const std::string kSo = "\x83\x5C";
const std::wstring kWideSo = L"\u30BD";

class CodePage : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(GetACP(), 932U) << "the manifest has no effect"; }

    std::string Below(const std::string& name) const { return folder_.String() + "\\" + name; }
    const fs::path& Folder() const { return folder_.Path(); }

private:
    TempDir folder_;
};

TEST_F(CodePage, DirectoriesAreMadeFoundAndDeletedByDoubleByteNames) {
    ASSERT_TRUE(CreateOneDirectory(Below(kTable)));
    ASSERT_TRUE(CreateOneDirectory(Below(kTable + "\\" + kSo)));
    EXPECT_TRUE(fs::is_directory(Folder() / kWideTable / kWideSo));
    EXPECT_TRUE(PathExists(Below(kTable + "\\" + kSo + "\\")));
    EXPECT_FALSE(PathExists(Below(kSo)));

    const std::vector<DirectoryEntry> entries = EnumerateDirectory(Below(kTable + "\\" + kSo + "*"));
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].name, kSo);
    EXPECT_TRUE(entries[0].is_directory);

    ASSERT_TRUE(CreateOneDirectory(Below(kSo)));
    DeleteDirectory(Below(kTable));
    EXPECT_FALSE(fs::exists(Folder() / kWideTable));
    EXPECT_TRUE(fs::exists(Folder() / kWideSo));
}

TEST_F(CodePage, TextFilesAreWrittenAndReadByDoubleByteNames) {
    const std::string file = Below(kTable);
    for (const std::string text : {"one\n", "two\n"}) ASSERT_TRUE(WriteTextFile(file, text, Durability::Synced));
    EXPECT_EQ(ReadFile(Folder() / kWideTable), "two\r\n");
    EXPECT_EQ(ReadTextLines(file), std::vector<std::string>{"two"});
    EXPECT_EQ(std::distance(fs::directory_iterator(Folder()), {}), 1);
}

// A lead byte alone, and one before a byte that cannot follow it.
TEST_F(CodePage, WhatIsNoTextOfTheCodePageNamesNothing) {
    for (const std::string broken : {"\x95", "\x95 x"}) {
        EXPECT_FALSE(CreateOneDirectory(Below(broken)));
        EXPECT_FALSE(WriteTextFile(Below(broken), "x", Durability::Synced));
        EXPECT_FALSE(PathExists(Below(broken)));
    }
    EXPECT_EQ(fs::directory_iterator(Folder()), fs::directory_iterator());
}

TEST_F(CodePage, LastComponentIsFoundByCharacters) {
    EXPECT_EQ(LastComponent("C:\\from0\\forwardto" + kTable), "forwardto" + kTable);
    EXPECT_EQ(LastComponent("C:\\" + kSo + "\\x"), "x");
    EXPECT_EQ(LastComponent("C:\\" + kSo + "\\\x95"), "\x95");  // no text of the code page
    CForwardAddressSetting setting;
    EXPECT_EQ(setting.Load(Below("forwardto" + kTable)), 0);
    EXPECT_EQ(setting.address, "forwardto" + kTable);
}

TEST_F(CodePage, TreeBelowADoubleByteRootForwardsMail) {
    MailboxServer pop("alice", "secret");
    SinkServer smtp;
    pop.Add(Mail("u1"));
    CRootPath root;
    ASSERT_EQ(root.SetRootPath(Below(kTable)), 1);
    CPopProfile& profile = DataTree::AddProfile(*root.CreateNewUser("user", "password", 0), pop.Port(), smtp.Port());
    AddAddress(profile, "a@example.net");
    EXPECT_EQ(profile.path, Below(kTable) + "\\user0\\from0");

    Tarvex(&root);
    ASSERT_EQ(root.WaitThread(60'000), 1);
    EXPECT_EQ(Arrived(smtp), (Arrivals{{"u1 -> a@example.net", 1}}));
    const fs::path on_disk = Folder() / kWideTable / L"user0" / L"from0";
    EXPECT_EQ(ReadFile(on_disk / L"forwardto0" / L"uidl.def"), "u1\r\n");
    EXPECT_NE(ReadFile(on_disk / L"profile.log").find("---- End Operation at "), std::string::npos);

    CRootPath again;
    ASSERT_EQ(again.SetRootPath(Below(kTable)), 1);
    ASSERT_EQ(again.users.size(), 1U);
    EXPECT_EQ(again.users[0]->profiles.at(0)->forward_addresses.at(0)->path,
              Below(kTable) + "\\user0\\from0\\forwardto0");
    ASSERT_EQ(again.DeleteUser(again.users[0].get()), 1);
    EXPECT_TRUE(fs::is_empty(Folder() / kWideTable));
}

}  // namespace
}  // namespace tarvex::testing
