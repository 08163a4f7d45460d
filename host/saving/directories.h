#pragma once

// Making and taking away the directories of a tree, so that a kill or a power failure at any moment leaves a thing
// whole or without what makes it count. By the holder of the root's lock.

#include <string>
#include <string_view>

#include "host/saving/saving.h"
#include "tarvex/text.h"

namespace tarvex::host {

// The directory of a new child: the lowest number that is free or has lost its marker file, as the tree itself counts.
// It counts once the marker file is there, so that is to be written last, and whole. Until it is kept, the object's end
// removes the directory, unless it was there before.
class NewDirectory {
public:
    // Throws CommandError when it cannot be made.
    NewDirectory(const CString& parent, std::string_view prefix, const CString& marker);
    ~NewDirectory();
    NewDirectory(const NewDirectory&) = delete;
    NewDirectory& operator=(const NewDirectory&) = delete;

    const CString& Path() const { return path_; }
    bool WasThere() const { return was_there_; }

    // The child is complete. False when its place in the parent may not survive a power failure.
    [[nodiscard]] bool Keep();

private:
    CString parent_;
    CString path_;
    bool was_there_ = false;
    bool kept_ = false;
};

// Moves a directory out of the tree in one step, to a place in the root for what is to be deleted, or to one beside it
// where the root is another file system.
[[nodiscard]] Saved MoveAside(const CString& root, const CString& directory);

// Deletes what is in that place, also what a killed command left there. False when something stays.
bool DeleteAside(const CString& directory);

}  // namespace tarvex::host
