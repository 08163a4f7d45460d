// The interface for C: handles over the tree. The operations of the tree throw nothing; making a handle may.

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/c_guard.h"
#include "engine/c_result.h"
#include "engine/worker.h"
#include "platform/codec/japanese.h"
#include "platform/os/files.h"
#include "platform/os/shield.h"
#include "tarvex/tarvex.h"
#include "tarvex/tarvex_c.h"

struct tarvex_root {
    std::vector<std::unique_ptr<tarvex::CGuardForC>> guards;  // the last decides; runs may ask those before it
    std::vector<std::unique_ptr<tarvex::CResultForC>> ended;
    CRootPath tree;
};

namespace tarvex {
namespace {

constexpr int kFailed = -1;
constexpr const char* kNoMemory = "There is not enough memory.";

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

CPopProfile* FindProfile(const CRootPath& tree, std::string_view name) {
    for (const auto& user : tree.users) {
        for (const auto& profile : user->profiles) {
            if (NameBelow(tree.path, profile->path) == name) return profile.get();
        }
    }
    return nullptr;
}

void KeepResult(tarvex_root& root, const CString& path, CRunResult& result) {
    root.ended.push_back(std::make_unique<CResultForC>(root.tree.path, path, std::move(result)));
}

// Takes what has ended out of the running copies. Not by RefreshThread, which would also free what ends after this
// look. A result for which there is no memory is not told.
void CollectEnded(tarvex_root& root) {
    auto& copies = root.tree.running_copies;
    for (auto copy = copies.begin(); copy != copies.end();) {
        if ((*copy)->worker_thread.load()) {
            ++copy;
            continue;
        }
        Shielded([&] { KeepResult(root, (*copy)->path, (*copy)->result); });
        copy = copies.erase(copy);
    }
    if (copies.empty()) root.tree.RefreshThread();  // gives memory back
}

// As the entry does, but without freeing what has ended.
void StartDueRuns(tarvex_root& root) {
    for (const auto& user : root.tree.users) {
        for (const auto& profile : user->profiles) {
            if (profile->JudgeDoOperation() == 0) continue;
            if (StartCopy(root.tree, *profile, root.tree.guard) != CStartResult::CouldNotBegin) continue;
            Shielded([&] {
                CRunResult result;
                result.ending = CRunEnding::CouldNotBegin;
                KeepResult(root, profile->path, result);
            });
        }
    }
}

int Start(tarvex_root& root, const char* name) {
    CPopProfile* const profile = name ? FindProfile(root.tree, name) : nullptr;
    if (!profile) {
        last_error = "There is no such profile.";
        return kFailed;
    }
    switch (StartRun(root.tree, *profile, root.tree.guard)) {
        case CStartResult::Started:
            return 1;
        case CStartResult::AlreadyRunning:
            return 0;
        case CStartResult::CouldNotBegin:
            break;
    }
    last_error = "There is no memory or no thread for the run.";
    return kFailed;
}

// Puts a converted text into the caller's buffer.
int Deliver(const std::string& text, char* target, int room) {
    if (text.size() >= static_cast<std::size_t>(std::numeric_limits<int>::max())) throw std::bad_alloc();
    const int bytes = static_cast<int>(text.size());
    if (bytes < room) std::memcpy(target, text.c_str(), text.size() + 1);
    return bytes;
}

template <class Convert>
int Converted(const char* source, Convert convert) {
    if (!source) {
        last_error = "The text is null.";
        return kFailed;
    }
    return Shielded(
        kFailed, [&] { return convert(std::string(source)); }, [](const char*) { last_error = kNoMemory; });
}

}  // namespace
}  // namespace tarvex

tarvex_root* tarvex_open(const char* directory) {
    if (!directory) {
        tarvex::last_error = "The directory is null.";
        return nullptr;
    }
    const auto report = [](const char*) { tarvex::last_error = tarvex::kNoMemory; };
    return tarvex::Shielded<tarvex_root*>(
        nullptr, [directory] { return tarvex::Open(directory); }, report);
}

int tarvex_run(tarvex_root* root) {
    if (!tarvex::IsRoot(root)) return tarvex::kFailed;
    root->ended.clear();
    tarvex::CollectEnded(*root);
    tarvex::StartDueRuns(*root);
    return tarvex_running(root);
}

int tarvex_start(tarvex_root* root, const char* profile) {
    if (!tarvex::IsRoot(root)) return tarvex::kFailed;
    return tarvex::Shielded(
        tarvex::kFailed, [&] { return tarvex::Start(*root, profile); },
        [](const char*) { tarvex::last_error = tarvex::kNoMemory; });
}

int tarvex_set_guard(tarvex_root* root, const tarvex_guard* guard) {
    if (!tarvex::IsRoot(root)) return tarvex::kFailed;
    return tarvex::Shielded(
        tarvex::kFailed,
        [&] {
            if (guard) root->guards.push_back(std::make_unique<tarvex::CGuardForC>(root->tree.path, *guard));
            root->tree.guard = guard ? root->guards.back().get() : nullptr;
            return 1;
        },
        [](const char*) { tarvex::last_error = tarvex::kNoMemory; });
}

int tarvex_interval_seconds(int timer_minutes) { return IntervalSeconds(timer_minutes); }

int tarvex_ended(tarvex_root* root) {
    if (!tarvex::IsRoot(root)) return tarvex::kFailed;
    tarvex::CollectEnded(*root);
    return static_cast<int>(root->ended.size());
}

const tarvex_result* tarvex_ended_run(tarvex_root* root, int index) {
    if (!tarvex::IsRoot(root)) return nullptr;
    if (index < 0 || static_cast<std::size_t>(index) >= root->ended.size()) {
        tarvex::last_error = "There is no such run.";
        return nullptr;
    }
    return &root->ended[static_cast<std::size_t>(index)]->Get();
}

void tarvex_forget(tarvex_root* root) {
    if (root) root->ended.clear();
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
    InterruptRuns(root->tree);
    root->tree.WaitThread(-1);
    tarvex::CollectEnded(*root);
    root->tree.KillThread();  // those for whose result there was no memory
    return 1;
}

void tarvex_close(tarvex_root* root) { delete root; }

int tarvex_utf8_from_text(const char* text, char* utf8, int room) {
    return tarvex::Converted(text, [&](std::string source) {
        tarvex::SJisToUtf8(&source, &source);
        return tarvex::Deliver(source, utf8, room);
    });
}

int tarvex_text_from_utf8(const char* utf8, char* text, int room) {
    return tarvex::Converted(utf8, [&](const std::string& source) {
        const std::optional<std::string> converted = tarvex::Utf8ToSameSJis(source);
        if (converted) return tarvex::Deliver(*converted, text, room);
        tarvex::last_error = "The text is not UTF-8, or has a character that Shift-JIS does not have.";
        return tarvex::kFailed;
    });
}

const char* tarvex_last_error() { return tarvex::last_error; }
