// Finding and numbering the directories of the tree.

#include "store/children.h"

#include <cstdint>

namespace tarvex {
namespace {

CString Join(const CString& parent, std::string_view name) {
    CString path = parent;
    path += '\\';
    path += name;
    return path;
}

bool HasMarker(const CString& directory, const ChildKind& kind) {
    return PathExists(directory + std::string(kind.marker));
}

}  // namespace

std::vector<CString> FindChildren(const CString& parent, const ChildKind& kind) {
    std::vector<CString> children;
    for (const DirectoryEntry& entry : EnumerateDirectory(Join(parent, kind.prefix) + '*')) {
        if (!entry.is_directory || entry.name == "." || entry.name == "..") continue;
        CString path = Join(parent, entry.name);
        if (HasMarker(path, kind)) children.push_back(std::move(path));
    }
    return children;
}

std::optional<ChildDirectory> ClaimDirectory(const CString& parent, const ChildKind& kind) {
    const CString prefix = Join(parent, kind.prefix);
    for (std::uint64_t number = 0;; ++number) {
        CString path = prefix + std::to_string(number);
        if (!PathExists(path)) {
            if (!CreateOneDirectory(path)) return std::nullopt;
            return ChildDirectory{std::move(path), false};
        }
        if (!HasMarker(path, kind)) return ChildDirectory{std::move(path), true};
    }
}

}  // namespace tarvex
