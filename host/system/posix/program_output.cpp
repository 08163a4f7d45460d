// Runs another program for its output on POSIX.

#include "host/system/program_output.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "host/system/posix/descriptor.h"

extern char** environ;

namespace tarvex::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kLook_ms = 50;

// As the system wants it.
std::vector<char*> ListOf(const std::vector<std::string>& texts) {
    std::vector<char*> list;
    for (const std::string& text : texts) list.push_back(const_cast<char*>(text.c_str()));
    list.push_back(nullptr);
    return list;
}

// The variables, and those of this process that have other names.
std::vector<std::string> Environment(std::vector<std::string> variables) {
    const auto start_of = [](std::string_view variable) { return variable.substr(0, variable.find('=') + 1); };
    const std::size_t given = variables.size();
    for (char** own = environ; *own; ++own) {
        const auto end = variables.begin() + static_cast<std::ptrdiff_t>(given);
        const auto replaces = [&](const std::string& other) { return start_of(other) == start_of(*own); };
        if (std::none_of(variables.begin(), end, replaces)) variables.emplace_back(*own);
    }
    return variables;
}

// A process in a group of its own, which ends with the object at the latest.
class Child {
public:
    Child(const std::vector<std::string>& words, int input, int output, const ProgramManner& manner) {
        posix_spawn_file_actions_t actions;
        posix_spawnattr_t attributes;
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
        if (manner.with_errors) posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes, &none);  // the service blocks those that it waits for
        sigset_t usual;
        sigemptyset(&usual);
        sigaddset(&usual, SIGPIPE);
        sigaddset(&usual, SIGXFSZ);
        posix_spawnattr_setsigdefault(&attributes, &usual);
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        const std::vector<char*> arguments = ListOf(words);
        const std::vector<std::string> variables = Environment(manner.variables);
        error_ = posix_spawnp(&number_, arguments.front(), &actions, &attributes, arguments.data(),
                              ListOf(variables).data());
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Child() {
        if (error_ == 0 && !ended_) {
            kill(-number_, SIGKILL);
            Reap(0);
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    int StartError() const { return error_; }

    bool HasEnded() { return ended_ || Reap(WNOHANG); }

    std::string Trouble() const {
        if (WIFSIGNALED(status_)) return "was ended by signal " + std::to_string(WTERMSIG(status_));
        return WEXITSTATUS(status_) == 0 ? "" : "ended with code " + std::to_string(WEXITSTATUS(status_));
    }

private:
    bool Reap(int options) {
        pid_t reaped = 0;
        do {
            reaped = waitpid(number_, &status_, options);
        } while (reaped < 0 && errno == EINTR);
        ended_ = reaped != 0;
        return ended_;
    }

    pid_t number_ = 0;
    int error_ = 0;
    int status_ = 0;
    bool ended_ = false;
};

// A file that is nowhere, so that a program which does not read keeps nobody waiting. Not open where there is none.
Descriptor FileOf(std::string_view text) {
    if (text.empty()) return Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
    Descriptor file(memfd_create("input", MFD_CLOEXEC));
    while (file.IsOpen() && !text.empty()) {
        const ssize_t count = write(file.Get(), text.data(), text.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return Descriptor();
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    if (file.IsOpen()) lseek(file.Get(), 0, SEEK_SET);
    return file;
}

std::string CannotStart(int error) { return std::string("cannot be started: ") + std::strerror(error); }

}  // namespace

ProgramOutput OutputOf(const std::vector<std::string>& words, std::chrono::milliseconds time, std::size_t most_bytes,
                       const std::function<bool()>& stops, const ProgramManner& manner) {
    if (words.empty()) return {{}, "is empty"};
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return {{}, CannotStart(errno)};
    const Descriptor reading(ends[0]);
    Descriptor writing(ends[1]);
    const Descriptor file = FileOf(manner.input);
    if (!file.IsOpen()) return {{}, CannotStart(errno)};
    Child child(words, file.Get(), writing.Get(), manner);
    writing = Descriptor();
    if (child.StartError() != 0) return {{}, CannotStart(child.StartError())};

    const Clock::time_point end = Clock::now() + time;
    ProgramOutput output;
    std::array<char, 4096> piece{};
    for (bool open = true; open || !child.HasEnded();) {
        if (stops()) return {{}, "was interrupted"};
        if (Clock::now() >= end) return {{}, "took longer than " + std::to_string(time.count() / 1000) + " s"};
        pollfd readable{open ? reading.Get() : -1, POLLIN, 0};
        const bool had_ended = child.HasEnded();
        if (poll(&readable, 1, had_ended ? 0 : kLook_ms) <= 0) {
            if (had_ended) break;  // what it has printed is read; who still holds the pipe is another program
            continue;
        }
        const ssize_t count = read(reading.Get(), piece.data(), piece.size());
        if (count < 0 && errno == EINTR) continue;
        open = count > 0;
        if (!open) continue;
        output.printed.append(piece.data(), static_cast<std::size_t>(count));
        if (manner.on_piece) manner.on_piece({piece.data(), static_cast<std::size_t>(count)});
        if (output.printed.size() > most_bytes)
            return {{}, "printed more than " + std::to_string(most_bytes) + " bytes"};
    }
    output.trouble = child.Trouble();
    return output;
}

}  // namespace tarvex::host
