// Wall time by the steady clock, CPU time of a program by wait4, CPU time of the rest from /proc.

#include "bench/measure.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "tests/real/servers/server_process.h"

namespace tarvex::bench {
namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

double TicksToSeconds(double ticks) { return ticks / static_cast<double>(sysconf(_SC_CLK_TCK)); }

double Seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// All that the machine's processors have done, but waiting.
double BusySeconds() {
    std::ifstream stat("/proc/stat");
    std::string word;
    double user = 0;
    double nice = 0;
    double system = 0;
    double idle = 0;
    double waiting = 0;
    double interrupts = 0;
    double soft_interrupts = 0;
    double stolen = 0;
    stat >> word >> user >> nice >> system >> idle >> waiting >> interrupts >> soft_interrupts >> stolen;
    return TicksToSeconds(user + nice + system + interrupts + soft_interrupts + stolen);
}

// CPU time of a process when it belongs to one of the groups, with that of its ended children.
double CpuSecondsInGroups(const std::filesystem::path& process, const std::vector<pid_t>& groups) {
    std::ifstream file(process / "stat");
    std::string line;
    std::getline(file, line);
    const std::size_t name_end = line.rfind(')');
    if (name_end == std::string::npos) return 0;
    std::istringstream fields(line.substr(name_end + 1));
    std::string state;
    pid_t parent = 0;
    pid_t group = 0;
    fields >> state >> parent >> group;
    if (std::find(groups.begin(), groups.end(), group) == groups.end()) return 0;
    std::string skipped;
    for (int field = 0; field < 8; ++field) fields >> skipped;
    double user = 0;
    double system = 0;
    double children_user = 0;
    double children_system = 0;
    fields >> user >> system >> children_user >> children_system;
    return TicksToSeconds(user + system + children_user + children_system);
}

double CpuSecondsOfGroups(const std::vector<pid_t>& groups) {
    double total = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") == std::string::npos)
            total += CpuSecondsInGroups(entry.path(), groups);
    }
    return total;
}

// In the new process. Nothing stands between the clock and the program: no shell, no further program that sets it up.
[[noreturn]] void Become(const Program& program, const std::filesystem::path& output) {
    const int input = open("/dev/null", O_RDONLY);
    const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(input, STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(out, STDERR_FILENO);
    if (program.ordinary_account && geteuid() == 0) {
        const testing::ServerAccount account = testing::AccountForServers();
        if (setgroups(0, nullptr) != 0 || setgid(account.gid) != 0 || setuid(account.uid) != 0) _exit(126);
    }
    std::vector<std::string> environment = program.environment;
    for (std::string& variable : environment) putenv(variable.data());
    std::vector<std::string> words = program.words;
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    execvp(pointers.front(), pointers.data());
    _exit(127);
}

pid_t Start(const Program& program, const std::filesystem::path& output) {
    const pid_t pid = fork();
    if (pid < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (pid == 0) Become(program, output);
    return pid;
}

}  // namespace

Measurement Measure(const Program& program, const std::vector<pid_t>& servers, const std::filesystem::path& output) {
    Measurement measured;
    const double servers_before = CpuSecondsOfGroups(servers);
    const double busy_before = BusySeconds();
    const auto start = Clock::now();
    const pid_t pid = Start(program, output);
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    measured.wall_s = SecondsSince(start);
    measured.cpu_s = Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
    const double busy_s = BusySeconds() - busy_before;
    measured.servers_cpu_s = CpuSecondsOfGroups(servers) - servers_before;
    measured.other_cpu_s = std::max(0.0, busy_s - measured.servers_cpu_s - measured.cpu_s);
    measured.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return measured;
}

double WaitForIdleMachine(double patience_s) {
    constexpr std::chrono::milliseconds kLook{200};
    const auto start = Clock::now();
    bool idle = false;
    while (!idle && SecondsSince(start) < patience_s) {
        const double before = BusySeconds();
        std::this_thread::sleep_for(kLook);
        idle = BusySeconds() - before <= 0.03;
    }
    return SecondsSince(start);
}

double Median(std::vector<double> values) {
    if (values.empty()) throw std::invalid_argument("no values");
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

}  // namespace tarvex::bench
