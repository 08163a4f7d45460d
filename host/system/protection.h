#pragma once

// Secrets of the host's own on disk. On Windows the system's data protection guards them beside the rights of their
// file: they can be read on this machine and by this account alone. On POSIX they are as they are.

#include <optional>
#include <string>
#include <string_view>

namespace tarvex::host {

// As it is kept: a line of ASCII where the secret is one. Throws CommandError when the system does not protect it.
std::string Protect(std::string_view secret);

// The secret; one that was kept without protection, too. Nothing when it was protected for another account or machine.
std::optional<std::string> Unprotect(std::string_view kept);

}  // namespace tarvex::host
