// Runs another program for its output on Windows.

#include "host/system/program_output.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <mutex>

#include "host/system/windows/handle.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr DWORD kLook_ms = 20;

// A program that is started gets every handle that can be inherited: one at a time.
std::mutex inheriting;

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

// The variables, and those of this process that have other names: each behind the other, and nothing at the end.
std::wstring Environment(const std::vector<std::string>& variables) {
    const auto start_of = [](std::wstring_view variable) { return variable.substr(0, variable.find(L'=', 1) + 1); };
    std::vector<std::wstring> given;
    for (const std::string& variable : variables) given.push_back(Wide(CP_UTF8, variable));
    std::wstring block;
    for (const std::wstring& variable : given) block.append(variable).push_back(L'\0');
    wchar_t* const own = GetEnvironmentStringsW();
    for (const wchar_t* next = own; *next != L'\0'; next += std::wstring_view(next).size() + 1) {
        const auto replaces = [&](const std::wstring& other) { return start_of(other) == start_of(next); };
        if (std::ranges::none_of(given, replaces)) block.append(next).push_back(L'\0');
    }
    FreeEnvironmentStringsW(own);
    block.push_back(L'\0');
    return block;
}

// In a job, so that its children end with it.
bool Start(const std::vector<std::string>& words, const ProgramManner& manner, HANDLE input, HANDLE output, HANDLE job,
           Handle& process) {
    std::wstring line;
    for (const std::string& word : words) line += (line.empty() ? L"" : L" ") + Quoted(word);
    STARTUPINFOW start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = input;
    start.hStdOutput = output;
    start.hStdError = manner.with_errors ? output : GetStdHandle(STD_ERROR_HANDLE);
    std::wstring environment = Environment(manner.variables);
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE,
                        CREATE_NO_WINDOW | CREATE_SUSPENDED | CREATE_UNICODE_ENVIRONMENT, environment.data(), nullptr,
                        &start, &started)) {
        return false;
    }
    process = Handle(started.hProcess);
    const Handle thread(started.hThread);
    AssignProcessToJobObject(job, started.hProcess);
    ResumeThread(started.hThread);
    return true;
}

// A pipe whose ends a program inherits that is started.
bool OpenEnds(Handle& reading, Handle& writing, DWORD bytes) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    HANDLE ends[2] = {};
    if (!CreatePipe(&ends[0], &ends[1], &inherited, bytes)) return false;
    reading = Handle(ends[0]);
    writing = Handle(ends[1]);
    return true;
}

// The reading end of a pipe with room for all of it, so that a program which does not read keeps nobody waiting.
bool MakeInput(std::string_view text, Handle& reading) {
    Handle writing;
    if (!OpenEnds(reading, writing, static_cast<DWORD>(text.size() + 1))) return false;
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
                       const std::function<bool()>& stops, const ProgramManner& manner) {
    if (words.empty()) return {{}, "is empty"};
    Handle reading;
    Handle process;
    const Handle job(CreateJobObjectW(nullptr, nullptr));
    std::unique_lock lock(inheriting);
    Handle writing;
    if (!OpenEnds(reading, writing, 0)) return {{}, CannotStart()};
    SetHandleInformation(reading.Get(), HANDLE_FLAG_INHERIT, 0);
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(job.Get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);
    Handle from_here;
    if (!MakeInput(manner.input, from_here)) return {{}, CannotStart()};
    if (!Start(words, manner, from_here.Get(), writing.Get(), job.Get(), process)) return {{}, CannotStart()};
    writing = Handle();
    from_here = Handle();
    lock.unlock();

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
        if (manner.on_piece && output.printed.size() > before)
            manner.on_piece(std::string_view(output.printed).substr(before));
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
