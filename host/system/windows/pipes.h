#pragma once

// Named pipes of a service: who may use one, and whether one is the service's.

#include <windows.h>

#include <string>

#include "host/system/windows/handle.h"

namespace tarvex::host {

// "\\.\pipe\name", of a name in UTF-8 without slashes.
std::wstring PipePath(const std::string& name);

// What a client needs of a pipe, and not more: to make another instance of it is the service's alone.
inline constexpr DWORD kPipeClientAccess =
    FILE_READ_DATA | FILE_WRITE_DATA | FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES | READ_CONTROL | SYNCHRONIZE;

// An instance of the pipe, which is read and written by overlapped operations. It is this user's; administrators may
// use it, and the account with the number `client` when there is one; from this machine alone. `first`: it must be the
// first one of that name. Throws std::system_error.
Handle MakePipe(const std::wstring& path, bool first, const std::string& client = {});

// Opens it. The service hears who this is, and cannot act as that user. Not open when that fails, with GetLastError.
Handle OpenPipe(const std::wstring& path);

// Whether a service works as this user whom a client trusts: the same user, the system, or the account of the service.
bool IsTrustedServer(const std::string& user);

// Whether that is so of the pipe's owner and, where it can be told, of the process behind it.
bool HasTrustedServer(HANDLE pipe);

}  // namespace tarvex::host
