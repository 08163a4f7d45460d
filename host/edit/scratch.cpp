// Makes scratch folders, and removes those that killed commands left.

#include "host/edit/scratch.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "host/language/tr.h"
#include "host/settings/file_names.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/error_words.h"
#include "host/system/paths.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kStart = ".tarvex-try-";

bool IsRecordFile(const fs::directory_entry& entry) {
    constexpr std::array<std::string_view, 3> kFiles = {kUserFile, kProfileFile, kForwardFile};
    std::string name = entry.path().filename().string();
    if (name.ends_with(".new")) name.resize(name.size() - 4);  // half written
    return entry.symlink_status().type() == fs::file_type::regular && std::ranges::count(kFiles, name) == 1;
}

// By its name, and that it holds nothing but what such a folder can hold.
bool IsLeftOver(const fs::directory_entry& folder) {
    const std::string name = folder.path().filename().string();
    return name.starts_with(kStart) && name.size() == kStart.size() + kChosenLetters &&
           folder.symlink_status().type() == fs::file_type::directory &&
           std::ranges::all_of(fs::directory_iterator(folder), IsRecordFile);
}

}  // namespace

ScratchFolder::ScratchFolder(const CString& parent) try : path_(MakeNewFolder(parent + '\\' + std::string(kStart))) {
} catch (const std::system_error& error) {
    throw CommandError(kCannotMake, Tr("cannot write in \"{0}\": {1}", ShowPath(parent), WordsOf(error.code())));
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(NativePath(path_), ignored);
}

void SweepScratchFolders(const std::string& root) {
    try {
        for (const fs::directory_entry& entry : fs::directory_iterator(NativePath(root))) {
            if (IsLeftOver(entry)) fs::remove_all(entry.path());
        }
    } catch (const fs::filesystem_error&) {
        // A folder that stays does no harm; the next command that works on the tree reports what is wrong with it.
    }
}

}  // namespace tarvex::host
