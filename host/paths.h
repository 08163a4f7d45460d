#pragma once

// Paths of the tree outside of the engine.

#include <filesystem>
#include <string>
#include <string_view>

namespace tarvex::host {

// A path of the tree in the system's own form.
std::filesystem::path NativePath(std::string_view path);

// The same as UTF-8, as far as it is text.
std::string PathAsUtf8(std::string_view path);

// A new folder among the temporary files, as a path of the tree. Throws std::system_error.
std::string MakeTemporaryFolder(const std::string& name);

}  // namespace tarvex::host
