// Waits for the lock of a root, and says who holds it.

#include "host/edit/root_lock.h"

#include <fstream>
#include <thread>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/process.h"

namespace tarvex::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kRetryInterval{20};

}  // namespace

std::filesystem::path RootLock::FileIn(const std::string& root) { return NativePath(root + "\\.tarvex.lock"); }

std::string RootLock::NoteOn(const std::string& process, std::string_view command) {
    return process + ' ' + std::string(command) + ' ' + MachineName() + '\n';
}

RootLock RootLock::Take(const std::string& root, std::string_view command, std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        if (std::optional<RootLock> lock = Try(root, command)) return std::move(*lock);
        if (Clock::now() >= deadline) break;
        std::this_thread::sleep_for(kRetryInterval);
    }
    throw CommandError(kTryLater,
                       Tr("\"{0}\" is in use by {1}; try again when that has ended", ShowPath(root), Holder(root)));
}

std::string RootLock::Holder(const std::string& root) {
    std::ifstream file(FileIn(root));
    std::string process, command, machine;
    if (!(file >> process) || !(file >> command)) return Tr("another tarvex");
    if (file >> machine && machine != MachineName()) {
        return Tr("tarvex {0} (process {1} on {2})", ShowUtf8Text(command), ShowUtf8Text(process),
                  ShowUtf8Text(machine));
    }
    return Tr("tarvex {0} (process {1})", ShowUtf8Text(command), ShowUtf8Text(process));
}

}  // namespace tarvex::host
