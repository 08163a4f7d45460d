#pragma once

// Accounts of Windows: who a process or a token is.

#include <windows.h>

#include <string>

namespace tarvex::host {

// "S-1-5-..." of the user of a token; empty when that cannot be told.
std::string UserOfToken(HANDLE token);
std::string UserOfProcess(HANDLE process);

// As whom this process works.
const std::string& OwnUser();

inline constexpr const wchar_t* kServiceAccount = L"NT SERVICE\\Tarvex";

// The number of that account; empty where there is none.
std::string ServiceUser();

inline constexpr const char* kSystemUser = "S-1-5-18";
inline constexpr const char* kAdministrators = "S-1-5-32-544";

// Whether the token that a thread has taken on is one of the administrators; a user account that could be, once it is
// asked, is not.
bool IsAdministrator(HANDLE impersonated);

// "taro" (UTF-8) of such a user; the number where there is no name.
std::string AccountName(const std::string& user);

}  // namespace tarvex::host
