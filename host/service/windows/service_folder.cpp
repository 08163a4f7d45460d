// The folder of the service's tree: whose it is, and who may use it.

#include <windows.h>
// Behind it.
#include <aclapi.h>
#include <sddl.h>
#include <shlobj.h>

#include <array>
#include <filesystem>
#include <memory>

#include "host/language/tr.h"
#include "host/service/windows/installed_service.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/windows/accounts.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

struct FreeLocal {
    void operator()(void* memory) const { LocalFree(memory); }
};
using Descriptor = std::unique_ptr<void, FreeLocal>;

[[noreturn]] void Refuse(const std::string& path, DWORD error) {
    throw CommandError(error == ERROR_ACCESS_DENIED ? kNotAllowed : kCannotMake,
                       Tr("cannot make the directory \"{0}\": {1}", ShowPath(path), SystemMessage(error)));
}

// Owned by administrators; for them and the service alone, and so for all that is made in it; nothing from above.
Descriptor OwnRights() {
    const std::string text = std::string("O:BAD:P(A;OICI;FA;;;BA)(A;OICI;FA;;;") + kServiceUser + ")";
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(text.c_str(), SDDL_REVISION_1, &descriptor, nullptr))
        throw CommandError(kBroken, "the rights of the service's folder cannot be read");
    return Descriptor(descriptor);
}

bool IsTrusted(const std::string& owner) {
    return owner == kAdministrators || owner == kSystemUser || owner == kServiceUser || owner == OwnUser();
}

// Everybody may make folders where Windows keeps the data of programs. What another user has put there is not ours.
void RequireTrustedOwner(const std::string& path) {
    const std::wstring wide = NativePath(path).native();
    const DWORD attributes = GetFileAttributesW(wide.c_str());
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD error = GetNamedSecurityInfoW(wide.c_str(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr,
                                              nullptr, nullptr, &descriptor);
    if (error != ERROR_SUCCESS) Refuse(path, error);
    const Descriptor freed(descriptor);
    const bool is_plain_folder =
        (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == FILE_ATTRIBUTE_DIRECTORY;
    if (is_plain_folder && IsTrusted(NumberOf(owner))) return;
    throw CommandError(kNotAllowed, Tr("\"{0}\" is there already and no administrator has made it; move it away first",
                                       ShowPath(path)));
}

// Also of what is in there: rights that are inherited come anew.
void SetRights(const std::string& path, const Descriptor& rights) {
    BOOL is_there = FALSE;
    BOOL is_default = FALSE;
    PACL list = nullptr;
    GetSecurityDescriptorDacl(rights.get(), &is_there, &list, &is_default);
    std::wstring wide = NativePath(path).native();
    const DWORD error = SetNamedSecurityInfoW(wide.data(), SE_FILE_OBJECT,
                                              DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, nullptr,
                                              nullptr, list, nullptr);
    if (error != ERROR_SUCCESS) Refuse(path, error);
}

}  // namespace

std::string ServiceFolder() {
    std::array<wchar_t, MAX_PATH> folder{};
    SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder.data());
    return Narrow(CP_ACP, folder.data()) + "\\Tarvex";
}

void MakeServiceFolder(const std::string& path) {
    const Descriptor rights = OwnRights();
    SECURITY_ATTRIBUTES attributes{sizeof attributes, rights.get(), FALSE};
    if (CreateDirectoryW(NativePath(path).c_str(), &attributes)) return;
    if (GetLastError() != ERROR_ALREADY_EXISTS) Refuse(path, GetLastError());
    RequireTrustedOwner(path);
    SetRights(path, rights);
}

}  // namespace tarvex::host
