#include "host/submit.h"

#include <chrono>
#include <filesystem>
#include <iostream>
#include <system_error>

#include "host/display.h"
#include "host/root_lock.h"
#include "host/tree_root.h"
#include "host/trouble.h"

namespace tarvex::host {
namespace {

constexpr std::chrono::milliseconds kPatience{2000};  // with other edits; a run or a service keeps the lock for longer

}  // namespace

int Submit(const Context& context, const EditRequest& request) {
    const std::string directory = RootDirectory(context);
    RequireRoot(directory);
    const RootLock lock = RootLock::Take(directory, request.words[0] + '-' + request.words[1], kPatience);
    CRootPath root;
    OpenTree(root, directory);
    EditReply reply;
    const int code = Edit(root, request, reply);
    if (code != kDone) throw Trouble(code, reply.error);
    std::cout << reply.printed;
    return code;
}

}  // namespace tarvex::host
