// Finding and numbering the directories of the tree.

#include "store/children.h"

#include <cstdint>

#include "store/loaded.h"

namespace tarvex {
namespace {

CString Join(const CString& parent, std::string_view name) {
    CString path = parent;
    path += '\\';
    path += name;
    return path;
}

CString MarkerOf(const CString& directory, const ChildKind& kind) { return directory + std::string(kind.marker); }

}  // namespace

std::vector<CString> FindChildren(const CString& parent, const ChildKind& kind, CLoaded& loaded) {
    std::vector<CString> children;
    std::string why;
    const std::vector<DirectoryEntry> entries = EnumerateDirectory(Join(parent, kind.prefix) + '*', &why);
    if (!why.empty()) NoteUnread(loaded, parent, why);
    for (const DirectoryEntry& entry : entries) {
        CString path = Join(parent, entry.name);
        if (!entry.why_unseen.empty()) NoteUnread(loaded, path, entry.why_unseen);
        if (!entry.is_directory || entry.name == "." || entry.name == "..") continue;
        if (PathExists(MarkerOf(path, kind), &why)) {
            children.push_back(std::move(path));
        } else if (!why.empty()) {
            NoteUnread(loaded, path, why);
        }
    }
    return children;
}

std::optional<ChildDirectory> ClaimDirectory(const CString& parent, const ChildKind& kind) {
    const CString prefix = Join(parent, kind.prefix);
    for (std::uint64_t number = 0;; ++number) {
        CString path = prefix + std::to_string(number);
        if (!PathExists(path)) {
            if (CreateOneDirectory(path)) return ChildDirectory{std::move(path), false};
            if (!NameIsTaken(path)) return std::nullopt;
            continue;
        }
        std::string why;
        if (!PathExists(MarkerOf(path, kind), &why) && why.empty()) return ChildDirectory{std::move(path), true};
    }
}

}  // namespace tarvex
