// Makes the directories of new users, profiles and addresses, and takes away those of removed ones.

#include "host/saving/directories.h"

#include <filesystem>
#include <system_error>

#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/durable_files.h"
#include "host/system/error_words.h"
#include "host/system/paths.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;

fs::path Aside(const CString& directory) { return NativePath(directory) / ".tarvex-removed"; }

CommandError CannotMake(const CString& path, const std::error_code& error) {
    return {kCannotMake, "cannot make \"" + ShowPath(path) + "\": " + WordsOf(error)};
}

// Throws CommandError when the system does not tell: then it would tell of no other number either.
bool IsFree(const CString& path) {
    std::error_code error;
    const fs::file_type type = fs::symlink_status(NativePath(path), error).type();
    if (type == fs::file_type::none) throw CannotMake(path, error);
    return type == fs::file_type::not_found;
}

// Else something stands there that keeps its number: a file, a link that leads nowhere, a directory that cannot be
// looked into.
bool IsDirectoryWithout(const CString& path, const CString& marker) {
    std::error_code error;
    return fs::is_directory(NativePath(path), error) && !fs::exists(NativePath(path + '\\' + marker), error) && !error;
}

bool MoveTo(const CString& place, const CString& directory) {
    if (!DeleteAside(place)) return false;
    std::error_code error;
    fs::rename(NativePath(directory), Aside(place), error);
    return !error;
}

}  // namespace

NewDirectory::NewDirectory(const CString& parent, std::string_view prefix, const CString& marker) : parent_(parent) {
    for (int number = 0; !IsFree(path_ = parent + '\\' + CString(prefix) + std::to_string(number)); ++number) {
        was_there_ = IsDirectoryWithout(path_, marker);
        if (was_there_) return;
    }
    std::error_code error;
    fs::create_directory(NativePath(path_), error);
    if (!error) fs::permissions(NativePath(path_), fs::perms::owner_all, error);
    if (error) throw CannotMake(path_, error);
}

NewDirectory::~NewDirectory() {
    std::error_code ignored;
    if (!was_there_ && !kept_) fs::remove_all(NativePath(path_), ignored);
}

bool NewDirectory::Keep() {
    kept_ = true;
    return SyncDirectory(parent_);
}

Saved MoveAside(const CString& root, const CString& directory) {
    const CString parent = ParentOf(directory);
    const bool to_root = MoveTo(root, directory);
    if (!to_root && !MoveTo(parent, directory)) return Saved::No;
    // Where it was comes first: it must not come back without what is deleted next.
    const bool synced = SyncDirectory(parent) && (!to_root || SyncDirectory(root));
    return synced ? Saved::Yes : Saved::Unsynced;
}

bool DeleteAside(const CString& directory) {
    std::error_code error;
    fs::remove_all(Aside(directory), error);
    return !error;
}

}  // namespace tarvex::host
