// Starts the service by systemctl, in a child process with the superuser's rights.

#include "host/service/service_starter.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <system_error>

#include "host/system/posix/descriptor.h"
#include "host/system/program_output.h"
#include "host/system/tree_owner.h"

namespace tarvex::host {
namespace {

constexpr std::chrono::minutes kTime{2};
constexpr std::size_t kMostOutput = 64 << 10;

// The unit for several instances serves a tree for each, beside that of the one.
std::string UnitOf(const std::string& tree) {
    const std::string served = ServiceRootDirectory();
    if (served.empty()) return {};
    if (tree == served) return "tarvex";
    return tree.starts_with(served + '-') ? "tarvex@" + tree.substr(served.size() + 1) : "";
}

bool SystemctlStarts(const std::string& unit) {
    return OutputOf({"systemctl", "enable", "--now", unit}, kTime, kMostOutput, [] { return false; }).trouble.empty();
}

}  // namespace

struct ServiceStarter::Helper {
    Descriptor order;
    pid_t process = -1;

    ~Helper() {
        order = Descriptor();  // without an order it ends
        if (process > 0) waitpid(process, nullptr, 0);
    }
};

// One byte asks for the start; the answer is one byte. The end of the parent ends it.
ServiceStarter::ServiceStarter(const std::string& tree, const std::string& systemd_folder) {
    std::error_code error;
    const std::string unit = std::filesystem::is_directory(systemd_folder, error) ? UnitOf(tree) : "";
    std::array<int, 2> ends{};
    if (unit.empty() || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return;
    Descriptor ours(ends[0]);
    const Descriptor theirs(ends[1]);
    const pid_t process = fork();
    if (process == 0) {
        ours = Descriptor();
        for (const int signal : {SIGINT, SIGQUIT, SIGTSTP}) std::signal(signal, SIG_IGN);  // typed for the parent
        char byte = 0;
        if (read(theirs.Get(), &byte, 1) == 1) {
            byte = SystemctlStarts(unit) ? 'y' : 'n';
            [[maybe_unused]] const ssize_t told = write(theirs.Get(), &byte, 1);
        }
        _exit(0);
    }
    if (process < 0) return;
    unit_ = unit;
    helper_ = std::make_unique<Helper>();
    helper_->order = std::move(ours);
    helper_->process = process;
}

ServiceStarter::~ServiceStarter() = default;

bool ServiceStarter::Start() {
    char byte = 's';
    return helper_ && send(helper_->order.Get(), &byte, 1, MSG_NOSIGNAL) == 1 &&
           read(helper_->order.Get(), &byte, 1) == 1 && byte == 'y';
}

}  // namespace tarvex::host
