// Runs another program for its output on Windows.

#include "host/system/program_output.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <utility>

#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr DWORD kLook_ms = 20;

class Handle {
public:
    explicit Handle(HANDLE handle = nullptr) : handle_(handle) {}
    ~Handle() {
        if (handle_ && handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(Handle&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }

    HANDLE Get() const { return handle_; }
    HANDLE* Place() { return &handle_; }

private:
    HANDLE handle_;
};

// A word as the program's runtime takes the command line apart again. It is quoted where it must be: cmd reads quotes
// in its own way.
std::wstring Quoted(const std::string& word) {
    if (!word.empty() && word.find_first_of(" \t\"") == std::string::npos) return Wide(CP_UTF8, word);
    std::wstring quoted = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t c : Wide(CP_UTF8, word)) {
        if (c == L'"') quoted.append(backslashes + 1, L'\\');
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        quoted += c;
    }
    return quoted.append(backslashes, L'\\') + L'"';
}

std::string CannotStart() { return "cannot be started: error " + std::to_string(GetLastError()); }

// In a job, so that its children end with it.
bool Start(const std::vector<std::string>& words, HANDLE input, HANDLE output, HANDLE job, Handle& process) {
    std::wstring line;
    for (const std::string& word : words) line += (line.empty() ? L"" : L" ") + Quoted(word);
    STARTUPINFOW start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = input;
    start.hStdOutput = output;
    start.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW | CREATE_SUSPENDED, nullptr,
                        nullptr, &start, &started)) {
        return false;
    }
    process = Handle(started.hProcess);
    const Handle thread(started.hThread);
    AssignProcessToJobObject(job, started.hProcess);
    ResumeThread(started.hThread);
    return true;
}

// The reading end of a pipe with room for all of it, so that a program which does not read keeps nobody waiting.
bool MakeInput(std::string_view text, Handle& reading) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    Handle writing;
    if (!CreatePipe(reading.Place(), writing.Place(), &inherited, static_cast<DWORD>(text.size() + 1))) return false;
    SetHandleInformation(writing.Get(), HANDLE_FLAG_INHERIT, 0);
    DWORD written = 0;
    return text.empty() ||
           WriteFile(writing.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) != 0;
}

// What waits in the pipe. False when nobody can write to it any more.
bool ReadWaiting(HANDLE pipe, std::string& text) {
    for (;;) {
        DWORD waiting = 0;
        if (!PeekNamedPipe(pipe, nullptr, 0, nullptr, &waiting, nullptr)) return false;
        if (waiting == 0) return true;
        std::array<char, 4096> piece{};
        DWORD count = 0;
        const DWORD wanted = std::min(waiting, static_cast<DWORD>(piece.size()));
        if (!ReadFile(pipe, piece.data(), wanted, &count, nullptr)) return false;
        text.append(piece.data(), count);
    }
}

}  // namespace

ProgramOutput OutputOf(const std::vector<std::string>& words, std::chrono::milliseconds time, std::size_t most_bytes,
                       const std::function<bool()>& stops, std::string_view input,
                       const std::function<void(std::string_view)>& on_piece) {
    if (words.empty()) return {{}, "is empty"};
    Handle reading;
    Handle writing;
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    if (!CreatePipe(reading.Place(), writing.Place(), &inherited, 0)) return {{}, CannotStart()};
    SetHandleInformation(reading.Get(), HANDLE_FLAG_INHERIT, 0);
    const Handle job(CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(job.Get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);
    Handle from_here;
    if (!MakeInput(input, from_here)) return {{}, CannotStart()};
    Handle process;
    if (!Start(words, from_here.Get(), writing.Get(), job.Get(), process)) return {{}, CannotStart()};
    writing = Handle();

    const Clock::time_point end = Clock::now() + time;
    ProgramOutput output;
    const auto give_up = [&](const std::string& why) -> ProgramOutput {
        TerminateProcess(process.Get(), 1);
        return {{}, why};
    };
    for (bool runs = true; runs;) {
        runs = WaitForSingleObject(process.Get(), kLook_ms) != WAIT_OBJECT_0;
        const std::size_t before = output.printed.size();
        ReadWaiting(reading.Get(), output.printed);
        if (on_piece && output.printed.size() > before) on_piece(std::string_view(output.printed).substr(before));
        if (output.printed.size() > most_bytes)
            return give_up("printed more than " + std::to_string(most_bytes) + " bytes");
        if (!runs) break;
        if (stops()) return give_up("was interrupted");
        if (Clock::now() >= end) return give_up("took longer than " + std::to_string(time.count() / 1000) + " s");
    }
    DWORD code = 0;
    GetExitCodeProcess(process.Get(), &code);
    if (code != 0) output.trouble = "ended with code " + std::to_string(code);
    return output;
}

}  // namespace tarvex::host
