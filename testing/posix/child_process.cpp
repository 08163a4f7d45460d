// Starting a program and hearing what it says.

#include "testing/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

namespace tarvex::testing {

namespace {

using Clock = std::chrono::steady_clock;

std::system_error Failure(const std::string& what) { return {errno, std::generic_category(), what}; }

// Closed on destruction.
class Descriptor {
public:
    Descriptor(int number, const char* what) : number_(number) {
        if (number < 0) throw Failure(what);
    }
    ~Descriptor() {
        if (number_ >= 0) close(number_);
    }
    Descriptor(Descriptor&& other) noexcept : number_(other.Release()) {}
    Descriptor& operator=(Descriptor&&) = delete;

    int Get() const { return number_; }
    int Release() { return std::exchange(number_, -1); }

private:
    int number_;
};

// This side of a stream, and the program's.
struct Ends {
    Descriptor ours;
    Descriptor theirs;
};

Ends OpenPipe() {
    std::array<int, 2> ends{-1, -1};
    const int result = pipe2(ends.data(), O_CLOEXEC);
    return {Descriptor(result < 0 ? result : ends[0], "pipe"), Descriptor(result < 0 ? result : ends[1], "pipe")};
}

Ends OpenTerminal() {
    Descriptor ours(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "terminal");
    std::array<char, 64> name{};
    if (grantpt(ours.Get()) != 0 || unlockpt(ours.Get()) != 0 || ptsname_r(ours.Get(), name.data(), name.size()) != 0) {
        throw Failure("terminal");
    }
    Descriptor theirs(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC), name.data());
    return {std::move(ours), std::move(theirs)};
}

Descriptor OpenFile(const char* path, int flags) { return {open(path, flags | O_CLOEXEC), path}; }

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) pointers.push_back(text.data());
    return pointers;
}

// With no signal blocked or ignored, whatever the test does with its own.
pid_t Spawn(std::vector<std::string> words, std::vector<std::string> variables, int input, int output, int errors) {
    std::vector<char*> arguments = Pointers(words);
    arguments.push_back(nullptr);
    std::vector<char*> environment = Pointers(variables);
    for (char** variable = environ; *variable; ++variable) {
        const std::string_view name(*variable,
                                    std::strcspn(*variable, "=") + 1);  // programs differ in which of two counts
        const auto is_same = [name](const std::string& given) { return given.starts_with(name); };
        if (std::ranges::none_of(variables, is_same)) environment.push_back(*variable);
    }
    environment.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);

    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    pid_t pid = 0;
    errno = posix_spawn(&pid, arguments[0], &actions, &attributes, arguments.data(), environment.data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (errno != 0) throw Failure(words[0]);
    return pid;
}

timespec TimeUntil(Clock::time_point moment) {
    const auto left = std::max(moment - Clock::now(), Clock::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    return {static_cast<time_t>(seconds.count()), static_cast<long>(std::chrono::nanoseconds(left - seconds).count())};
}

}  // namespace

struct ChildProcess::Impl {
    // What the program writes; at its end when there is no descriptor any more.
    struct Stream {
        int descriptor = -1;
        std::string text;
    };

    static void Read(Stream& stream) {
        std::array<char, 65536> bytes;
        const ssize_t count = read(stream.descriptor, bytes.data(), bytes.size());
        if (count > 0) {
            stream.text.append(bytes.data(), static_cast<std::size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            Close(stream);
        }
    }

    static void Close(Stream& stream) {
        if (stream.descriptor >= 0) close(std::exchange(stream.descriptor, -1));
    }

    void Reap() {
        if (std::exchange(ended, true)) return;
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        exit_code = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }

    // Reads what there is, or waits for it; false when nothing comes in time.
    bool ReadBefore(Clock::time_point deadline) {
        std::array<pollfd, 2> streams{pollfd{output.descriptor, POLLIN, 0}, pollfd{errors.descriptor, POLLIN, 0}};
        const timespec left = TimeUntil(deadline);
        const int count = ppoll(streams.data(), streams.size(), &left, nullptr);
        if (count < 0 && errno != EINTR) throw Failure("waiting for a program");
        if (count == 0) return false;
        if (count > 0 && streams[0].revents != 0) Read(output);
        if (count > 0 && streams[1].revents != 0) Read(errors);
        return true;
    }

    pid_t pid = 0;
    bool ended = false;
    int exit_code = -1;
    Stream output;
    Stream errors;
};

ChildProcess::ChildProcess(std::vector<std::string> words, Output output, std::vector<std::string> variables,
                           const std::string& input)
    : impl_(std::make_unique<Impl>()) {
    Ends in = OpenPipe();
    const bool has_input = write(in.theirs.Get(), input.data(), input.size()) == static_cast<ssize_t>(input.size());
    if (!has_input) throw Failure("pipe");
    close(in.theirs.Release());
    constexpr int kRoom = 1 << 20;
    const Descriptor full = OpenFile("/dev/full", O_WRONLY);
    const bool on_terminal = output == Output::Terminal || output == Output::Dialogue;
    Ends out = on_terminal ? OpenTerminal() : OpenPipe();
    Ends err = OpenPipe();
    const int their_output = output == Output::Full ? full.Get() : out.theirs.Get();
    const bool together = on_terminal || output == Output::Together;
    const int their_errors = together ? their_output : err.theirs.Get();
    const int their_input = output == Output::Dialogue ? their_output : in.ours.Get();
    if (output == Output::Closed) close(out.ours.Release());
    if (output == Output::Together && fcntl(out.ours.Get(), F_SETPIPE_SZ, kRoom) < 0) throw Failure("pipe");
    impl_->pid = Spawn(std::move(words), std::move(variables), their_input, their_output, their_errors);
    impl_->output.descriptor = out.ours.Release();
    impl_->errors.descriptor = err.ours.Release();
}

ChildProcess::~ChildProcess() { Kill(); }

int ChildProcess::Number() const { return impl_->pid; }

void ChildProcess::Signal(int signal) const {
    if (!impl_->ended) kill(impl_->pid, signal);  // not waited for yet, so the number is still its own
}

void ChildProcess::Interrupt(Event event) { Signal(event == Event::CtrlC ? SIGINT : SIGTERM); }

bool ChildProcess::WaitForOutput(const std::string& text, std::chrono::nanoseconds time, std::size_t behind) {
    const auto deadline = Clock::now() + time;
    while (impl_->output.text.find(text, behind) == std::string::npos) {
        if (impl_->output.descriptor < 0 || !impl_->ReadBefore(deadline)) return false;
    }
    return true;
}

void ChildProcess::Type(const std::string& text) const {
    if (write(impl_->output.descriptor, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw Failure("typing");
}

bool ChildProcess::ShowsTyping() const {
    termios settings{};
    if (tcgetattr(impl_->output.descriptor, &settings) != 0) throw Failure("terminal");
    return (settings.c_lflag & ECHO) != 0;
}

// A program that ends closes its streams, however it ends.
bool ChildProcess::WaitFor(std::chrono::nanoseconds time) {
    const auto deadline = Clock::now() + time;
    while (impl_->output.descriptor >= 0 || impl_->errors.descriptor >= 0) {
        if (!impl_->ReadBefore(deadline)) return false;
    }
    impl_->Reap();
    return true;
}

void ChildProcess::Wait() {
    if (!WaitFor(std::chrono::minutes(1))) Kill();
}

void ChildProcess::Kill() {
    Signal(SIGKILL);
    Impl::Close(impl_->output);
    Impl::Close(impl_->errors);
    impl_->Reap();
}

int ChildProcess::ExitCode() const { return impl_->exit_code; }
const std::string& ChildProcess::Printed() const { return impl_->output.text; }
const std::string& ChildProcess::Errors() const { return impl_->errors.text; }

}  // namespace tarvex::testing
