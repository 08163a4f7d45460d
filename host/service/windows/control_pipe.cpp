// Names the pipe of a tree, and says whom to trust at its ends.

#include "host/service/windows/control_pipe.h"

#include <aclapi.h>
#include <openssl/evp.h>
#include <sddl.h>

#include <array>
#include <cstdio>

#include "host/system/paths.h"
#include "host/system/windows/accounts.h"
#include "host/system/windows/handle.h"
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
    std::array<char, 2 * kBytes + 1> digits{};
    for (std::size_t i = 0; i < kBytes; ++i) std::snprintf(&digits[2 * i], 3, "%02x", digest[i]);
    return digits.data();
}

std::string OwnerOf(HANDLE pipe) {
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR security = nullptr;
    if (GetSecurityInfo(pipe, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr, nullptr,
                        &security) != ERROR_SUCCESS)
        return {};
    char* text = nullptr;
    const std::string user = owner && ConvertSidToStringSidA(owner, &text) ? text : "";
    LocalFree(text);
    LocalFree(security);
    return user;
}

// Empty where this user may not ask.
std::string ServerOf(HANDLE pipe) {
    ULONG number = 0;
    if (!GetNamedPipeServerProcessId(pipe, &number)) return {};
    const Handle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, number));
    return process.IsOpen() ? UserOfProcess(process.Get()) : std::string();
}

}  // namespace

std::wstring PipeName(const std::string& root) {
    const std::wstring path = FinalPath(root);
    if (path.empty()) return {};
    return L"\\\\.\\pipe\\tarvex-" + Wide(CP_UTF8, HashOf(Utf8(InUpperCase(path))));
}

std::wstring PipeSecurity() {
    std::array<char, 16> access{};
    std::snprintf(access.data(), access.size(), "0x%lx", kClientAccess);
    const std::string& own = OwnUser();
    return Wide(CP_UTF8, "O:" + own + "D:P(A;;GA;;;" + own + ")(A;;" + access.data() + ";;;BA)");
}

bool IsTrustedServer(const std::string& user) {
    return !user.empty() && (user == OwnUser() || user == kSystemUser || user == ServiceUser());
}

// Nobody but the system and administrators can name another one as the owner of what he makes.
bool HasTrustedServer(HANDLE pipe) {
    if (!IsTrustedServer(OwnerOf(pipe))) return false;
    const std::string server = ServerOf(pipe);
    return server.empty() || IsTrustedServer(server);
}

}  // namespace tarvex::host
