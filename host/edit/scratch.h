#pragma once

// Scratch folders: a command validates a value there, by saving and loading it, before it touches the tree.

#include <string>

#include "tarvex/text.h"

namespace tarvex::host {

// Removed with what it holds, unless the process is killed.
class ScratchFolder {
public:
    explicit ScratchFolder(const CString& parent);  // throws CommandError
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

// Removes the folders that killed commands left in the root. Only the holder of the lock may call it: for anybody else
// such a folder may be in use.
void SweepScratchFolders(const std::string& root);

}  // namespace tarvex::host
