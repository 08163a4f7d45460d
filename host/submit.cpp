#include "host/submit.h"

#include <chrono>
#include <iostream>
#include <optional>
#include <string>
#include <thread>

#include "host/control_socket.h"
#include "host/root_lock.h"
#include "host/tree_root.h"
#include "host/trouble.h"

namespace tarvex::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPatience{2000};  // with other edits; a run keeps the lock for longer
constexpr std::chrono::milliseconds kPause{20};

int EditTree(const std::string& directory, const EditRequest& request, EditReply& reply) {
    CRootPath root;
    OpenTree(root, directory);
    return Edit(root, request, reply);
}

void PrintNote(const std::string& note) { std::cerr << "tarvex: " << note << '\n'; }

// By the service when there is one, else by this process.
int MakeEdit(const std::string& directory, const EditRequest& request, EditReply& reply) {
    const std::string name = request.words[0] + '-' + request.words[1];
    for (const auto deadline = Clock::now() + kPatience; Clock::now() < deadline; std::this_thread::sleep_for(kPause)) {
        if (const std::optional<RootLock> lock = RootLock::Try(directory, name)) {
            return EditTree(directory, request, reply);
        }
        if (auto service = ServiceConnection::Try(directory)) return service->Edit(request, reply, PrintNote);
    }
    const RootLock lock = RootLock::Take(directory, name, {});
    return EditTree(directory, request, reply);
}

}  // namespace

int Submit(const Context& context, const EditRequest& request) {
    const std::string directory = RootDirectory(context);
    RequireRoot(directory);
    EditReply reply;
    const int code = MakeEdit(directory, request, reply);
    if (code != kDone) throw Trouble(code, reply.error);
    std::cout << reply.printed;
    return code;
}

}  // namespace tarvex::host
