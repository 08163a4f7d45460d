// Windows' event log: an entry has a level, a category and the texts that events.mc puts into words.

#include "host/service/log/system_log.h"

#include <windows.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "host/service/log/windows/event_source.h"
#include "host/system/windows/event_text.h"
#include "host/system/windows/managed_process.h"

namespace tarvex::host {
namespace {

static_assert(EventCategory(LogMatter::Trouble) == kEventCategories);

WORD TypeOf(LogLevel level) {
    if (level == LogLevel::Error) return EVENTLOG_ERROR_TYPE;
    return level == LogLevel::Warning ? EVENTLOG_WARNING_TYPE : EVENTLOG_INFORMATION_TYPE;
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
    const std::array<std::wstring, 6> texts = {EventText(entry.text),   EventText(facts.profile),
                                               EventText(facts.result), EventText(List(facts.addresses)),
                                               EventText(facts.user),   EventText(List(facts.keys))};
    std::array<const wchar_t*, texts.size()> pointers{};
    for (std::size_t i = 0; i < texts.size(); ++i) pointers[i] = texts[i].c_str();
    return ReportEventW(way_->source, TypeOf(entry.level), EventCategory(facts.matter), EventId(facts.matter), nullptr,
                        static_cast<WORD>(pointers.size()), 0, pointers.data(), nullptr) != 0;
}

std::string SystemLog::LineStart(LogLevel /*level*/) { return {}; }

}  // namespace tarvex::host
