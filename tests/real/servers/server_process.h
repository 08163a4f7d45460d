#pragma once

// A server program that runs as long as an object lives: it is stopped with everything it started when the object is
// destroyed, and also when the test itself is killed.

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tarvex::testing {

// How long a test waits for something that normally takes a moment: a loaded machine is slow, a broken one is not
// waited for for ever.
inline constexpr std::chrono::seconds kPatience{90};

// Asks again and again until the condition holds; false when it does not within the time.
bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds patience = kPatience);

// Ports of 127.0.0.1 that are free, below those that the system hands out by itself, so that nobody takes one before
// the server does.
std::vector<int> FreePorts(int count);

// Whether 127.0.0.1 takes connections on the port and greets with that text (empty: without a greeting).
bool Answers(int port, const std::string& greeting);

// The account under which unprivileged server processes run, and to which mail belongs: the caller's own, or nobody
// when that is root, since mail servers refuse to work for root.
struct ServerAccount {
    uid_t uid = 0;
    gid_t gid = 0;
    std::string user;  // empty when the caller has no name
    std::string group;
};
ServerAccount AccountForServers();

enum class Privilege {
    Unprivileged,  // runs as AccountForServers
    Root,          // runs as root, with sudo when the caller is not root
};

// Whether a program can be started as root here.
bool CanStartAsRoot();

class ServerProcess {
public:
    struct Command {
        std::vector<std::string> words;
        Privilege privilege = Privilege::Unprivileged;
        std::filesystem::path output;                       // gets what the program prints
        std::vector<std::filesystem::path> left_over = {};  // removed when the program has ended
    };

    explicit ServerProcess(const Command& command);
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    bool Running() const;
    pid_t Pid() const;  // of the program; 0 when it is not known yet

private:
    pid_t supervisor_ = 0;
    int lifeline_ = -1;  // the supervisor stops the program when this end of the pipe is closed
    std::filesystem::path pid_file_;
};

// What a finished program printed and how it ended (its exit status, or 128 + the signal).
struct Finished {
    int status = 0;
    std::string output;  // standard output and standard error
};

// Runs a program to its end.
Finished Run(const std::vector<std::string>& words, const std::vector<std::string>& more_environment = {});

}  // namespace tarvex::testing
