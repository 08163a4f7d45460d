#pragma once

// The named pipe by which commands reach the service of a tree: its name, who may use it, and whether it is the
// service's.

#include <windows.h>

#include <string>

namespace tarvex::host {

// \\.\pipe\tarvex-<hash of the root's path>; empty when there is no root.
std::wstring PipeName(const std::string& root);

// What a command needs of the pipe, and not more: to make another instance of it is the service's alone.
inline constexpr DWORD kClientAccess =
    FILE_READ_DATA | FILE_WRITE_DATA | FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES | READ_CONTROL | SYNCHRONIZE;

// The access list of the pipe in the language of security descriptors: for this user, who owns it, and administrators.
std::wstring PipeSecurity();

// Whether a service works as this user whom a command trusts: the same user, the system, or the account of the service.
bool IsTrustedServer(const std::string& user);

// Whether that is so of the pipe's owner and, where it can be told, of the process behind it.
bool HasTrustedServer(HANDLE pipe);

}  // namespace tarvex::host
