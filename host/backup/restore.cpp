// Unpacks the archive of a backup into a folder beside the place that the tree is to have, and renames it there once it
// is whole and on disk. So whatever ends the command leaves no tree, or the whole one.

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <system_error>

#include "host/backup/backup.h"
#include "host/language/tr.h"
#include "host/memory/copy_journal.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/durable_files.h"
#include "host/system/error_words.h"
#include "host/system/paths.h"
#include "host/system/private_folder.h"
#include "host/system/tree_owner.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;

CommandError CannotMake(const std::string& what) {
    return {kCannotMake, Tr("cannot make {0}; nothing was restored", what)};
}

std::string WithBackslashes(std::string name) {
    std::ranges::replace(name, '/', '\\');
    return name;
}

// Removed with all that it holds, unless it was kept.
class Scratch {
public:
    explicit Scratch(const std::string& beside) try : path_(MakeNewFolder(beside + ".restore-")) {
    } catch (const std::system_error& error) {
        throw CannotMake(Tr("a folder beside \"{0}\": {1}", ShowPath(beside), WordsOf(error.code())));
    }
    ~Scratch() {
        std::error_code ignored;
        if (!path_.empty()) fs::remove_all(NativePath(path_), ignored);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    const std::string& Path() const { return path_; }
    void Keep() { path_.clear(); }

private:
    std::string path_;
};

class Unpacker {
public:
    explicit Unpacker(std::string root) : root_(std::move(root)) {}

    void Write(const ArchiveEntry& entry) {
        const std::size_t slash = entry.name.rfind('/');
        const std::string folder = slash == std::string::npos ? "" : entry.name.substr(0, slash);
        MakeFolder(folder);
        const std::string name = entry.name.substr(slash + 1);  // all of it without a slash
        if (PrivateFolder(In(folder)).WriteNew(TreePath(name), entry.content)) return;
        std::error_code error;
        if (fs::exists(NativePath(In(entry.name)), error)) {
            throw CommandError(kBadData,
                               Tr("\"{0}\" is in the archive twice; nothing was restored", ShowUtf8Text(entry.name)));
        }
        throw CannotMake('"' + ShowUtf8Text(entry.name) + '"');
    }

    // What a new name needs to survive a power failure.
    bool Sync() const {
        bool synced = SyncDirectory(root_);
        for (const std::string& folder : folders_) synced = SyncDirectory(In(folder)) && synced;
        return synced;
    }

private:
    // Each name is one that IsNameOfTree.
    std::string In(const std::string& name) const {
        return name.empty() ? root_ : root_ + '\\' + TreePath(WithBackslashes(name));
    }

    void MakeFolder(const std::string& folder) {
        if (folder.empty() || !folders_.insert(folder).second) return;
        const std::size_t slash = folder.rfind('/');
        if (slash != std::string::npos) MakeFolder(folder.substr(0, slash));
        if (!PrivateFolder(In(folder)).Make()) throw CannotMake('"' + ShowUtf8Text(folder) + '"');
    }

    std::string root_;
    std::set<std::string> folders_;
};

// The journal names folders as they were. The databases notice by themselves that the tree is another one.
void NameFoldersAnew(const std::string& root) {
    CopyJournal journal(root);
    std::vector<SentCopy> copies = journal.Read();
    if (copies.empty()) return;
    for (SentCopy& copy : copies) copy.profile = NameOfProfile(root + '\\' + WithBackslashes(copy.profile.path));
    journal.Empty();
    const std::string file = root + "\\.tarvex\\sent.recent";
    const bool written = journal.Add(copies);
    // Once more, synced.
    if (!written || ReplaceContent(file, ReadWholeFile(file).value_or("")) != Saved::Yes) {
        throw CannotMake("\".tarvex/sent.recent\"");
    }
}

bool IsEmpty(const std::string& directory) {
    std::error_code error;
    return fs::is_directory(NativePath(directory), error) && fs::is_empty(NativePath(directory), error) && !error;
}

void RequirePlace(const std::string& directory) {
    std::error_code error;
    const fs::file_type type = fs::symlink_status(NativePath(directory), error).type();
    if (type == fs::file_type::not_found || (type == fs::file_type::directory && IsEmpty(directory))) return;
    throw CommandError(kCannotMake, Tr("\"{0}\" is there and is no empty directory; move it away first, or name "
                                       "another place. Nothing was restored",
                                       ShowPath(directory)));
}

// Where a system does not rename over an empty directory, that goes first.
void Rename(const std::string& from, const std::string& to) {
    std::error_code error;
    fs::rename(NativePath(from), NativePath(to), error);
    if (!error) return;
    std::error_code ignored;
    if (fs::remove(NativePath(to), ignored)) fs::rename(NativePath(from), NativePath(to), error);
    if (error) throw CannotMake('"' + ShowPath(to) + "\": " + WordsOf(error));
}

}  // namespace

std::uint64_t Restore(std::istream& input, const std::string& directory) {
    ArchiveReader archive(input);
    RequirePlace(directory);
    const std::string parent = WholePath(directory + "/..");
    WorkAsOwnerOf(parent);
    Scratch scratch(directory);
    Unpacker unpacker(scratch.Path());
    std::uint64_t files = 0;
    for (; const auto entry = archive.Next(); ++files) unpacker.Write(*entry);
    if (files == 0) throw CommandError(kBadData, Tr("the archive holds no tree; nothing was restored"));
    NameFoldersAnew(scratch.Path());
    if (!unpacker.Sync()) throw CannotMake(Tr("the tree so that it stays"));
    std::error_code error;
    if (fs::exists(NativePath(directory), error) && !GiveToOwnerOf(directory, scratch.Path())) {
        throw CannotMake(Tr("it the same owner's as \"{0}\"", ShowPath(directory)));
    }
    Rename(scratch.Path(), directory);
    scratch.Keep();
    if (SyncDirectory(parent)) return files;
    throw CommandError(
        kCannotWrite,
        Tr("the tree was restored, but may not survive a power failure: \"{0}\" cannot be synced", ShowPath(parent)));
}

}  // namespace tarvex::host
