#pragma once

// The service's log in a file that is turned over: FILE, and before it FILE.1 to FILE.5, the newest first.

#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>

namespace tarvex::host {

inline constexpr std::uintmax_t kLogFile_bytes = 10 << 20;
inline constexpr int kFormerLogFiles = 5;

// Whole lines alone: what a full disk, or the end of the machine, leaves of one is cut off.
class LogFile {
public:
    // A path of the tree's form; the file goes on where it ended. Throws CommandError when it cannot be written.
    explicit LogFile(std::string path, std::uintmax_t most_bytes = kLogFile_bytes);

    // False when there was no room, or no way to it: nothing of them is in there then.
    [[nodiscard]] bool Append(std::string_view lines);

private:
    bool Open();
    void TurnOver();

    const std::string path_;
    const std::uintmax_t most_bytes_;
    std::ofstream file_;
    std::uintmax_t bytes_ = 0;
};

}  // namespace tarvex::host
