// Reads the tree when it is another one than before.

#include "host/desk/read_tree.h"

#include "host/tree/tree_root.h"

namespace tarvex::host {

std::shared_ptr<const CRootPath> ReadTree::Now() {
    const std::lock_guard lock(mutex_);
    const auto now = std::chrono::steady_clock::now();
    const std::uint64_t changes = changes_();  // before the files are read
    if (tree_ && changes == changes_then_ && now - read_ < kOldest) return tree_;
    const auto tree = std::make_shared<CRootPath>();
    OpenTree(*tree, directory_);
    tree_ = tree;
    changes_then_ = changes;
    read_ = now;
    return tree_;
}

void ReadTree::Forget() {
    const std::lock_guard lock(mutex_);
    tree_.reset();
}

}  // namespace tarvex::host
