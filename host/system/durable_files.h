#pragma once

// Files that are read whole, and replaced whole so that the new content survives a power failure.

#include <optional>
#include <string>
#include <string_view>

namespace tarvex::host {

// What became of a save.
enum class Saved {
    No,        // all is as it was
    Unsynced,  // the change is made, but may not survive a power failure
    Yes,
};

// The bytes of a file, by its path in the tree's form; nothing when there is none. Throws CommandError (kCannotWrite)
// when something is there that cannot be read.
std::optional<std::string> ReadWholeFile(const std::string& path);

// Who may read a file that is replaced. One that is new is for its owner alone.
enum class Readers { AsBefore, OwnerAlone };

// Replaces the file, or makes it. After a crash at any instant it has the old or the new content.
// Behind a link the file is replaced, and the link stays. Not by two callers at once.
[[nodiscard]] Saved ReplaceContent(const std::string& path, std::string_view content,
                                   Readers readers = Readers::AsBefore);

// Waits until the entries of the directory are on disk. False when that fails.
[[nodiscard]] bool SyncDirectory(const std::string& directory);

}  // namespace tarvex::host
