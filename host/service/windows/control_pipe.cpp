// Names the pipe of a tree.

#include "host/service/windows/control_pipe.h"

#include <openssl/evp.h>
#include <windows.h>

#include <array>
#include <span>

#include "host/system/hexadecimal.h"
#include "host/system/paths.h"
#include "host/system/windows/pipes.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

// One folder has one: long names, and where links lead.
std::wstring FinalPath(const std::string& root) {
    constexpr DWORD kShared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const Handle folder(
        CreateFileW(NativePath(root).c_str(), 0, kShared, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    std::array<wchar_t, 1024> path;
    const DWORD size = folder.IsOpen() ? GetFinalPathNameByHandleW(folder.Get(), path.data(), path.size(), 0) : 0;
    return size < path.size() ? std::wstring(path.data(), size) : std::wstring();
}

std::wstring InUpperCase(const std::wstring& text) {
    const int size = static_cast<int>(text.size());
    std::wstring upper(text.size(), L'\0');
    LCMapStringW(LOCALE_INVARIANT, LCMAP_UPPERCASE, text.data(), size, upper.data(), size);
    return upper;
}

std::string HashOf(const std::string& text) {
    constexpr std::size_t kBytes = 16;  // are enough for what is no secret
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
    return Hexadecimal(std::span(digest).first(kBytes));
}

}  // namespace

std::wstring PipeName(const std::string& root) {
    const std::wstring path = FinalPath(root);
    if (path.empty()) return {};
    return PipePath("tarvex-" + HashOf(Utf8(InUpperCase(path))));
}

}  // namespace tarvex::host
