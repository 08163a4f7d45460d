#pragma once

// A copy of a tree that keeps what its addresses have received, made while the tree is in use.

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

#include "host/backup/archive.h"
#include "tarvex/tree.h"

namespace tarvex::host {

struct BackedUp {
    std::size_t profiles = 0;
    std::vector<std::string> left_out;  // what lies in the root and is not Tarvex's, fit to be shown
};

// Writes what the tree holds, and the archive's end. Throws CommandError when something of it cannot be read: then the
// archive is not whole. Takes no lock.
BackedUp BackUp(const CRootPath& root, ArchiveWriter& archive);

// Makes the tree of an archive at a place where nothing is, or an empty directory, whose owner it then gets. Throws
// CommandError; then all is as it was. Returns how many files there are.
std::uint64_t Restore(std::istream& input, const std::string& directory);

}  // namespace tarvex::host
