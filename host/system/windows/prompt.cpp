// Reads standard input, and passwords without showing them, on Windows.

#include "host/system/prompt.h"

#include <windows.h>

#include <array>
#include <iostream>
#include <string_view>

#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

constexpr wchar_t kGiveUp = L'\x3';  // Ctrl+C

HANDLE Input() { return GetStdHandle(STD_INPUT_HANDLE); }

bool ReadConsoleLine(std::string& line) {
    std::wstring typed;
    while (!typed.ends_with(L'\n')) {
        std::array<wchar_t, 256> units;
        DWORD count = 0;
        if (!ReadConsoleW(Input(), units.data(), units.size(), &count, nullptr) || count == 0) return false;
        typed.append(units.data(), count);
        if (typed.find(kGiveUp) != std::wstring::npos) return false;
    }
    line = Utf8(std::wstring_view(typed).substr(0, typed.find_first_of(L"\r\n")));
    return true;
}

// Of the console; Ctrl+C is read like a letter, so that the mode is not left behind.
class HiddenTyping {
public:
    HiddenTyping() {
        GetConsoleMode(Input(), &old_);
        SetConsoleMode(Input(), ENABLE_LINE_INPUT);
    }
    ~HiddenTyping() { SetConsoleMode(Input(), old_); }
    HiddenTyping(const HiddenTyping&) = delete;

private:
    DWORD old_ = 0;
};

}  // namespace

bool CanAsk() {
    DWORD mode = 0;
    return GetConsoleMode(Input(), &mode) != 0;
}

bool ReadLine(std::string& line) {
    if (CanAsk()) return ReadConsoleLine(line);
    return static_cast<bool>(std::getline(std::cin, line));
}

bool AskHidden(const std::string& question, std::string& answer) {
    bool answered = false;
    {
        const HiddenTyping hidden;
        std::cerr << question << std::flush;
        answered = ReadConsoleLine(answer);
    }
    std::cerr << std::endl;
    return answered;
}

}  // namespace tarvex::host
