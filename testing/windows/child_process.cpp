// Starting a program and hearing what it says, by a thread for each of its two streams.

#include "testing/child_process.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace tarvex::testing {

namespace {

std::system_error Failure(const std::string& what) {
    return {static_cast<int>(GetLastError()), std::system_category(), what};
}

// Closed on destruction.
class Handle {
public:
    explicit Handle(HANDLE handle = nullptr) : handle_(handle) {}
    ~Handle() {
        if (handle_) CloseHandle(handle_);
    }
    Handle(Handle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    Handle& operator=(Handle&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }

    HANDLE Get() const { return handle_; }

private:
    HANDLE handle_;
};

// This side of a stream, and the program's, which it inherits.
struct Ends {
    Handle ours;
    Handle theirs;
};

Ends OpenPipe() {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    HANDLE ours = nullptr;
    HANDLE theirs = nullptr;
    if (!CreatePipe(&ours, &theirs, &inherited, 0)) throw Failure("pipe");
    SetHandleInformation(ours, HANDLE_FLAG_INHERIT, 0);
    return {Handle(ours), Handle(theirs)};
}

// As the C runtime takes the command line apart again: a quote and the backslashes before it are escaped.
std::string Quoted(const std::string& word) {
    std::string quoted = "\"";
    std::size_t backslashes = 0;
    for (const char c : word) {
        if (c == '"') quoted.append(backslashes + 1, '\\');
        backslashes = c == '\\' ? backslashes + 1 : 0;
        quoted += c;
    }
    return quoted.append(backslashes, '\\') + '"';
}

// The C runtime writes CR LF for each line feed.
std::string WithLineFeeds(std::string text) {
    for (std::size_t at = 0; (at = text.find("\r\n", at)) != std::string::npos;) text.erase(at, 1);
    return text;
}

std::string NameOf(const std::string& variable) { return variable.substr(0, variable.find('=', 1) + 1); }

// The variables, and those of this process that have other names.
std::string Environment(const std::vector<std::string>& variables) {
    std::string block;
    for (const std::string& variable : variables) block.append(variable).push_back('\0');
    char* const own = GetEnvironmentStringsA();
    for (const char* next = own; *next != '\0'; next += std::string_view(next).size() + 1) {
        const std::string variable = next;
        const std::string name = NameOf(variable);
        const auto replaces = [&name](const std::string& other) { return NameOf(other) == name; };
        if (std::ranges::none_of(variables, replaces)) block.append(variable).push_back('\0');
    }
    FreeEnvironmentStringsA(own);
    block.push_back('\0');
    return block;
}

}  // namespace

struct ChildProcess::Impl {
    // What the program writes, to its end.
    struct Stream {
        void Read(Handle end) {
            reader = std::thread([this, end = std::move(end)] {
                std::array<char, 65536> bytes;
                DWORD count = 0;
                while (ReadFile(end.Get(), bytes.data(), bytes.size(), &count, nullptr) && count > 0) {
                    text.append(bytes.data(), count);
                }
            });
        }
        std::string text;
        std::thread reader;
    };

    void Reap() {
        for (Stream* stream : {&output, &errors}) {
            if (!stream->reader.joinable()) continue;
            stream->reader.join();
            stream->text = WithLineFeeds(stream->text);
        }
        DWORD code = 0;
        GetExitCodeProcess(process.Get(), &code);
        exit_code = static_cast<int>(code);
    }

    Handle process;
    int exit_code = -1;
    Stream output;
    Stream errors;
};

ChildProcess::ChildProcess(std::vector<std::string> words, Output output, std::vector<std::string> variables,
                           const std::string& input)
    : impl_(std::make_unique<Impl>()) {
    if (output != Output::Pipe || !input.empty()) throw std::invalid_argument("there are only pipes from it here");
    Ends out = OpenPipe();
    Ends err = OpenPipe();
    std::string command_line;
    for (const std::string& word : words) command_line += (command_line.empty() ? "" : " ") + Quoted(word);
    std::string environment = Environment(variables);
    std::wstring wide(command_line.size(), L'\0');
    wide.resize(static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, command_line.data(),
                                                             static_cast<int>(command_line.size()), wide.data(),
                                                             static_cast<int>(wide.size()))));
    STARTUPINFOW start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdOutput = out.theirs.Get();
    start.hStdError = err.theirs.Get();
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(nullptr, wide.data(), nullptr, nullptr, TRUE, 0, environment.data(), nullptr, &start,
                        &started)) {
        throw Failure(words[0]);
    }
    CloseHandle(started.hThread);
    impl_->process = Handle(started.hProcess);
    impl_->output.Read(std::move(out.ours));
    impl_->errors.Read(std::move(err.ours));
}

ChildProcess::~ChildProcess() { Kill(); }

void ChildProcess::Signal(int) const { throw std::logic_error("there are no signals here"); }

bool ChildProcess::WaitFor(std::chrono::nanoseconds time) {
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(time).count();
    if (WaitForSingleObject(impl_->process.Get(), static_cast<DWORD>(milliseconds)) != WAIT_OBJECT_0) return false;
    impl_->Reap();
    return true;
}

void ChildProcess::Wait() {
    if (!WaitFor(std::chrono::minutes(1))) Kill();
}

void ChildProcess::Kill() {
    constexpr unsigned kKilled = 137;
    TerminateProcess(impl_->process.Get(), kKilled);  // nothing happens when it has ended
    WaitForSingleObject(impl_->process.Get(), INFINITE);
    impl_->Reap();
}

int ChildProcess::ExitCode() const { return impl_->exit_code; }
const std::string& ChildProcess::Printed() const { return impl_->output.text; }
const std::string& ChildProcess::Errors() const { return impl_->errors.text; }

}  // namespace tarvex::testing
