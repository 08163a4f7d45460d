// The tree's paths are in the system's code page.

#include "host/paths.h"

#include <windows.h>

#include <random>
#include <system_error>

namespace tarvex::host {
namespace {

std::string Narrow(unsigned code_page, const std::wstring& text) {
    const int units = static_cast<int>(text.size());
    const int bytes = WideCharToMultiByte(code_page, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(code_page, 0, text.data(), units, narrow.data(), bytes, nullptr, nullptr);
    return narrow;
}

}  // namespace

std::filesystem::path NativePath(std::string_view path) {
    const int bytes = static_cast<int>(path.size());
    const int units = MultiByteToWideChar(CP_ACP, 0, path.data(), bytes, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(units), L'\0');
    MultiByteToWideChar(CP_ACP, 0, path.data(), bytes, wide.data(), units);
    return wide;
}

std::string PathAsUtf8(std::string_view path) { return Narrow(CP_UTF8, NativePath(path)); }

std::string MakeTemporaryFolder(const std::string& name) {
    const std::wstring number = std::to_wstring(std::random_device()());
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / (NativePath(name).wstring() + L"-" + number);
    if (!std::filesystem::create_directory(folder)) {
        throw std::system_error(std::make_error_code(std::errc::file_exists), "no folder " + folder.string());
    }
    return Narrow(CP_ACP, folder);
}

}  // namespace tarvex::host
