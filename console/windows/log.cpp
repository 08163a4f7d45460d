// Writes what the console logs: to standard error, or as entries of the event log.

#include "console/log.h"

#include <windows.h>

#include <iostream>

#include "host/system/windows/event_text.h"
#include "host/system/windows/managed_process.h"

namespace tarvex::console {
namespace {

// The kinds of entry of the service's source that are nothing but a sentence: matters of a service, and trouble.
struct Kind {
    WORD type;
    WORD category;
    DWORD id;
};
constexpr Kind kMatter = {EVENTLOG_INFORMATION_TYPE, 1, 101};
constexpr Kind kWarning = {EVENTLOG_WARNING_TYPE, 9, 109};
constexpr Kind kTrouble = {EVENTLOG_ERROR_TYPE, 9, 109};

Kind KindOf(LogLevel level) {
    if (level == LogLevel::Error) return kTrouble;
    return level == LogLevel::Warning ? kWarning : kMatter;
}

}  // namespace

// Where it cannot be written there is nobody to tell.
void Log(LogLevel level, std::string_view text) {
    if (!host::IsManaged()) {
        std::cerr << std::string(text).append("\n") << std::flush;
        return;
    }
    static HANDLE const source = RegisterEventSourceW(nullptr, host::kEventSource);
    const std::wstring wide = host::EventText("console: " + std::string(text));
    const wchar_t* texts[] = {wide.c_str()};
    const Kind kind = KindOf(level);
    if (source) ReportEventW(source, kind.type, kind.category, kind.id, nullptr, 1, 0, texts, nullptr);
}

}  // namespace tarvex::console
