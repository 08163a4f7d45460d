#pragma once

// The texts of the system's own calls: UTF-16 inside, the system's code page in all that callers see.

#include <optional>
#include <string>
#include <string_view>

namespace tarvex {

// Nothing for a text that does not belong to the code page.
std::optional<std::wstring> ToWide(std::string_view text);

// Nothing for a text that the code page cannot express: such a name could not be used again.
std::optional<std::string> FromWide(std::wstring_view text);

// A path as the system takes it. Empty, so that every call refuses it, for one that holds a zero byte, of which the
// system would see only the part before, and for one that does not belong to the code page.
std::wstring NativePath(std::string_view path);

// The same path, from the root of its file system on and without "." and "..". Empty when there is none.
std::wstring FullPath(const std::wstring& path);

}  // namespace tarvex
