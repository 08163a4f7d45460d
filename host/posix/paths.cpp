#include "host/paths.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace tarvex::host {
namespace {

std::string WithSlashes(std::string_view path) {
    std::string native(path);
    std::ranges::replace(native, '\\', '/');
    return native;
}

}  // namespace

std::filesystem::path NativePath(std::string_view path) { return WithSlashes(path); }

std::string PathAsUtf8(std::string_view path) { return WithSlashes(path); }

std::string MakeTemporaryFolder(const std::string& name) {
    std::string folder = std::filesystem::temp_directory_path() / (name + "-XXXXXX");
    if (!mkdtemp(folder.data())) throw std::system_error(errno, std::generic_category(), "no folder " + folder);
    return folder;
}

}  // namespace tarvex::host
