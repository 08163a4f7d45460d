// Control events, console and command line of the process on Windows.

#include "host/system/process.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <shellapi.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <iostream>
#include <optional>

#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

volatile std::sig_atomic_t caught_signal = 0;

void Remember(int signal) { caught_signal = signal; }

std::optional<CONSOLE_SCREEN_BUFFER_INFO> Screen() {
    CONSOLE_SCREEN_BUFFER_INFO screen;
    if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &screen)) return std::nullopt;
    return screen;
}

}  // namespace

std::vector<std::string> Arguments(int, char**) {
    int count = 0;
    wchar_t** const wide = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> words;
    for (int i = 0; i < count; ++i) words.push_back(Utf8(wide[i]));
    LocalFree(static_cast<void*>(wide));
    return words;
}

// The runtime forgets the handler when it calls it.
void CatchTermination() {
    for (const int signal : {SIGINT, SIGTERM, SIGBREAK}) std::signal(signal, Remember);
}

int CaughtSignal() { return caught_signal; }

std::string MachineName() {
    std::array<char, 256> name{};
    auto length = static_cast<DWORD>(name.size());
    return GetComputerNameExA(ComputerNameDnsHostname, name.data(), &length) ? name.data() : std::string();
}

void FillStandardStreams() {}  // a handle has no number that another one could take

void SurviveFileSizeLimit() {}  // there is none

void RaiseFileLimit() {}

// Escape sequences are switched on for that.
bool CanRedraw() {
    const HANDLE console = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    return GetConsoleMode(console, &mode) && SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

int TerminalLines() {
    constexpr int kUsualLines = 24;
    const auto screen = Screen();
    return screen ? screen->srWindow.Bottom - screen->srWindow.Top + 1 : kUsualLines;
}

std::size_t TerminalColumns() {
    const auto screen = Screen();
    return screen ? static_cast<std::size_t>(screen->srWindow.Right - screen->srWindow.Left + 1) : 0;
}

bool ShowsColours() {
    const char* const no_color = std::getenv("NO_COLOR");
    return !(no_color && *no_color) && CanRedraw();
}

void ShowUtf8() { SetConsoleOutputCP(CP_UTF8); }

void PassBytesToOutput() {
    std::cout.flush();
    _setmode(_fileno(stdout), _O_BINARY);
}

void PassBytesFromInput() { _setmode(_fileno(stdin), _O_BINARY); }

}  // namespace tarvex::host
