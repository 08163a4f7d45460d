// Windows' event log: an entry has a level, a category and the texts that events.mc puts into words.

#include "host/service/log/system_log.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "host/service/log/windows/event_source.h"
#include "host/system/windows/managed_process.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

static_assert(EventCategory(LogMatter::Trouble) == kEventCategories);

constexpr std::size_t kMostUnits = 31'000;  // of one text; the system takes 31,839

WORD TypeOf(LogLevel level) {
    if (level == LogLevel::Error) return EVENTLOG_ERROR_TYPE;
    return level == LogLevel::Warning ? EVENTLOG_WARNING_TYPE : EVENTLOG_INFORMATION_TYPE;
}

// Who shows an entry replaces what looks like a place for a text ("%1") in the texts, too.
std::wstring Harmless(const std::string& text) {
    std::wstring wide;
    for (const wchar_t unit : Wide(CP_UTF8, text)) {
        const bool is_digit = unit >= L'0' && unit <= L'9';
        if (is_digit && wide.ends_with(L'%')) wide += L' ';
        wide += unit;
    }
    wide.resize(std::min(wide.size(), kMostUnits));
    return wide;
}

std::string List(const std::vector<std::string>& words) {
    std::string list;
    for (const std::string& word : words) list += (list.empty() ? "" : ", ") + word;
    return list;
}

}  // namespace

struct SystemLog::Way {
    HANDLE source = RegisterEventSourceW(nullptr, kEventSource);
};

SystemLog::SystemLog(const std::string& /*place*/) : way_(std::make_unique<Way>()) {}

SystemLog::~SystemLog() {
    if (way_->source) DeregisterEventSource(way_->source);
}

bool SystemLog::IsExpected() { return IsManaged(); }

// It has no level for those who look closely, who have a log file: runs that did nothing would fill it.
bool SystemLog::Take(const LogEntry& entry) {
    if (!way_->source) return false;
    if (entry.level == LogLevel::Debug) return true;
    const LogFacts& facts = entry.facts;
    const std::array<std::wstring, 6> texts = {Harmless(entry.text),   Harmless(facts.profile),
                                               Harmless(facts.result), Harmless(List(facts.addresses)),
                                               Harmless(facts.user),   Harmless(List(facts.keys))};
    std::array<const wchar_t*, texts.size()> pointers{};
    for (std::size_t i = 0; i < texts.size(); ++i) pointers[i] = texts[i].c_str();
    return ReportEventW(way_->source, TypeOf(entry.level), EventCategory(facts.matter), EventId(facts.matter), nullptr,
                        static_cast<WORD>(pointers.size()), 0, pointers.data(), nullptr) != 0;
}

std::string SystemLog::LineStart(LogLevel /*level*/) { return {}; }

}  // namespace tarvex::host
