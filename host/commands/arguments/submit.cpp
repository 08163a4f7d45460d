// Takes the lock of a root, or finds the service that has it, and has work done by the one or the other.

#include "host/commands/arguments/submit.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <iostream>
#include <optional>
#include <string>
#include <thread>

#include "host/edit/tree_edit.h"
#include "host/held/memory_edit.h"
#include "host/history/edit_record.h"
#include "host/history/history.h"
#include "host/language/tr.h"
#include "host/memory/memory.h"
#include "host/system/command_error.h"
#include "host/system/users.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLockTimeout{2000};  // with edits; a run keeps the lock for longer
constexpr std::chrono::milliseconds kRetryInterval{20};

// What has become of an edit.
using Told = std::function<void(int code, const Reply& reply)>;

// By the service when there is one, else by this process, which then keeps the lock and the tree for all of them. Told
// of each; it may throw.
void MakeEdits(const std::string& directory, std::span<const EditRequest> requests, const Told& told) {
    std::string command = EditName(requests.front());
    std::ranges::replace(command, ' ', '-');
    while (!requests.empty()) {
        LockOrService access = TakeLockOrService(directory, command);
        if (auto* const service = std::get_if<std::unique_ptr<ServiceConnection>>(&access)) {
            Reply reply;
            EditRequest request = requests.front();
            request.caller = CallingUser();
            const int code = (*service)->Edit(request, reply, PrintNote);
            requests = requests.subspan(1);
            told(code, reply);
            continue;
        }
        CRootPath root;
        OpenTree(root, directory);
        RuleMemory memory(directory, PrintNote);  // opens nothing that is not needed
        HistoryWriter history(directory, PrintNote);
        TreeAge age(directory, std::nullopt);
        for (; !requests.empty(); requests = requests.subspan(1)) {
            Reply reply;
            EditRecord record(root, requests.front());
            const EditRequest& request = requests.front();
            const int code = request.kind == EditKind::Tree ? EditTree(age, request, reply)
                                                            : EditWithMemory(root, memory, request, reply);
            if (auto edit = record.After(code, ThisCaller())) history.AddEdit(*std::move(edit));
            told(code, reply);
        }
    }
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

EditedBy ThisCaller() {
    EditedBy by{CurrentUser(), UserName(CurrentUser()), CallingUser()};
    if (by.caller == by.user) by.caller.clear();
    return by;
}

void PrintNote(const std::string& note) { std::cerr << "tarvex: " << note << '\n'; }

int Submit(const Context& context, const EditRequest& request) {
    return SubmitTo(RootDirectory(context.root_option), request);
}

int SubmitTo(const std::string& directory, const EditRequest& request) { return SubmitAll(directory, {&request, 1}); }

std::string SubmitQuietly(const std::string& directory, const EditRequest& request) {
    RequireRoot(directory);
    std::string said;
    MakeEdits(directory, {&request, 1}, [&](int code, const Reply& reply) {
        if (code != kDone) throw CommandError(code, reply.error);
        said = reply.printed;
    });
    return said;
}

int SubmitAll(const std::string& directory, std::span<const EditRequest> requests) {
    RequireRoot(directory);
    std::size_t made = 0;
    bool printed = true;
    const auto told = [&](const CommandError& error) {
        if (requests.size() == 1) return error;
        return CommandError(error.ExitCode(), Tr("{0}: {1}; {2} of {3} were changed before, none after it",
                                                 requests[made].name, error.what(), made, requests.size()));
    };
    try {
        MakeEdits(directory, requests, [&](int code, const Reply& reply) {
            std::cout << reply.printed;
            printed = !std::cout.flush().fail() && printed;
            if (code != kDone) throw CommandError(code, reply.error);
            ++made;
        });
    } catch (const CommandError& error) {
        throw told(error);
    }
    if (!printed) throw CommandError(kCannotWrite, Tr("the change was made, but standard output cannot be written"));
    return kDone;
}

}  // namespace tarvex::host
