// The words for runs that go on, that ended and that were not made.

#include "host/service/run_reports.h"

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <sstream>
#include <string_view>

#include "host/history/run_words.h"
#include "host/language/tr.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"
#include "host/tree/log_reader.h"
#include "host/tree/names.h"
#include "host/tree/tree_rules.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kReasonColumns = 200;

// Entries that were read from the file hold no line end, so the start line of this run is the first entry that does.
bool BeginsRun(std::string_view entry) {
    return entry.starts_with(std::string("\n").append(kRunStart)) ||
           entry.starts_with(std::string("\r\n").append(kRunStart));
}

// Only a server's answer has more than one line. The further ones are indented, so that none passes for one of ours.
void AppendEntry(std::vector<std::string>& lines, const std::string& entry) {
    std::istringstream pieces(entry);
    const char* indent = "";
    for (std::string line; std::getline(pieces, line); indent = "  ") lines.push_back(indent + line);
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

std::vector<std::string> LinesOfThisRun(const CProfileLog& log) {
    std::vector<std::string> lines;
    for (auto entry = std::ranges::find_if(log.entries, BeginsRun); entry != log.entries.end(); ++entry) {
        std::string text = *entry;
        std::erase(text, '\r');
        if (lines.empty()) text.erase(0, 1);  // the line end in front of the start line
        AppendEntry(lines, text);
    }
    std::vector<std::string> shown;
    for (std::size_t i = 0; i < lines.size(); ++i) shown.push_back(ShowLogLine(lines, i));
    return shown;
}

std::string ReportOf(const CPopProfile& copy, const std::string& what_else) {
    std::string text = std::string(kReportHeading) + ShowPath(copy.path) + ": " +
                       HowItEnded(copy.result, 1, kReasonColumns) + what_else + '\n';
    for (const std::string& line : LinesOfThisRun(copy.log)) text += line + '\n';
    if (copy.setting.logmode == 0) text += Tr("(its log is switched off)") + '\n';
    return text;
}

PastRun RunThatEnded(const CPopProfile& copy, std::chrono::milliseconds duration) {
    return {copy.setting.lasttime, std::time(nullptr), copy.result, duration.count()};
}

PastRun RunThatCouldNotBegin() {
    PastRun run;
    run.started = run.ended = std::time(nullptr);
    run.result.ending = CRunEnding::CouldNotBegin;
    return run;
}

void RunTroubles::Add(const std::string& name, const std::string& why, int exit_code) {
    sentence += (sentence.empty() ? "" : "\n") + (name.empty() ? why : name + ": " + why);
    code = std::max(code, exit_code);
}

void RunTroubles::AddEnd(const std::string& name, const CRunResult& result) {
    if (IsFailure(result.ending)) Add(name, HowItEnded(result, 1, kReasonColumns), kUnavailable);
    if (const std::string what = WhatIsNotSaved(result); !what.empty()) Add(name, what, kCannotWrite);
}

std::string RunsInBrief::Add(const std::string& name, const CPopProfile& copy, const std::string& what_else) {
    const CRunResult& result = copy.result;
    has_failed_[copy.path] = IsFailure(result.ending);
    messages_ += result.messages_delivered;
    for (const CAddressResult& address : result.addresses) {
        if (address.copies > 0) addresses_.insert(address.path);
    }
    if (IsFailure(result.ending) || !DidSomething(result)) return {};
    return name + ": " + HowItEnded(result, 1, kReasonColumns) + what_else + '\n';
}

std::string RunsInBrief::Sum() const {
    if (has_failed_.empty()) return {};
    const auto failed = std::ranges::count_if(has_failed_, [](const auto& one) { return one.second; });
    const auto addresses = static_cast<std::int64_t>(addresses_.size());
    const std::string messages = TrN("{0} message", "{0} messages", messages_);
    const std::string did = addresses == 0 ? Tr("nothing forwarded")
                                           : TrN("{1} to {0} address", "{1} to {0} addresses", addresses, messages);
    const std::string what = failed > 0 ? Tr("{0}, {1} failed", did, failed) : did;
    return TrN("{0} profile: {1}", "{0} profiles: {1}", static_cast<std::int64_t>(has_failed_.size()), what) + '\n';
}

std::string WhyItDoesNotRun(const CRootPath& root, const CUser& user, const CPopProfile& profile) {
    const std::string name = ShownName(root, profile.path);
    if (const std::string off = WhySwitchedOff(user, profile); !off.empty()) return Tr("{0} is {1}.", name, off) + '\n';
    return Tr("{0} is not due before {1}; --now runs it all the same.", name, ShowTime(profile.NextDue())) + '\n';
}

}  // namespace tarvex::host
