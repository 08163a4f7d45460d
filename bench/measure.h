#pragma once

// Running a program and measuring it, on a machine that does other things too.

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace tarvex::bench {

struct Program {
    std::vector<std::string> words;             // the program, found in PATH, and its arguments
    std::vector<std::string> environment = {};  // variables besides our own
    bool ordinary_account = false;              // as AccountForServers, also when we are root
};

struct Measurement {
    double wall_s = 0;
    double cpu_s = 0;          // of the program and its children, user and system
    double servers_cpu_s = 0;  // of the servers meanwhile
    double other_cpu_s = 0;    // of everything else on the machine meanwhile
    int status = 0;

    // Whether something else took so much of the machine that the figures mean nothing.
    bool Disturbed() const { return other_cpu_s > 0.1 + 0.1 * wall_s; }
};

// Runs the program once. `servers` are the process groups of the servers it talks to; its output goes to the file.
Measurement Measure(const Program& program, const std::vector<pid_t>& servers, const std::filesystem::path& output);

// Waits until the machine has next to nothing to do, at most that long. Returns how long it waited.
double WaitForIdleMachine(double patience_s);

double Median(std::vector<double> values);

}  // namespace tarvex::bench
