// Waits for the lock of a root, and says who holds it.

#include "host/edit/root_lock.h"

#include <fstream>
#include <thread>

#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"

namespace tarvex::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kRetryInterval{20};

}  // namespace

std::filesystem::path RootLock::FileIn(const std::string& root) { return NativePath(root + "\\.tarvex.lock"); }

RootLock RootLock::Take(const std::string& root, std::string_view command, std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        if (std::optional<RootLock> lock = Try(root, command)) return std::move(*lock);
        if (Clock::now() >= deadline) break;
        std::this_thread::sleep_for(kRetryInterval);
    }
    throw CommandError(kTryLater,
                       "\"" + ShowPath(root) + "\" is in use by " + Holder(root) + "; try again when that has ended");
}

std::string RootLock::Holder(const std::string& root) {
    std::ifstream file(FileIn(root));
    std::string process, command;
    if (!(file >> process) || !(file >> command)) return "another tarvex";
    return "tarvex " + ShowUtf8Text(command) + " (process " + ShowUtf8Text(process) + ")";
}

}  // namespace tarvex::host
