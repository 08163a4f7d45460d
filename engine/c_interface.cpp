// The interface for C: handles over the tree. The operations of the tree throw nothing; making a handle may.

#include <algorithm>
#include <memory>
#include <string>

#include "platform/os/files.h"
#include "platform/os/shield.h"
#include "tarvex/tarvex.h"
#include "tarvex/tarvex_c.h"

struct tarvex_root {
    CRootPath tree;
};

namespace tarvex {
namespace {

constexpr int kFailed = -1;

thread_local const char* last_error = "";

bool IsRoot(const tarvex_root* root) {
    if (!root) last_error = "The root is null.";
    return root != nullptr;
}

tarvex_root* Open(const char* directory) {
    if (PathExists(directory) && !PathExists(std::string(directory) + "\\")) {
        last_error = "The root is not a directory.";
        return nullptr;
    }
    auto root = std::make_unique<tarvex_root>();
    if (!root->tree.SetRootPath(directory)) {
        last_error = "The root directory cannot be opened or created.";
        return nullptr;
    }
    return root.release();
}

}  // namespace
}  // namespace tarvex

tarvex_root* tarvex_open(const char* directory) {
    if (!directory) {
        tarvex::last_error = "The directory is null.";
        return nullptr;
    }
    const auto report = [](const char*) { tarvex::last_error = "There is not enough memory."; };
    return tarvex::Shielded<tarvex_root*>(
        nullptr, [directory] { return tarvex::Open(directory); }, report);
}

int tarvex_run(tarvex_root* root) {
    if (!tarvex::IsRoot(root)) return tarvex::kFailed;
    Tarvex(&root->tree);
    return tarvex_running(root);
}

int tarvex_running(tarvex_root* root) {
    if (!tarvex::IsRoot(root)) return tarvex::kFailed;
    const auto is_running = [](const auto& copy) { return copy->worker_thread.load() != nullptr; };
    return static_cast<int>(std::ranges::count_if(root->tree.running_copies, is_running));
}

int tarvex_wait(tarvex_root* root, int milliseconds) {
    return tarvex::IsRoot(root) ? root->tree.WaitThread(milliseconds) : tarvex::kFailed;
}

int tarvex_stop(tarvex_root* root) {
    if (!tarvex::IsRoot(root)) return tarvex::kFailed;
    root->tree.KillThread();
    return 1;
}

void tarvex_close(tarvex_root* root) { delete root; }

const char* tarvex_last_error() { return tarvex::last_error; }
