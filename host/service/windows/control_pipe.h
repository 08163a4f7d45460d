#pragma once

// The name of the pipe by which commands reach the service of a tree.

#include <string>

namespace tarvex::host {

// \\.\pipe\tarvex-<hash of the root's path>; empty when there is no root.
std::wstring PipeName(const std::string& root);

}  // namespace tarvex::host
