#pragma once

// Paths of the tree outside of the engine.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

namespace tarvex::host {

// A path of the tree in the system's own form.
std::filesystem::path NativePath(std::string_view path);

// The directory of something in the tree.
inline std::string ParentOf(const std::string& path) { return path.substr(0, path.rfind('\\')); }

// A path of the tree as UTF-8, as far as it is text.
std::string PathAsUtf8(std::string_view path);

// A path that somebody typed (UTF-8) as a path of the tree. Throws CommandError when the system's code page cannot
// express it.
std::string TreePath(std::string_view typed);

// The same, whole and without a slash at its end, for one that may be relative to the current directory.
std::string WholePath(const std::string& path);

// Creates a private folder named `start` plus random letters (like mkdtemp), and returns its path in the tree's form.
// Throws std::system_error.
inline constexpr std::size_t kChosenLetters = 6;
std::string MakeNewFolder(const std::string& start);

// Where temporary files go, as a path of the tree. Throws std::system_error.
std::string TemporaryDirectory();

// The file of this program, as its command line would name it; empty when the system does not tell.
std::string ProgramPath();

// The directory that this program's file lies in, as a path of the tree; empty when the system does not tell.
std::string ProgramDirectory();

// Makes what is missing of a directory, for its owner alone.
std::error_code MakeOwnDirectories(const std::string& directory);

// Takes room for a file of so many bytes that does not stay, in one call and without writing; what was there is gone
// afterwards. An error when there is none.
std::error_code ReserveRoom(const std::filesystem::path& file, std::uintmax_t bytes);

// A text that differs for two directories that have had the same path one after the other; empty when unknown.
std::string DirectoryIdentity(std::string_view path);

}  // namespace tarvex::host
