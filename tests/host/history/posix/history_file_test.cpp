// Who may read the history's files, and what is no file.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "host/history/history.h"
#include "testing/temp_dir.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;

TEST(HistoryFile, IsItsOwnersAlone) {
    const testing::TempDir root;
    const mode_t old_mask = umask(0);
    HistoryWriter writer(root.String(), [](const std::string& sentence) { ADD_FAILURE() << sentence; });
    writer.Add(root.String() + "\\user0\\from0", {1, 2, {}});
    umask(old_mask);
    EXPECT_EQ(fs::status(root / ".tarvex").permissions(), fs::perms::owner_all);
    int files = 0;
    for (const auto& file : fs::directory_iterator(root / ".tarvex")) {
        EXPECT_EQ(file.status().permissions(), fs::perms::owner_read | fs::perms::owner_write) << file.path();
        ++files;
    }
    EXPECT_EQ(files, 3);  // history.db, history.db-wal, history.db-shm
}

TEST(HistoryFile, APipeInItsPlaceKeepsNobodyWaiting) {
    const testing::TempDir root;
    fs::create_directories(root / ".tarvex");
    ASSERT_EQ(mkfifo((root / ".tarvex/history.db").c_str(), 0600), 0);
    std::string told;
    HistoryWriter writer(root.String(), [&](const std::string& sentence) { told += sentence; });
    writer.Add(root.String() + "\\user0\\from0", {1, 2, {}});
    EXPECT_NE(told.find("is no regular file"), std::string::npos) << told;
    EXPECT_THROW(HistoryReader reader(root.String()), DatabaseError);
}

}  // namespace
}  // namespace tarvex::host
