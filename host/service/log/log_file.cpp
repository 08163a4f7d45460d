// Writes lines to a file, and turns it over when it is full.

#include "host/service/log/log_file.h"

#include <filesystem>
#include <system_error>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;

// Where its last whole line ends.
std::uintmax_t EndOfLines(const fs::path& path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    auto end = file ? static_cast<std::streamoff>(file.tellg()) : 0;
    for (char last = 0; end > 0; --end) {
        if (!file.seekg(end - 1) || !file.get(last) || last == '\n') break;
    }
    return static_cast<std::uintmax_t>(end);
}

}  // namespace

LogFile::LogFile(std::string path, std::uintmax_t most_bytes) : path_(std::move(path)), most_bytes_(most_bytes) {
    if (!Open()) throw CommandError(kCannotWrite, Tr("cannot write the log \"{0}\"", ShowPath(path_)));
}

bool LogFile::Open() {
    const fs::path path = NativePath(path_);
    std::error_code error;
    const bool is_new = !fs::exists(path, error);
    bytes_ = EndOfLines(path);
    if (!is_new && fs::file_size(path, error) != bytes_) fs::resize_file(path, bytes_, error);
    file_.clear();
    file_.open(path, std::ios::binary | std::ios::app);
    if (file_ && is_new) fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write, error);
    return file_.is_open() && !error;
}

bool LogFile::Append(std::string_view lines) {
    if (bytes_ > 0 && bytes_ + lines.size() > most_bytes_) TurnOver();
    if (!file_.is_open() && !Open()) return false;
    if (file_.write(lines.data(), static_cast<std::streamsize>(lines.size())).flush()) {
        bytes_ += lines.size();
        return true;
    }
    file_.close();  // opened again, it is cut
    std::error_code ignored;
    fs::resize_file(NativePath(path_), bytes_, ignored);
    return false;
}

// While somebody reads it, Windows does not let it be renamed: it grows, and is tried again at the next line. The place
// that the older ones have left for it stays free until then.
void LogFile::TurnOver() {
    file_.close();
    const auto name = [this](int number) { return NativePath(path_ + '.' + std::to_string(number)); };
    std::error_code error;
    int free = 1;
    while (free < kFormerLogFiles && fs::exists(name(free), error)) ++free;
    for (; free > 1; --free) fs::rename(name(free - 1), name(free), error);
    fs::rename(NativePath(path_), name(1), error);
    if (!Open()) file_.close();
}

}  // namespace tarvex::host
