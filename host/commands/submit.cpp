// Takes the lock of a root, or finds the service that has it, and has work done by the one or the other.

#include "host/commands/submit.h"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <optional>
#include <string>
#include <thread>

#include "host/rules/memory.h"
#include "host/rules/memory_edit.h"
#include "host/system/command_error.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLockTimeout{2000};  // with edits; a run keeps the lock for longer
constexpr std::chrono::milliseconds kRetryInterval{20};

int EditTree(const std::string& directory, const EditRequest& request, Reply& reply) {
    CRootPath root;
    OpenTree(root, directory);
    RuleMemory memory(directory, PrintNote);  // opens nothing that is not needed
    return EditWithMemory(root, memory, request, reply);
}

// By the service when there is one, else by this process.
int MakeEdit(const std::string& directory, const EditRequest& request, Reply& reply) {
    std::string command = EditName(request);
    std::ranges::replace(command, ' ', '-');
    LockOrService access = TakeLockOrService(directory, command);
    auto* const service = std::get_if<std::unique_ptr<ServiceConnection>>(&access);
    return service ? (*service)->Edit(request, reply, PrintNote) : EditTree(directory, request, reply);
}

}  // namespace

LockOrService TakeLockOrService(const std::string& directory, const std::string& command) {
    for (const auto deadline = Clock::now() + kLockTimeout; Clock::now() < deadline;
         std::this_thread::sleep_for(kRetryInterval)) {
        if (std::optional<RootLock> lock = RootLock::Try(directory, command)) return std::move(*lock);
        if (auto service = ServiceConnection::Try(directory)) return service;
    }
    return RootLock::Take(directory, command, {});
}

void PrintNote(const std::string& note) { std::cerr << "tarvex: " << note << '\n'; }

int Submit(const Context& context, const EditRequest& request) {
    return SubmitTo(RootDirectory(context.root_option), request);
}

int SubmitTo(const std::string& directory, const EditRequest& request) {
    RequireRoot(directory);
    Reply reply;
    const int code = MakeEdit(directory, request, reply);
    std::cout << reply.printed;
    const bool printed = !std::cout.flush().fail();
    if (code != kDone) throw CommandError(code, reply.error);
    if (!printed) throw CommandError(kCannotWrite, "the change was made, but standard output cannot be written");
    return code;
}

}  // namespace tarvex::host
