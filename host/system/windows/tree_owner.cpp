// Where settings and trees are on Windows.

#include "host/system/tree_owner.h"

#include <cstdlib>

namespace tarvex::host {
namespace {

// Every account has them; their values are in the system's code page.
std::string FolderOf(const char* variable) {
    const char* const value = std::getenv(variable);
    return std::string(value ? value : "C:") + "\\Tarvex";
}

}  // namespace

std::string ConfigurationDirectory() { return FolderOf("APPDATA"); }

std::string UsualRootDirectory() { return FolderOf("LOCALAPPDATA"); }

std::string ServiceRootDirectory() { return {}; }

void WorkAsOwnerOf(const std::string&) {}

AsOwnerOf::AsOwnerOf(const std::string&) {}

AsOwnerOf::~AsOwnerOf() = default;

bool GiveToOwnerOf(const std::string&, const std::string&) { return true; }

bool EverybodyMayRead(const std::string&) { return false; }

std::string RemarkOnOtherTrees() { return {}; }

}  // namespace tarvex::host
