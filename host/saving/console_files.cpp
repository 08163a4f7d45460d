// Keeps the console's files.

#include "host/saving/console_files.h"

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/private_folder.h"

namespace tarvex::host {
namespace {

PrivateFolder FolderIn(const std::string& directory) {
    return PrivateFolder(TreePath(directory) + "\\.tarvex\\console");
}

[[noreturn]] void CannotWrite(const std::string& directory) {
    throw CommandError(kCannotWrite, Tr("cannot write in \"{0}\"", ShowPath(directory + "/.tarvex/console")));
}

}  // namespace

std::optional<std::string> ReadConsoleFile(const std::string& directory, const std::string& name) {
    bool missing = false;
    auto content = FolderIn(directory).Read(name, missing);
    if (!content && !missing)
        throw CommandError(kCannotWrite, Tr("cannot read \"{0}\"", ShowPath(directory + "/.tarvex/console/" + name)));
    return content;
}

void WriteConsoleFile(const std::string& directory, const std::string& name, std::string_view content) {
    const PrivateFolder above(TreePath(directory) + "\\.tarvex");
    const PrivateFolder folder = FolderIn(directory);
    const std::string making = name + ".new";
    const bool written = above.Make() && folder.Make() && folder.Remove(making) && folder.WriteNew(making, content) &&
                         folder.Rename(making, name) && folder.Sync();
    if (!written) CannotWrite(directory);
}

std::string CodeFileOf(const std::string& user) { return user + ".code"; }

bool RemoveConsoleFile(const std::string& directory, const std::string& name) {
    if (!ReadConsoleFile(directory, name)) return false;
    const PrivateFolder folder = FolderIn(directory);
    if (!folder.Remove(name) || !folder.Sync()) CannotWrite(directory);
    return true;
}

}  // namespace tarvex::host
