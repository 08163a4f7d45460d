// The log in a file when there is no room, which a limit of the process stands for.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <string>

#include "host/service/log/log_file.h"
#include "host/system/paths.h"
#include "testing/temp_dir.h"

namespace tarvex::host {
namespace {

class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        former_handler_ = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &former_);
        const rlimit limit{bytes, former_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &former_);
        std::signal(SIGXFSZ, former_handler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;

private:
    rlimit former_{};
    void (*former_handler_)(int) = nullptr;
};

TEST(LogFile, HasNoHalfLineWhenThereIsNoRoomAndGoesOnWhenThereIs) {
    const testing::TempDir folder;
    LogFile log(TreePath(folder / "log"));
    EXPECT_TRUE(log.Append("first\n"));
    {
        const FileSizeLimit limit(10);
        EXPECT_FALSE(log.Append("second\n"));
        EXPECT_FALSE(log.Append("third\n"));
        EXPECT_EQ(testing::ReadFile(folder / "log"), "first\n");
    }
    EXPECT_TRUE(log.Append("fourth\n"));
    EXPECT_EQ(testing::ReadFile(folder / "log"), "first\nfourth\n");
}

}  // namespace
}  // namespace tarvex::host
