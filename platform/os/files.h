#pragma once

// Files and directories. Every path may hold the backslash as separator; it is turned into the system's own form here,
// byte for byte, and nowhere else. Nothing throws but std::bad_alloc.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarvex {

bool PathExists(const std::string& path);

// Creates one directory (0700 on Linux) below an existing one. False when that fails or it exists.
bool CreateOneDirectory(const std::string& path);

struct DirectoryEntry {
    std::string name;
    bool is_directory = false;  // of what a link points to
};

// The entries of a directory whose names match the wildcard mask in the last component ("root\user*": * any text, ? one
// byte; case-sensitive on Linux), in the order in which the system returns them, "." and ".." included.
std::vector<DirectoryEntry> EnumerateDirectory(const std::string& mask);

// Removes a directory with everything in it; links are removed, not followed. Something that is no directory stays.
void DeleteDirectory(const std::string& path);

// The lines of a text file without their line ends (CR LF or LF; a lone CR is part of its line). A last line without a
// line end counts. Nothing when the file cannot be read to its end.
std::optional<std::vector<std::string>> ReadTextLines(const std::string& path);

enum class Durability {
    Synced,     // the new content survives a power failure once the call has returned
    NotSynced,  // after a power failure: the old or the new content
};

// Replaces the content of a text file, creating the file (0600 on Linux) when it is missing: each LF is written as CR
// LF. The new content is written to a file beside it (the path followed by ".new"), synced as asked, and renamed over
// the old one, so at every instant the file holds the old or the new content, whole. Mode and, where possible, owner of
// an existing file stay. Two writers of one file exclude each other. A left-over new file is replaced by the next call.
// False, with the old content in place, when that fails, and when the existing file is not writable or not a regular
// file.
[[nodiscard]] bool WriteTextFile(const std::string& path, std::string_view text, Durability durability);

// The directory of the running program, without a separator at its end.
std::string GetApplicationPath();

}  // namespace tarvex
