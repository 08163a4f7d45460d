#pragma once

// The children of a directory of the tree, the same on its three levels: finding, numbering and deleting their
// directories. Unless noexcept, these throw std::bad_alloc.

#include <algorithm>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/os/files.h"
#include "platform/os/shield.h"
#include "tarvex/loaded.h"
#include "tarvex/text.h"

namespace tarvex {

struct ChildKind {
    std::string_view prefix;  // of the directory's name
    std::string_view marker;  // the file that makes the directory count, with its leading backslash
};

inline constexpr ChildKind kUser{"user", "\\userset.def"};
inline constexpr ChildKind kPopProfile{"from", "\\popprofile.def"};
inline constexpr ChildKind kForwardAddress{"forwardto", "\\forwardaddress.def"};

// The paths of the child directories that hold their marker file, in the order in which the system lists them. A
// directory that cannot be looked into is none of them; `loaded` tells of it.
std::vector<CString> FindChildren(const CString& parent, const ChildKind& kind, CLoaded& loaded);

// A directory for a new child.
struct ChildDirectory {
    CString path;
    bool taken_over = false;  // it was there, without its marker file; what it holds stays
};

// The directory with the lowest number that is free or has no marker file; created when it is free. Nothing when it
// cannot be created. Only the name is tested: a plain file is taken over like a directory (B25). A link that leads
// nowhere and a directory that cannot be looked into keep their number: what they stand for may come back.
std::optional<ChildDirectory> ClaimDirectory(const CString& parent, const ChildKind& kind);

// A new child whose directory is `path`: `open` loads what the directory holds.
template <class Child>
std::unique_ptr<Child> OpenChild(const CString& path, void (*open)(Child&, const CString&)) {
    auto child = std::make_unique<Child>();
    open(*child, path);
    return child;
}

// Appends the children that the parent's directory holds; all of them or, when memory runs out, none. `loaded` becomes
// what the listing came to.
template <class Child>
void AppendChildren(std::vector<std::unique_ptr<Child>>& children, CLoaded& loaded, const CString& parent,
                    const ChildKind& kind, void (*open)(Child&, const CString&)) {
    CLoaded listing;
    const std::vector<CString> paths = FindChildren(parent, kind, listing);
    std::vector<std::unique_ptr<Child>> found;
    found.reserve(paths.size());
    for (const CString& path : paths) found.push_back(OpenChild(path, open));
    children.reserve(children.size() + found.size());
    std::ranges::move(found, std::back_inserter(children));
    loaded = std::move(listing);
}

// Creates a child: claims a directory, loads what it holds already, lets `fill` set the fields of its settings, and
// saves them, which writes the marker file. When that save fails, the child lives in memory until the tree is loaded
// again (B25). Null when no directory can be created.
template <class Child, class Fill>
Child* CreateChild(std::vector<std::unique_ptr<Child>>& children, const CString& parent, const ChildKind& kind,
                   void (*open)(Child&, const CString&), Fill fill) {
    const std::optional<ChildDirectory> directory = ClaimDirectory(parent, kind);
    if (!directory) return nullptr;
    std::unique_ptr<Child> child = OpenChild(directory->path, open);
    fill(child->setting, directory->taken_over);
    children.reserve(children.size() + 1);
    child->SaveSetting();
    children.push_back(std::move(child));
    return children.back().get();
}

// Deletes one of the children, in memory and, as far as that succeeds, on disk, the marker file first: what a crash
// leaves does not count. Returns 0 when it is none of them.
template <class Child>
int DeleteChild(std::vector<std::unique_ptr<Child>>& children, const ChildKind& kind, const Child* child) noexcept {
    const auto found = std::ranges::find(children, child, &std::unique_ptr<Child>::get);
    if (found == children.end()) return 0;
    const std::unique_ptr<Child> removed = std::move(*found);
    children.erase(found);
    Shielded([&] { DeleteDirectory(removed->path, kind.marker.substr(1)); });
    return 1;
}

}  // namespace tarvex
