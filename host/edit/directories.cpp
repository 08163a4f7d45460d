// Makes and removes the directories of a tree.

#include "host/edit/directories.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;

fs::path Aside(const CString& root) { return NativePath(root) / ".tarvex-removed"; }

bool Exists(const CString& path) {
    std::error_code ignored;
    return fs::exists(NativePath(path), ignored);
}

}  // namespace

NewDirectory::NewDirectory(const CString& parent, std::string_view prefix, const CString& marker) {
    for (int number = 0; Exists(path_ = parent + '\\' + CString(prefix) + std::to_string(number)); ++number) {
        if (!Exists(path_ + '\\' + marker)) return;
    }
    std::error_code error;
    fs::create_directory(NativePath(path_), error);
    if (!error) fs::permissions(NativePath(path_), fs::perms::owner_all, error);
    if (error) throw CommandError(kCannotMake, "cannot make \"" + ShowPath(path_) + "\": " + error.message());
    goes_ = true;
}

NewDirectory::~NewDirectory() {
    std::error_code ignored;
    if (goes_) fs::remove_all(NativePath(path_), ignored);
}

void MoveAside(const CString& root, const CString& directory) {
    if (!DeleteAside(root)) return;
    std::error_code ignored;
    fs::rename(NativePath(directory), Aside(root), ignored);
}

bool DeleteAside(const CString& root) {
    std::error_code error;
    fs::remove_all(Aside(root), error);
    return !error;
}

}  // namespace tarvex::host
