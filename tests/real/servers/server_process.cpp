// Starting, watching and stopping of server programs.

#include "tests/real/servers/server_process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

namespace tarvex::testing {
namespace {

// Runs the program in a process group of its own until it ends or standard input does: the end of a pipe that the test
// holds, and that the system closes when the test dies. Then the whole group is killed: there is nothing that it would
// have to save. Arguments: file for the output, file for the process id, folders to remove at the end separated by line
// feeds, the program and its arguments.
constexpr const char* kSupervisor = R"sh(
umask 022
output=$1 pid_file=$2 left_over=$3; shift 3
exec 3<&0
setsid "$@" </dev/null >"$output" 2>&1 3<&- &
pid=$!
echo "$pid" >"$pid_file"
{ cat >/dev/null; kill -s KILL -- "-$pid"; } <&3 2>/dev/null &
exec 3<&- 2>>"$output"
wait "$pid"
status=$?
kill -s KILL -- "-$pid"
IFS='
'
for folder in $left_over; do rm -rf -- "$folder"; done
exit $status
)sh";

std::vector<char*> Pointers(std::vector<std::string>& words) {
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    return pointers;
}

// Starts a program found by its path or in PATH in a session of its own, so that a signal to the test's process group
// does not reach it. Standard input comes from one descriptor and, unless it is -1, output goes into another.
pid_t Spawn(std::vector<std::string> words, std::vector<std::string> more_environment, int input, int output) {
    std::vector<char*> environment = Pointers(more_environment);
    environment.pop_back();
    for (char** variable = environ; *variable != nullptr; ++variable) environment.push_back(*variable);
    environment.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    if (output != -1) {
        posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    pid_t pid = 0;
    const int failure =
        posix_spawnp(&pid, words.front().c_str(), &actions, &attributes, Pointers(words).data(), environment.data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) throw std::system_error(failure, std::generic_category(), words.front());
    return pid;
}

// An end of a pipe or a file; closed on destruction.
class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() { Close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Number() const { return number_; }
    int Release() { return std::exchange(number_, -1); }
    void Close() {
        if (number_ != -1) close(std::exchange(number_, -1));
    }

private:
    int number_;
};

struct Pipe {
    Descriptor read;
    Descriptor write;

    static std::array<int, 2> Open() {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
        return ends;
    }

    Pipe() : Pipe(Open()) {}
    explicit Pipe(std::array<int, 2> ends) : read(ends[0]), write(ends[1]) {}
};

Descriptor LoopbackSocket() { return Descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)); }

sockaddr_in LoopbackAddress(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

bool IsFree(int port) {
    const Descriptor probe = LoopbackSocket();
    const int on = 1;
    setsockopt(probe.Number(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in address = LoopbackAddress(port);
    return bind(probe.Number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

int ExitStatus(int wait_status) {
    return WIFSIGNALED(wait_status) ? 128 + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

std::vector<std::string> Supervised(const ServerProcess::Command& command, const std::filesystem::path& pid_file) {
    std::vector<std::string> words;
    if (command.privilege == Privilege::Root && geteuid() != 0) words = {"sudo", "-n"};
    std::string left_over;
    for (const auto& path : command.left_over) left_over += path.string() + "\n";
    words.insert(words.end(),
                 {"/bin/sh", "-c", kSupervisor, "supervisor", command.output.string(), pid_file.string(), left_over});
    if (command.privilege == Privilege::Unprivileged && geteuid() == 0) {
        const ServerAccount account = AccountForServers();
        words.insert(words.end(), {"setpriv", "--reuid=" + account.user, "--regid=" + account.group, "--clear-groups"});
    }
    words.insert(words.end(), command.words.begin(), command.words.end());
    return words;
}

}  // namespace

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

std::vector<int> FreePorts(int count) {
    constexpr int kFirst = 10240;
    constexpr int kCount = 22000;
    static int next = static_cast<int>(getpid()) * 32 % kCount;  // far from where other tests look at the same time
    std::vector<int> ports;
    for (int tried = 0; tried < kCount && static_cast<int>(ports.size()) < count; ++tried) {
        const int port = kFirst + next;
        next = (next + 1) % kCount;
        if (IsFree(port)) ports.push_back(port);
    }
    if (static_cast<int>(ports.size()) < count) throw std::runtime_error("no free ports");
    return ports;
}

bool Answers(int port, const std::string& greeting) {
    const Descriptor probe = LoopbackSocket();
    const sockaddr_in address = LoopbackAddress(port);
    if (connect(probe.Number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return false;
    std::string said;
    while (said.size() < greeting.size()) {
        pollfd readable{probe.Number(), POLLIN, 0};
        if (poll(&readable, 1, 5000) != 1) return false;
        std::array<char, 512> bytes{};
        const ssize_t count = recv(probe.Number(), bytes.data(), bytes.size(), 0);
        if (count <= 0) return false;
        said.append(bytes.data(), static_cast<std::size_t>(count));
    }
    return said.starts_with(greeting);
}

ServerAccount AccountForServers() {
    const passwd* entry = geteuid() == 0 ? getpwnam("nobody") : getpwuid(geteuid());
    if (entry == nullptr) return {};
    ServerAccount account{entry->pw_uid, entry->pw_gid, entry->pw_name, ""};
    if (const group* members = getgrgid(account.gid); members != nullptr) account.group = members->gr_name;
    return account;
}

bool CanStartAsRoot() { return geteuid() == 0 || Run({"/bin/sh", "-c", "sudo -n true"}).status == 0; }

ServerProcess::ServerProcess(const Command& command) : pid_file_(command.output.string() + ".pid") {
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // what the program leaves behind comes to us, not to the first process
    Pipe lifeline;
    supervisor_ = Spawn(Supervised(command, pid_file_), {}, lifeline.read.Number(), -1);
    lifeline_ = lifeline.write.Release();
}

ServerProcess::~ServerProcess() {
    const pid_t group = Pid();
    close(lifeline_);
    if (!WaitUntil([&] { return waitpid(supervisor_, nullptr, WNOHANG) != 0; })) kill(supervisor_, SIGKILL);
    if (group > 0) WaitUntil([&] { return waitpid(-group, nullptr, WNOHANG) < 0; });
}

bool ServerProcess::Running() const {
    siginfo_t ended{};
    return waitid(P_PID, static_cast<id_t>(supervisor_), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 && ended.si_pid == 0;
}

pid_t ServerProcess::Pid() const {
    pid_t pid = 0;
    std::ifstream(pid_file_) >> pid;
    return pid;
}

Finished Run(const std::vector<std::string>& words, const std::vector<std::string>& more_environment) {
    Pipe output;
    const Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const pid_t pid = Spawn(words, more_environment, nothing.Number(), output.write.Number());
    output.write.Close();
    Finished finished;
    std::array<char, 4096> bytes{};
    ssize_t count = 0;
    while ((count = read(output.read.Number(), bytes.data(), bytes.size())) > 0) {
        finished.output.append(bytes.data(), static_cast<std::size_t>(count));
    }
    int status = 0;
    waitpid(pid, &status, 0);
    finished.status = ExitStatus(status);
    return finished;
}

}  // namespace tarvex::testing
