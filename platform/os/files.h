#pragma once

// Files and directories. Every path may hold the backslash as separator; it is turned into the system's own form here,
// byte for byte, and nowhere else. A path that holds a zero byte names nothing. Nothing throws but std::bad_alloc,
// which stands for file descriptors that have run out as well, and on Windows for a listing that breaks off. There a
// path has at most 259 characters. Thread-safe.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarvex {

// In the functions below, `why` may be null. It becomes the system's words when something is there, or may be there,
// that could not be looked at, and empty in every other case: also when there is nothing.

// A link that leads nowhere does not exist.
bool PathExists(const std::string& path, std::string* why = nullptr);

// Whether a directory holds this name, whatever it stands for: a link that leads nowhere counts.
bool NameIsTaken(const std::string& path);

// Creates one directory (0700 on Linux) below an existing one. False when that fails or it exists.
bool CreateOneDirectory(const std::string& path);

// Identifies a directory, also when another one takes its path later.
struct DirectoryIdentity {
    std::uint64_t device = 0;
    std::uint64_t number = 0;
    std::int64_t made_s = 0;  // numbers are used again; the moment of its making, where the file system keeps it
    std::uint32_t made_ns = 0;

    bool operator==(const DirectoryIdentity&) const = default;
};

// All zero when there is nothing at the path.
DirectoryIdentity IdentifyDirectory(const std::string& path);

struct DirectoryEntry {
    std::string name;
    bool is_directory = false;  // of what a link points to
    std::string why_unseen;     // the system's words when it does not tell whether this is a directory
};

// The entries of a directory whose names match the wildcard mask in the last component ("root\user*": * any text, ? one
// byte, case-sensitive; on Windows ? is one character, and short names match as well), in the order in which the system
// returns them, "." and ".." included. On Linux a name that holds a backslash itself is left out, since no path could
// name it. Empty when the directory cannot be read. `why` is set as well when the listing breaks off.
std::vector<DirectoryEntry> EnumerateDirectory(const std::string& mask, std::string* why = nullptr);

// Removes a directory with everything in it, as far as the system allows. Links are removed, not followed: a path that
// is a link to a directory loses only the link. Something that is no directory stays, and so does the root of the file
// system. The file `first` goes first, so that what a crash leaves is without it.
void DeleteDirectory(const std::string& path, std::string_view first = {});

// The lines of a text file without their line ends (CR LF or LF; a lone CR is part of its line). A last line without a
// line end counts. Nothing when the file cannot be read to its end or is no regular file.
std::optional<std::vector<std::string>> ReadTextLines(const std::string& path, std::string* why = nullptr);

enum class Durability {
    Synced,             // the new content survives a power failure once the call has returned
    SyncedWhenChanged,  // as Synced, but a file that holds the new content already is left alone without waiting for
                        // the disk: after a power failure it may hold what an interrupted writer had just replaced
    NotSynced,          // after a power failure: the old content, the new one or, on some file systems, none
};

// Replaces the content of a text file, creating the file (0600 on Linux) when it is missing: each LF is written as CR
// LF. The new content is written to a file beside it (the path followed by ".new"), synced as asked, and renamed over
// the old one, so at every instant the file holds the old or the new content, whole. Mode and, where possible, owner of
// an existing file stay. Of a link the file that it leads to is replaced. Two writers of one file exclude each other. A
// left-over new file is replaced by the next call.
//
// False, with the old content in place, when that fails, and when the existing file is not writable or not a regular
// file. False as well when only the last step fails, the sync of the new name: the new content is then in place, and a
// power failure may bring the old one back.
[[nodiscard]] bool WriteTextFile(const std::string& path, std::string_view text, Durability durability);

// What follows the last backslash of a path, and the whole of one without.
std::string LastComponent(const std::string& path);

// The directory of the running program, without a separator at its end. Empty when the system does not tell.
std::string GetApplicationPath();

}  // namespace tarvex
