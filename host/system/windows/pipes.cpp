// Makes and opens named pipes, and says whom to trust at their ends.

#include "host/system/windows/pipes.h"

#include <aclapi.h>
#include <sddl.h>

#include <array>
#include <cstdio>
#include <system_error>

#include "host/system/windows/accounts.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

constexpr DWORD kBuffer_bytes = 64 << 10;

std::system_error Failure() { return {static_cast<int>(GetLastError()), std::system_category()}; }

// In the language of security descriptors.
std::wstring Security(const std::string& client) {
    std::array<char, 16> access{};
    std::snprintf(access.data(), access.size(), "0x%lx", kPipeClientAccess);
    const std::string may_use = std::string("(A;;") + access.data() + ";;;";
    const std::string& own = OwnUser();
    std::string text = "O:" + own + "D:P(A;;GA;;;" + own + ")" + may_use + "BA)";
    if (!client.empty()) text += may_use + client + ")";
    return Wide(CP_UTF8, text);
}

std::string OwnerOf(HANDLE pipe) {
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR security = nullptr;
    if (GetSecurityInfo(pipe, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr, nullptr,
                        &security) != ERROR_SUCCESS)
        return {};
    const std::string user = NumberOf(owner);
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

std::wstring PipePath(const std::string& name) { return L"\\\\.\\pipe\\" + Wide(CP_UTF8, name); }

Handle MakePipe(const std::wstring& path, bool first, const std::string& client) {
    SECURITY_ATTRIBUTES attributes{sizeof attributes, nullptr, FALSE};
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(Security(client).c_str(), SDDL_REVISION_1,
                                                              &attributes.lpSecurityDescriptor, nullptr))
        throw Failure();
    const DWORD open = PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | (first ? FILE_FLAG_FIRST_PIPE_INSTANCE : 0);
    constexpr DWORD kMode = PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS;
    Handle pipe(CreateNamedPipeW(path.c_str(), open, kMode, PIPE_UNLIMITED_INSTANCES, kBuffer_bytes, kBuffer_bytes, 0,
                                 &attributes));
    const std::system_error failure = Failure();
    LocalFree(attributes.lpSecurityDescriptor);
    if (!pipe.IsOpen()) throw failure;
    return pipe;
}

Handle OpenPipe(const std::wstring& path) {
    constexpr DWORD kFlags = FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION;
    return Handle(CreateFileW(path.c_str(), kPipeClientAccess, 0, nullptr, OPEN_EXISTING, kFlags, nullptr));
}

bool IsTrustedServer(const std::string& user) {
    return !user.empty() && (user == OwnUser() || user == kSystemUser || user == kServiceUser);
}

// Nobody but the system and administrators can name another one as the owner of what he makes.
bool HasTrustedServer(HANDLE pipe) {
    if (!IsTrustedServer(OwnerOf(pipe))) return false;
    const std::string server = ServerOf(pipe);
    return server.empty() || IsTrustedServer(server);
}

}  // namespace tarvex::host
