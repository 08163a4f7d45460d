#pragma once

// What the tests of files share.

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/os/files.h"

namespace tarvex::testing {

using Lines = std::vector<std::string>;

inline bool Write(const std::string& path, const std::string& text) {
    return WriteTextFile(path, text, Durability::Synced);
}

inline Lines Names(const std::string& directory) {
    Lines names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// The entries, directories with a slash, in alphabetical order.
inline std::string Enumerated(const std::string& mask) {
    Lines names;
    for (const DirectoryEntry& entry : EnumerateDirectory(mask))
        names.push_back(entry.name + (entry.is_directory ? "/" : ""));
    std::sort(names.begin(), names.end());
    std::string joined;
    for (const std::string& name : names) joined += (joined.empty() ? "" : " ") + name;
    return joined;
}

}  // namespace tarvex::testing
