#include "host/process.h"

#include <windows.h>

#include <csignal>
#include <cstdlib>
#include <initializer_list>

namespace tarvex::host {
namespace {

volatile std::sig_atomic_t caught_signal = 0;

void Remember(int signal) { caught_signal = signal; }

}  // namespace

// The runtime forgets the handler when it calls it.
void CatchTermination() {
    for (const int signal : {SIGINT, SIGTERM, SIGBREAK}) std::signal(signal, Remember);
}

int CaughtSignal() { return caught_signal; }

void RaiseFileLimit() {}

bool ShowsColours() {
    const char* const no_color = std::getenv("NO_COLOR");
    if (no_color && *no_color) return false;
    const HANDLE console = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    return GetConsoleMode(console, &mode) && SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

void ShowUtf8() { SetConsoleOutputCP(CP_UTF8); }

}  // namespace tarvex::host
