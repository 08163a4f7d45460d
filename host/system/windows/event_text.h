#pragma once

// What entries in Windows' event log are made of.

#include <string>
#include <string_view>

namespace tarvex::host {

inline constexpr const wchar_t* kEventSource = L"Tarvex";

// A text (UTF-8) as an entry may have it: cut where it is too long, and without what looks like a place for a text
// ("%1"), which who shows an entry would replace.
std::wstring EventText(std::string_view text);

}  // namespace tarvex::host
