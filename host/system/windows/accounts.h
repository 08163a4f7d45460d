#pragma once

// Accounts of Windows: who a process or a token is.

#include <windows.h>

#include <string>

namespace tarvex::host {

// "S-1-5-..."; empty when that cannot be told.
std::string NumberOf(PSID user);

// That of the user of a token; empty when that cannot be told.
std::string UserOfToken(HANDLE token);
std::string UserOfProcess(HANDLE process);

// As whom this process works.
const std::string& OwnUser();

// The numbers of the accounts "NT SERVICE\Tarvex" and "NT SERVICE\TarvexConsole": "S-1-5-80-" and the SHA-1 of the
// service's name in capitals and UTF-16, as five numbers.
inline constexpr const char* kServiceUser = "S-1-5-80-922312200-3284093292-3566284977-1286675941-3760456741";
inline constexpr const char* kConsoleUser = "S-1-5-80-2423828384-73731415-3603655232-3919617735-4164702659";

inline constexpr const char* kSystemUser = "S-1-5-18";
inline constexpr const char* kAdministrators = "S-1-5-32-544";

// Whether the token that a thread has taken on is one of the administrators; a user account that could be, once it is
// asked, is not.
bool IsAdministrator(HANDLE impersonated);

// "taro" (UTF-8) of such a user; the number where there is no name.
std::string AccountName(const std::string& user);

}  // namespace tarvex::host
