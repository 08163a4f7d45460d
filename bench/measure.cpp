// Wall time by the steady clock, CPU time of a program by wait4, CPU time of the rest from /proc.

#include "bench/measure.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

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

pid_t Start(std::vector<std::string> words, const std::filesystem::path& output) {
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t pid = 0;
    const int failure = posix_spawnp(&pid, pointers.front(), &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) throw std::system_error(failure, std::generic_category(), words.front());
    return pid;
}

}  // namespace

Measurement Measure(const std::vector<std::string>& words, const std::vector<pid_t>& servers,
                    const std::filesystem::path& output) {
    Measurement measured;
    const double servers_before = CpuSecondsOfGroups(servers);
    const double busy_before = BusySeconds();
    const auto start = Clock::now();
    const pid_t pid = Start(words, output);
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
