// Starting a program and hearing what it says, by a thread for each of its streams.

#include "testing/child_process.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

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

// A console without a window, which Windows 10 and newer have.
class Console {
public:
    Console() {
        HANDLE ends[4] = {};
        if (!CreatePipe(&ends[0], &ends[1], nullptr, 0) || !CreatePipe(&ends[2], &ends[3], nullptr, 0))
            throw Failure("pipe");
        const Handle input(ends[0]);
        const Handle output(ends[3]);
        keys_ = Handle(ends[1]);
        screen_ = Handle(ends[2]);
        using Create = HRESULT WINAPI(COORD, HANDLE, HANDLE, DWORD, void**);
        auto* const create = Function<Create>("CreatePseudoConsole");
        if (!create || create({80, 25}, input.Get(), output.Get(), 0, &console_) != S_OK) throw Failure("console");
    }
    ~Console() {
        if (auto* const close = Function<void WINAPI(void*)>("ClosePseudoConsole")) close(console_);
    }
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    void* Get() const { return console_; }

private:
    template <class Signature>
    static Signature* Function(const char* name) {
        return reinterpret_cast<Signature*>(
            reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32.dll"), name)));
    }

    Handle keys_;
    Handle screen_;
    void* console_ = nullptr;
};

// What a process is given at its start, with its console where it has one.
class StartInfo {
public:
    StartInfo(const Handle& output, const Handle& errors, const std::optional<Console>& console) {
        info_.StartupInfo.cb = sizeof info_;
        info_.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
        info_.StartupInfo.hStdOutput = output.Get();
        info_.StartupInfo.hStdError = errors.Get();
        if (!console) return;
        constexpr DWORD_PTR kPseudoConsole = 0x20016;
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        room_.resize(size / sizeof(std::max_align_t) + 1);
        info_.lpAttributeList = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(room_.data());
        if (!InitializeProcThreadAttributeList(info_.lpAttributeList, 1, 0, &size) ||
            !UpdateProcThreadAttribute(info_.lpAttributeList, 0, kPseudoConsole, console->Get(), sizeof(void*), nullptr,
                                       nullptr))
            throw Failure("console");
    }

    STARTUPINFOW* Get() { return &info_.StartupInfo; }

private:
    STARTUPINFOEXW info_{};
    std::vector<std::max_align_t> room_;
};

// This process is told as well, on a thread that the system makes for it.
const HANDLE is_told = CreateEventW(nullptr, FALSE, FALSE, nullptr);

BOOL WINAPI Ignore(DWORD) { return SetEvent(is_told); }

// On the console of that process.
void TypeCtrlC(DWORD process) {
    constexpr DWORD kLong_ms = 20000;
    std::array<HANDLE, 3> streams{};
    constexpr std::array<DWORD, 3> kStreams = {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE};
    for (std::size_t i = 0; i < streams.size(); ++i) streams[i] = GetStdHandle(kStreams[i]);
    FreeConsole();
    if (AttachConsole(process)) {
        SetConsoleCtrlHandler(Ignore, TRUE);
        if (GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0)) WaitForSingleObject(is_told, kLong_ms);
        FreeConsole();
        SetConsoleCtrlHandler(Ignore, FALSE);
    }
    for (std::size_t i = 0; i < streams.size(); ++i) SetStdHandle(kStreams[i], streams[i]);
}

// Begins the thread in the process that the system begins there for an event; wine does so for Ctrl+C alone.
void TellOf(DWORD event, const Handle& process) {
    auto* const routine = reinterpret_cast<LPTHREAD_START_ROUTINE>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernelbase.dll"), "CtrlRoutine")));
    if (!routine) throw Failure("CtrlRoutine");
    const Handle thread(
        CreateRemoteThread(process.Get(), nullptr, 0, routine, reinterpret_cast<void*>(DWORD_PTR{event}), 0, nullptr));
    if (!thread.Get()) throw Failure("CtrlRoutine");
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
                    const std::lock_guard lock(mutex);
                    came.append(bytes.data(), count);
                    changed.notify_all();
                }
                const std::lock_guard lock(mutex);
                has_ended = true;
                changed.notify_all();
            });
        }

        bool WaitFor(const std::string& what, std::chrono::nanoseconds time, std::size_t behind) {
            std::unique_lock lock(mutex);
            const auto is_there = [&] { return WithLineFeeds(came).find(what, behind) != std::string::npos; };
            changed.wait_for(lock, time, [&] { return has_ended || is_there(); });
            return is_there();
        }

        // What has come so far is the text for the caller.
        void Keep() {
            const std::lock_guard lock(mutex);
            text = WithLineFeeds(came);
        }

        std::mutex mutex;
        std::condition_variable changed;
        std::string came;        // by the mutex
        bool has_ended = false;  // likewise
        std::string text;
        std::thread reader;
    };

    void Reap() {
        for (Stream* stream : {&output, &errors}) {
            if (!stream->reader.joinable()) continue;
            stream->reader.join();
            stream->Keep();
        }
        DWORD code = 0;
        GetExitCodeProcess(process.Get(), &code);
        exit_code = static_cast<int>(code);
    }

    std::optional<Console> console;
    Handle process;
    DWORD number = 0;
    int exit_code = -1;
    Stream output;
    Stream errors;
};

ChildProcess::ChildProcess(std::vector<std::string> words, Output output, std::vector<std::string> variables,
                           const std::string& input)
    : impl_(std::make_unique<Impl>()) {
    const bool together = output == Output::Together;
    if ((!together && output != Output::Pipe) || !input.empty())
        throw std::invalid_argument("there are only pipes from it here");
    if (together) impl_->console.emplace();  // first: its process would inherit the ends of the pipes
    Ends out = OpenPipe();
    Ends err = OpenPipe();
    std::string command_line;
    for (const std::string& word : words) command_line += (command_line.empty() ? "" : " ") + Quoted(word);
    std::string environment = Environment(variables);
    std::wstring wide(command_line.size(), L'\0');
    wide.resize(static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, command_line.data(),
                                                             static_cast<int>(command_line.size()), wide.data(),
                                                             static_cast<int>(wide.size()))));
    StartInfo start(out.theirs, together ? out.theirs : err.theirs, impl_->console);
    PROCESS_INFORMATION started{};
    const DWORD flags = together ? EXTENDED_STARTUPINFO_PRESENT : 0;
    if (!CreateProcessW(nullptr, wide.data(), nullptr, nullptr, TRUE, flags, environment.data(), nullptr, start.Get(),
                        &started)) {
        throw Failure(words[0]);
    }
    CloseHandle(started.hThread);
    impl_->process = Handle(started.hProcess);
    impl_->number = started.dwProcessId;
    impl_->output.Read(std::move(out.ours));
    impl_->errors.Read(std::move(err.ours));
}

ChildProcess::~ChildProcess() { Kill(); }

void ChildProcess::Signal(int) const { throw std::logic_error("there are no signals here"); }

int ChildProcess::Number() const { return static_cast<int>(impl_->number); }

void ChildProcess::Interrupt(Event event) {
    switch (event) {
        case Event::CtrlC:
            return TypeCtrlC(impl_->number);
        case Event::CtrlBreak:
            return TellOf(CTRL_BREAK_EVENT, impl_->process);
        case Event::Close:
            return TellOf(CTRL_CLOSE_EVENT, impl_->process);
        case Event::LogOff:
            return TellOf(CTRL_LOGOFF_EVENT, impl_->process);
        case Event::Shutdown:
            return TellOf(CTRL_SHUTDOWN_EVENT, impl_->process);
    }
}

bool ChildProcess::WaitForOutput(const std::string& text, std::chrono::nanoseconds time, std::size_t behind) {
    const bool came = impl_->output.WaitFor(text, time, behind);
    impl_->output.Keep();
    return came;
}

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
