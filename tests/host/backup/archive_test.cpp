// The archive of a backup: what it gives back, and what it refuses.

#include "host/backup/archive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "host/system/command_error.h"

namespace tarvex::testing {
namespace {

using ::testing::HasSubstr;
using Files = std::vector<std::pair<std::string, std::string>>;

constexpr std::size_t kBlock = 512;

std::string Written(const Files& files) {
    std::string archive;
    host::ArchiveWriter writer([&](std::string_view bytes) { archive += bytes; }, 1'795'312'345);
    for (const auto& [name, content] : files) writer.Add(name, content);
    writer.Finish();
    return archive;
}

// The files, or why there are none.
std::pair<Files, std::string> Read(const std::string& archive) {
    std::istringstream input(archive);
    Files files;
    try {
        host::ArchiveReader reader(input);
        while (const auto entry = reader.Next()) files.emplace_back(entry->name, entry->content);
        return {files, ""};
    } catch (const host::CommandError& error) {
        EXPECT_EQ(error.ExitCode(), host::kBadData);
        return {files, error.what()};
    }
}

// The archive with other bytes in its second header, whose own sum is right again.
std::string WithHeader(std::string archive, std::size_t at, const std::string& bytes) {
    const std::size_t header = 2 * kBlock;  // behind what the archive is, and its line
    archive.replace(header + at, bytes.size(), bytes);
    archive.replace(header + 148, 8, "        ");
    unsigned sum = 0;
    for (std::size_t i = 0; i < kBlock; ++i) sum += static_cast<unsigned char>(archive[header + i]);
    std::ostringstream octal;
    octal << std::oct << sum;
    archive.replace(header + 148, 8, std::string(7 - octal.str().size(), '0') + octal.str() + '\0');
    return archive;
}

TEST(Archive, GivesBackFilesOfEverySize) {
    Files files;
    for (const std::size_t bytes : {0U, 1U, 511U, 512U, 513U, 3U << 20U}) {
        files.emplace_back("user0/from" + std::to_string(bytes) + "/held/7.mail", std::string(bytes, '\0'));
        files.emplace_back("user0/from" + std::to_string(bytes) + "/popprofile.def", std::string(bytes, 'x'));
    }
    files.emplace_back("user0/from" + std::string(120, 'x') + "/forwardto0/forwardaddress.def", "a name in two parts");
    const auto [read, why] = Read(Written(files));
    EXPECT_EQ(why, "");
    EXPECT_EQ(read, files);
}

TEST(Archive, TakesEveryFileThatATreeKeepsAndNothingElse) {
    for (const char* const name :
         {"host.def", "providers.d/google.def", ".tarvex/sent.db", ".tarvex/sent.recent", ".tarvex/history.db",
          ".tarvex/tokens/user0+from0.json", "user0/userset.def", "user0/host.def", "user/from/popprofile.def",
          "user0/from0/host.def", "user0/from0/profile.log", "user0/from0/held/7.def",
          "user0/from0/held/999999999.mail", "user0/from0/forwardto0/forwardaddress.def",
          "user0/from0/forwardto0/schedule.def", "user0/from0/forwardto0/uidl.def"}) {
        EXPECT_TRUE(host::IsNameOfTree(name)) << name;
    }
    for (const char* const name : {"",
                                   "/",
                                   "..",
                                   "/etc/passwd",
                                   "../host.def",
                                   "host.def/",
                                   "user0",
                                   "user0/",
                                   "user0/..",
                                   "user0/../host.def",
                                   "user0/from0/../../host.def",
                                   "user0//userset.def",
                                   "user0/from0/held/../host.def",
                                   "user0/from0/held/.def",
                                   "user0/from0/held/7.def.tmp",
                                   "user0/from0/held/x.def",
                                   "user0/from0/held/1234567890.def",
                                   ".tarvex/sent.db-wal",
                                   ".tarvex/tokens/.json",
                                   ".tarvex/tokens/../sent.db",
                                   ".tarvex/tokens/a.lock",
                                   ".tarvex.lock",
                                   ".tarvex.sock",
                                   "providers.d/..def",
                                   "providers.d/x",
                                   "user0/from0/uidl.def",
                                   "user0/from0/forwardto0/host.def",
                                   "user\\..\\x/userset.def",
                                   "user:x/userset.def",
                                   "user./userset.def",
                                   "user /userset.def",
                                   "user\n/userset.def",
                                   "User0/userset.def",
                                   "elsewhere/userset.def",
                                   "user0/from0/forwardto0/x/uidl.def",
                                   "tarvex-backup"}) {
        EXPECT_FALSE(host::IsNameOfTree(name)) << name;
    }
}

TEST(Archive, RefusesWhatNoBackupHolds) {
    const std::string good = Written({{"host.def", "[version]\r\n0\r\n"}});
    struct Case {
        std::size_t at;
        std::string bytes;
        const char* why;
    };
    const std::string link = std::string("host.def") + std::string(148, '\0');
    for (const Case& c : {
             Case{0, std::string("../x.def\0", 9), "is no file of a tree"},
             {0, std::string("/etc/pwd\0", 9), "is no file of a tree"},
             {345, "..", "is no file of a tree"},     // in the prefix
             {156, "1", "is no plain file"},          // a link
             {156, "2", "is no plain file"},          // a symbolic link
             {156, "3", "is no plain file"},          // a device
             {156, "5", "is no plain file"},          // a folder
             {156, "x", "is no plain file"},          // more about the next one
             {124, "00001000000", "ends too early"},  // sizes that are not true
             {124, "77777777777", "too large"},
             {124, "0000000000z", "header is damaged"},
             {124, "-0000000016", "header is damaged"},
             {124, std::string("\x80\0\0\0\0\0\0\0\0\0\0\x0E", 12), "header is damaged"},  // in another form
             {124, "00000000000", "no such archive"},                                      // content for a header
             {257, "USTAR", "no such archive"},
         }) {
        SCOPED_TRACE(c.bytes);
        EXPECT_THAT(Read(WithHeader(good, c.at, c.bytes)).second, HasSubstr(c.why));
    }
    EXPECT_THAT(Read("").second, HasSubstr("ends too early"));
    EXPECT_THAT(Read(std::string(1 << 20, '\0')).second, HasSubstr("no such archive"));
    EXPECT_THAT(Read(good + "x").second, HasSubstr("ends too early"));
    EXPECT_THAT(Read(good + std::string(kBlock, 'x')).second, HasSubstr("something follows"));
    EXPECT_EQ(Read(good + std::string(20 * kBlock, '\0')).second, "");
}

TEST(Archive, KnowsEveryCutAndEveryChangedByte) {
    const std::string good = Written({{"host.def", std::string(700, 'a')}, {"user0/userset.def", "b"}});
    for (std::size_t end = 0; end < good.size(); ++end) ASSERT_NE(Read(good.substr(0, end)).second, "") << end;
    const std::size_t sum_bytes = 65;  // what follows it is room
    for (std::size_t at = 0; at < good.size() - 3 * kBlock + sum_bytes; ++at) {
        std::string bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 1);
        ASSERT_NE(Read(bad).second, "") << at;
    }
}

TEST(Archive, DoesNotTakeWhatItWouldNotGiveBack) {
    host::ArchiveWriter writer([](std::string_view) {}, 0);
    EXPECT_THROW(writer.Add("../host.def", ""), host::CommandError);
    EXPECT_THROW(writer.Add("user" + std::string(300, 'x') + "/userset.def", ""), host::CommandError);
}

}  // namespace
}  // namespace tarvex::testing
