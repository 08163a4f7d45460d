// How far runs are and how they ended, for commands and the service.

#include "host/service/run_reports.h"

#include "host/system/display.h"
#include "host/terminal/wording.h"
#include "host/tree/log_reader.h"
#include "host/tree/names.h"
#include "host/tree/run_log.h"

namespace tarvex::host {
namespace {

std::string Report(const CString& path, const std::vector<std::string>& lines, bool has_log) {
    std::string text = "== " + ShowPath(path) + '\n';
    for (const std::string& line : lines) text += line + '\n';
    if (lines.empty()) text += has_log ? "(it did not run)\n" : "(its log is switched off)\n";
    return text;
}

}  // namespace

std::vector<RunNow> RunsNow(const CRootPath& root) {
    std::vector<RunNow> runs;
    for (const auto& copy : root.running_copies) {
        if (!copy->worker_thread.load()) continue;
        const CRunObserver& run = copy->observer;
        runs.push_back({ShownName(root, copy->path), run.bytes_received, run.bytes_sent, run.messages_to_fetch,
                        run.messages_fetched, run.messages_delivered});
    }
    return runs;
}

std::string ReportOf(const CPopProfile& copy) {
    return Report(copy.path, LinesOfThisRun(copy.log), copy.setting.logmode != 0);
}

std::string ReportFromDisk(const CString& path, bool has_log) {
    std::vector<std::string> lines;
    if (has_log) lines = LinesOfLastRun(ReadLog(path).value_or(std::vector<std::string>()));
    for (std::string& line : lines) line = ShowText(line);
    return Report(path, lines, has_log);
}

void MakeDue(CPopProfile& profile) {
    // Before any moment to which an interval could be added without passing now.
    constexpr CTime kLongAgo = -(CTime{1} << 40);
    if (profile.setting.status != 0) profile.setting.lasttime = kLongAgo;
}

void AddLeftOut(std::string& sentence, const std::string& name, const std::string& why) {
    sentence += (sentence.empty() ? "" : "; ") + name + ": " + why;
}

std::string WhyItDoesNotRun(const CRootPath& root, const CPopProfile& profile) {
    const std::string name = ShownName(root, profile.path);
    if (profile.setting.status == 0) return name + " is switched off (status 0).\n";
    return name + " is not due before " + ShowTime(profile.NextDue()) + "; --now runs it all the same.\n";
}

}  // namespace tarvex::host
