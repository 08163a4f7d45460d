#pragma once

// Text of the system as UTF-8 and in its code page.

#include <windows.h>

#include <string>
#include <string_view>

namespace tarvex::host {

std::wstring Wide(unsigned code_page, std::string_view text);
std::string Narrow(unsigned code_page, std::wstring_view text);
inline std::string Utf8(std::wstring_view text) { return Narrow(CP_UTF8, text); }

// What the system says of an error, as UTF-8 and without a full stop.
std::string SystemMessage(DWORD error);

// The file of this program.
std::wstring ProgramFile();

}  // namespace tarvex::host
