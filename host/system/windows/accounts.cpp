// Looks up who processes, tokens and accounts are.

#include "host/system/windows/accounts.h"

#include <sddl.h>

#include <array>
#include <cstddef>
#include <vector>

#include "host/system/windows/handle.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
std::string NumberOf(PSID user) {
    char* text = nullptr;
    if (!user || !ConvertSidToStringSidA(user, &text)) return {};
    std::string number = text;
    LocalFree(text);
    return number;
}

std::string UserOfToken(HANDLE token) {
    DWORD size = 0;
    GetTokenInformation(token, TokenUser, nullptr, 0, &size);
    std::vector<std::max_align_t> room(size / sizeof(std::max_align_t) + 1);
    if (!GetTokenInformation(token, TokenUser, room.data(), size, &size)) return {};
    return NumberOf(reinterpret_cast<const TOKEN_USER*>(room.data())->User.Sid);
}

std::string UserOfProcess(HANDLE process) {
    HANDLE token = nullptr;
    if (!OpenProcessToken(process, TOKEN_QUERY, &token)) return {};
    return UserOfToken(Handle(token).Get());
}

const std::string& OwnUser() {
    static const std::string user = UserOfProcess(GetCurrentProcess());
    return user;
}

bool IsAdministrator(HANDLE impersonated) {
    PSID administrators = nullptr;
    if (!ConvertStringSidToSidA(kAdministrators, &administrators)) return false;
    BOOL is_member = FALSE;
    const bool is_told = CheckTokenMembership(impersonated, administrators, &is_member) != 0;
    LocalFree(administrators);
    return is_told && is_member;
}

std::string AccountName(const std::string& user) {
    PSID number = nullptr;
    if (!ConvertStringSidToSidA(user.c_str(), &number)) return user;
    std::array<wchar_t, 257> name{};
    std::array<wchar_t, 257> domain{};
    DWORD name_size = name.size();
    DWORD domain_size = domain.size();
    SID_NAME_USE use{};
    const bool is_known =
        LookupAccountSidW(nullptr, number, name.data(), &name_size, domain.data(), &domain_size, &use) != 0;
    LocalFree(number);
    return is_known ? Utf8(name.data()) : user;
}

}  // namespace tarvex::host
