#include "host/scratch.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "host/display.h"
#include "host/paths.h"
#include "host/trouble.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kName = ".tarvex-try-XXXXXX";
constexpr std::size_t kChosenLetters = 6;  // by mkdtemp

bool IsRecordFile(const fs::directory_entry& entry) {
    constexpr std::array<std::string_view, 3> kFiles = {"userset.def", "popprofile.def", "forwardaddress.def"};
    std::string name = entry.path().filename();
    if (name.ends_with(".new")) name.resize(name.size() - 4);  // half written
    return entry.symlink_status().type() == fs::file_type::regular && std::ranges::count(kFiles, name) == 1;
}

// By its name, its owner, and that it holds nothing but what such a folder can hold.
bool IsLeftOver(const fs::path& folder) {
    const std::string name = folder.filename();
    if (name.size() != kName.size() || !name.starts_with(kName.substr(0, kName.size() - kChosenLetters))) return false;
    struct stat status {};
    if (lstat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || status.st_uid != geteuid()) return false;
    return std::ranges::all_of(fs::directory_iterator(folder), IsRecordFile);
}

}  // namespace

ScratchFolder::ScratchFolder(const CString& parent) : path_(NativePath(parent) / kName) {
    if (mkdtemp(path_.data())) return;
    throw Trouble(kCannotMake, "cannot write in " + QuotedPath(parent) + ": " + std::generic_category().message(errno));
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

void SweepScratchFolders(const std::string& root) {
    try {
        for (const fs::directory_entry& entry : fs::directory_iterator(NativePath(root))) {
            if (IsLeftOver(entry.path())) fs::remove_all(entry.path());
        }
    } catch (const fs::filesystem_error&) {
        // What cannot be removed does no harm, and whoever has to work on the tree finds out what is wrong with it.
    }
}

}  // namespace tarvex::host
