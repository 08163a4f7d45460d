#pragma once

// What the console keeps in the tree: small files in ROOT/.tarvex/console, for their owner alone.
//
//     first          the digest of the code of the first login, and until when it holds
//     user0.code     the secret of a user's authenticator

#include <optional>
#include <string>
#include <string_view>

namespace tarvex::host {

// The content of a file; nothing when there is none. Throws CommandError when it cannot be read.
std::optional<std::string> ReadConsoleFile(const std::string& directory, const std::string& name);

// Replaces it, durably. Throws CommandError.
void WriteConsoleFile(const std::string& directory, const std::string& name, std::string_view content);

// The file of a user's authenticator, by the user's folder: "user0".
std::string CodeFileOf(const std::string& user);

// True when it was there and is gone for good. Throws CommandError.
bool RemoveConsoleFile(const std::string& directory, const std::string& name);

}  // namespace tarvex::host
