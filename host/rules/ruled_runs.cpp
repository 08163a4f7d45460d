// Gives each run its rules, and keeps the crowd of runs within its limits.

#include "host/rules/ruled_runs.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "host/system/display.h"
#include "host/system/memory.h"
#include "host/terminal/wording.h"
#include "host/tokens/profile_tokens.h"

namespace tarvex::host {
namespace {

using SteadyClock = std::chrono::steady_clock;

}  // namespace

MailLimits LimitsOfHistory(const CString& root) {
    constexpr std::int64_t kMegabyte = 1'000'000;
    try {
        const HostRules rules = RulesOf(root).value_or(HostRules());
        return {rules.historydays, rules.historysize * kMegabyte};
    } catch (const CommandError&) {
        return {};  // that the rules cannot be read is said elsewhere
    }
}

RuledRuns::RuledRuns(const std::string& root, RuleMemory::Tell tell)
    : root_(root), memory_(root, std::move(tell)), ways_(root) {}

CStartResult RuledRuns::Start(CRootPath& root, CPopProfile& profile) {
    const std::optional<HostRules> rules = RulesOf(profile);
    Run run;
    run.relay = RelayOf(profile.setting);
    run.guard = rules ? MakeRules(*rules, profile, run) : std::make_unique<RecordingGuard>(*run.recorder);
    CRunGuard* const guard = run.guard.get();
    const CStartResult result = StartRun(root, profile, guard);
    if (result == CStartResult::Started) runs_.insert_or_assign(profile.path, std::move(run));
    return result;
}

std::unique_ptr<CRunGuard> RuledRuns::MakeRules(const HostRules& rules, const CPopProfile& profile, Run& run) {
    // Text mail takes up to three times its message. Where there is little memory, half of it is for messages.
    const std::int64_t usable = UsableMemory();
    budget_.SetLimits(std::min(rules.servicesize * kMiB, usable / 2), usable - usable / 4);
    auto guard = std::make_unique<RunRules>(rules, profile, memory_, budget_, kept_mails_);
    guard->LeadThrough(ways_);
    guard->TellTo(*run.recorder);
    run.rules = guard.get();
    run.ends = SteadyClock::now() + std::chrono::minutes(rules.runtime);
    run.relay = RelayOf(WithAccount(profile.setting, rules));
    return guard;
}

RunRules* RuledRuns::RulesOfRun(const CString& profile_path) const {
    const auto run = runs_.find(profile_path);
    return run == runs_.end() ? nullptr : run->second.rules;
}

std::string RuledRuns::WhatElse(const CPopProfile& copy) const {
    const RunRules* const rules = RulesOfRun(copy.path);
    const int copies = rules ? rules->CopiesHadAlready() : 0;
    if (copies == 0) return {};
    return copies == 1 ? ", one copy was there already" : ", " + std::to_string(copies) + " copies were there already";
}

std::chrono::milliseconds RuledRuns::Duration(const CPopProfile& copy) const {
    const auto run = runs_.find(copy.path);
    if (run == runs_.end()) return std::chrono::milliseconds(0);
    return std::chrono::ceil<std::chrono::milliseconds>(SteadyClock::now() - run->second.started);
}

std::vector<TracedMail> RuledRuns::TakeSettled(const CPopProfile& copy) {
    const auto run = runs_.find(copy.path);
    return run == runs_.end() ? std::vector<TracedMail>() : run->second.recorder->TakeSettled();
}

NextRun RuledRuns::Finish(CPopProfile& copy, std::vector<TracedMail>* mails) {
    const auto run = runs_.find(copy.path);
    if (run == runs_.end()) return NextRun::WhenDue;
    if (run->second.rules) run->second.rules->NoteLists(copy);
    const NextRun next = run->second.rules ? run->second.rules->Finish(copy.result) : NextRun::WhenDue;
    if (mails) *mails = run->second.recorder->TakeRest(copy.result);
    runs_.erase(run);
    return next;
}

std::string RuledRuns::WhyNotNow(const CPopProfile& profile, bool asked) {
    const std::optional<HostRules> rules = RulesOf(profile);
    if (!rules) return {};
    ProfileMemory memory = memory_.Of(profile.path);
    if (rules->floodguard && memory.IsWaiting()) {
        const std::map<CString, Note> notes = memory.Notes(Matter::Waiting);
        const std::string why = notes.empty() ? std::string() : ShowText(notes.begin()->second.words);
        return "waits for `tarvex accept`: " + why;
    }
    if (const std::string why = WhyNoToken(ways_.tokens, *rules, profile); !why.empty())
        return "waits for `tarvex login`: " + why;
    const CTime now = std::time(nullptr);
    const bool may_log_in = memory.MayLogIn(MailServer::Pop3, now) && memory.MayLogIn(MailServer::Smtp, now);
    if (rules->backoff && !asked && !may_log_in) return "waits, because its logins failed";
    return {};
}

bool RuledRuns::MayTryHeld(const CPopProfile& profile) {
    return memory_.Of(profile.path).MayLogIn(MailServer::Smtp, std::time(nullptr));
}

bool RuledRuns::HasRoomFor(const CRootPath& root, const CPopProfile& profile) {
    const std::optional<HostRules> rules = RulesOf(profile);
    if (!rules) return true;
    if (!budget_.HasRoomFor(profile.path)) return false;
    const CString relay = RelayOf(WithAccount(profile.setting, *rules));
    int all = 0;
    int at_mailbox = 0;
    int at_relay = 0;
    for (const auto& copy : root.running_copies) {
        if (!copy->worker_thread.load()) continue;
        ++all;
        at_mailbox += copy->setting.popserver == profile.setting.popserver ? 1 : 0;
        const auto run = runs_.find(copy->path);
        at_relay += (run == runs_.end() ? RelayOf(copy->setting) : run->second.relay) == relay ? 1 : 0;
    }
    return all < rules->allruns && std::max(at_mailbox, at_relay) < rules->serverruns;
}

bool RuledRuns::SpreadsRuns() const {
    try {
        const std::optional<HostRules> rules = RulesOf(CString(root_));
        return rules && rules->spread;
    } catch (const CommandError&) {
        return false;
    }
}

void RuledRuns::EndLongRuns(CRootPath& root) {
    kept_mails_.DropUseless(root, std::time(nullptr));
    for (const auto& copy : root.running_copies) {
        const auto run = runs_.find(copy->path);
        if (run == runs_.end() || !run->second.rules || SteadyClock::now() < run->second.ends) continue;
        run->second.rules->EndsForTime();
        InterruptRun(*copy);
    }
}

}  // namespace tarvex::host
