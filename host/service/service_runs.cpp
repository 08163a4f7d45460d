// What the service runs, and when: what is due, what a rule wants again, and what commands ask for.
//
// All of it waits in one queue where the rules allow no more runs at once: whoever has waited longest comes first. A
// command hears that its run waits, and its run starts when there is room.

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/history/run_words.h"
#include "host/service/log/log_facts.h"
#include "host/service/run_reports.h"
#include "host/service/service.h"
#include "host/settings/host_setting.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"
#include "host/tree/tree_rules.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kHeadlineColumns = 60;
constexpr std::size_t kReasonColumns = 200;
constexpr std::size_t kMostInATurn = 200;  // runs that are started, and between two ticks those that are looked at

const LogFacts kOfService{.matter = LogMatter::Service};

std::string Headline(const RunRequest& request) {
    std::string text = "run";
    for (const std::string& name : request.names) text += ' ' + name;
    return OneLineOfUtf8(text, kHeadlineColumns) + (request.now ? " --now" : "");
}

bool IsDue(const CUser& user, const CPopProfile& profile) {
    return profile.NextDue() <= std::time(nullptr) && IsSwitchedOn(user, profile);
}

}  // namespace

// As the entry does, but for the profiles that must not run now.
void Service::StartDueRuns() {
    if (!HasRoot() || age_.Old() || holds_back_) return;
    RetryLeftOut();
    std::vector<CPopProfile*> wanted;
    ForEachProfile([&](const CUser& user, CPopProfile& profile) {
        if (running_.contains(profile.path)) {
            profile.JudgeDoOperation();  // one that is due while it runs waits an interval more (B1)
        } else if (IsWanted(user, profile)) {
            wanted.push_back(&profile);
        }
    });
    // Where there is not room for all, whoever has waited longest comes first.
    std::ranges::stable_sort(wanted, {}, [this](const CPopProfile* profile) { return WantedSince(*profile); });
    waiting_ = std::move(wanted);
    StartWaiting(waiting_.size());
    GiveUpAsked();
}

bool Service::HasRoomFor(const CPopProfile& profile) {
    try {
        return rules_.HasRoomFor(root_, profile);
    } catch (const CommandError&) {
        return true;  // why its rules cannot be read is said where it is left out
    }
}

// Starts what there is room for among so many of those that wait. What a run needs is looked at only when there is room
// for it, so that a crowd that waits costs little; and what has ended is reaped between two turns, so that a crowd that
// starts does not pile up.
void Service::StartWaiting(std::size_t looked_at) {
    const OneReadingOfRules once;
    std::size_t done = 0;
    const auto is_done = [&](CPopProfile* profile) {
        if (done == kMostInATurn || !HasRoomFor(*profile)) return false;
        ++done;
        if (MayRun(*profile) && LetsRun(*profile, IsAskedForNow(*profile))) Start(*profile);
        return true;
    };
    const auto end = waiting_.begin() + static_cast<std::ptrdiff_t>(std::min(waiting_.size(), looked_at));
    waiting_.erase(std::remove_if(waiting_.begin(), end, is_done), end);
    look_for_room_ = done == kMostInATurn && !waiting_.empty();
}

void Service::StartMore() {
    if (!std::exchange(look_for_room_, false) || !HasRoot() || holds_back_) return;
    StartWaiting(kMostInATurn);
    if (!asked_.empty() && waiting_.empty()) next_tick_ = Clock::now();
}

// The tree is about to change.
void Service::ForgetWaiting() {
    if (waiting_.empty()) return;
    waiting_.clear();
    next_tick_ = Clock::now();
}

bool Service::IsAskedForNow(const CPopProfile& profile) const {
    const auto asked = asked_.find(profile.path);
    return asked != asked_.end() && asked->second.now;
}

CTime Service::WantedSince(const CPopProfile& profile) const {
    const auto asked = asked_.find(profile.path);
    return asked == asked_.end() ? profile.NextDue() : std::min(profile.NextDue(), asked->second.since);
}

// What a command has asked for, and what nothing would start any more.
void Service::GiveUpAsked() {
    if (asked_.empty()) return;
    std::map<CString, std::string> given_up;
    for (const auto& [path, asked] : asked_) given_up[path] = Name(path) + " is not there any more.\n";
    ForEachProfile([&](const CUser& user, const CPopProfile& profile) {
        if (!asked_.contains(profile.path)) return;
        std::string why = WhyNeverStarted(user, profile);
        why.empty() ? static_cast<void>(given_up.erase(profile.path)) : given_up[profile.path].swap(why);
    });
    for (const auto& [path, why] : given_up) {
        EndAsked(path, [&why = why](ControlClient::AwaitedRuns& awaited) { awaited.printed += why; });
    }
}

// Empty for a profile that is started when there is room.
std::string Service::WhyNeverStarted(const CUser& user, const CPopProfile& profile) const {
    if (const auto why = left_out_.find(profile.path); why != left_out_.end())
        return Name(profile.path) + ": left out, " + why->second + '\n';
    if (const auto why = held_up_.find(profile.path); why != held_up_.end())
        return Name(profile.path) + ": " + why->second + '\n';
    return IsSwitchedOn(user, profile) ? std::string() : WhyItDoesNotRun(root_, user, profile);
}

void Service::EndAsked(const CString& path, const std::function<void(ControlClient::AwaitedRuns&)>& tell) {
    if (asked_.erase(path) == 0) return;
    for (ControlClient* const client : server_.Waiting()) {
        const Speaking in(client->ReadsIn());
        if (client->awaited && client->awaited->paths.erase(path) != 0) tell(*client->awaited);
    }
    look_at_clients_ = true;
}

bool Service::IsWanted(const CUser& user, const CPopProfile& profile) const {
    if (asked_.contains(profile.path)) return IsSwitchedOn(user, profile);
    const auto first = not_before_.find(profile.path);
    if (first != not_before_.end() && first->second > Clock::now()) return false;
    if (IsDue(user, profile)) return true;
    const auto soon = soon_.find(profile.path);
    return soon != soon_.end() && soon->second <= Clock::now() && IsSwitchedOn(user, profile);
}

// Says once why a rule does not.
bool Service::LetsRun(const CPopProfile& profile, bool asked) {
    const std::string why = rules_.WhyNotNow(profile, asked);
    if (why.empty()) {
        held_up_.erase(profile.path);
    } else if (std::exchange(held_up_[profile.path], why) != why) {
        log_.Warn(Name(profile.path) + ": " + why, AboutProfile(profile.path));
    }
    return why.empty();
}

// After a failure that may pass there is one early run, not one after the other.
void Service::RunAgain(const CString& path, NextRun next) {
    soon_.erase(path);
    if (next != NextRun::InAMinute) {
        retried_.erase(path);
    } else if (!retried_.insert(path).second) {
        return;
    }
    if (next == NextRun::WhenDue) return;
    soon_[path] = Clock::now() + (next == NextRun::AtOnce ? 0s : 60s);
    if (next == NextRun::AtOnce) next_tick_ = Clock::now();
}

void Service::Start(CPopProfile& profile) {
    soon_.erase(profile.path);
    if (rules_.Start(root_, profile) == CStartResult::Started) {
        asked_.erase(profile.path);
        running_.insert(profile.path);
        log_.Say(LogLevel::Debug, Name(profile.path) + ": run started",
                 AboutProfile(profile.path, LogMatter::RunStarted));
        return;
    }
    TellEnd(profile.path, RunThatCouldNotBegin());
    EndAsked(profile.path, [&](ControlClient::AwaitedRuns& awaited) {
        awaited.troubles.AddEnd(Name(profile.path), RunThatCouldNotBegin().result);
        awaited.in_brief.AddOneThatCouldNotBegin(profile.path);
    });
}

void Service::TellEnd(const CString& path, const PastRun& run, const std::string& what_else,
                      std::vector<TracedMail> mails) {
    history_.Add(path, run, std::move(mails));  // before a client hears of it
    const std::string line = Name(path) + ": run ended, " + HowItEnded(run.result, 1, kReasonColumns) + what_else;
    const LogFacts facts = FactsOf(Name(path), run.result);
    log_.Say(LevelOf(run.result), line, facts);
    if (const std::string what = WhatIsNotSaved(run.result); !what.empty())
        log_.Say(LogLevel::Error, Name(path) + ": " + what, facts);
}

void Service::HandleRuns(ControlClient& client, const RunRequest& request) {
    try {
        if (!client.awaited && !stopping_) StartRuns(client, request);
    } catch (const CommandError& error) {
        return client.Answer(error.ExitCode(), {{}, error.what()});
    }
    const Speaking in(client.ReadsIn());
    if (client.awaited && client.awaited->paths.empty()) {
        return client.Answer(client.awaited->troubles.code, {client.awaited->printed + client.awaited->in_brief.Sum(),
                                                             client.awaited->troubles.sentence});
    }
    if (stopping_) client.Answer(kTryLater, {{}, Tr("the service was stopped before it had done this; run it again")});
}

std::vector<NamedProfile> Service::ChosenFor(const ControlClient& client, const RunRequest& request) {
    const Speaking in(client.ReadsIn());
    if (!HasRoot()) throw CommandError(kCannotWrite, Tr(kRootHasGone));
    RequireThatRunsMayStart();
    return ChosenProfiles(root_, request.names);
}

std::string Service::WhatRunsWaitFor(const ControlClient& client, const std::vector<NamedProfile>& chosen) const {
    const Speaking in(client.ReadsIn());
    for (const auto& [user, profile] : chosen) {
        if (running_.contains(profile->path)) continue;
        if (wanted_.contains(profile->path)) return Tr("waiting for {0} to be changed", Name(profile->path));
        if (senders_.contains(profile->path)) return Tr("waiting for held mail of {0} to be sent", Name(profile->path));
    }
    return {};
}

// Runs what was asked for, with whatever else is due. A run that is under way already counts as asked for.
void Service::StartRuns(ControlClient& client, const RunRequest& request) {
    const std::vector<NamedProfile> chosen = ChosenFor(client, request);
    if (const std::string waits_for = WhatRunsWaitFor(client, chosen); !waits_for.empty())
        return client.Note(waits_for);
    log_.Say(Headline(request), {.matter = LogMatter::Request, .user = NameOf(client.WhoAsks({}))});
    RetryLeftOut();
    ControlClient::AwaitedRuns& awaited = client.awaited.emplace();
    awaited.in_full = request.verbose || chosen.size() == 1;
    for (const auto& [user, profile] : chosen) AskFor(*user, *profile, request, client);
    StartDueRuns();
    const auto waiting =
        std::ranges::count_if(awaited.paths, [this](const auto& path) { return asked_.contains(path); });
    const Speaking in(client.ReadsIn());
    if (waiting != 0 && !look_for_room_) {
        client.Note(TrN("{0} run to wait until others have ended: the rules allow no more at once",
                        "{0} runs to wait until others have ended: the rules allow no more at once", waiting));
    }
    const bool nothing = awaited.paths.empty() && awaited.printed.empty() && awaited.troubles.code == kDone;
    if (request.names.empty() && nothing) awaited.printed = Tr(kNothingDue) + '\n';
}

void Service::AskFor(const CUser& user, CPopProfile& profile, const RunRequest& request, ControlClient& client) {
    ControlClient::AwaitedRuns& awaited = *client.awaited;
    const bool wanted = request.now ? IsSwitchedOn(user, profile) : IsDue(user, profile);
    const bool may_start =
        !running_.contains(profile.path) && wanted && MayRun(profile) && LetsRun(profile, request.now);
    if (may_start)
        asked_.try_emplace(profile.path, AskedRun{std::time(nullptr), false}).first->second.now |= request.now;
    if (may_start || running_.contains(profile.path)) {
        awaited.paths.insert(profile.path);
    } else if (const auto left_out = left_out_.find(profile.path); left_out != left_out_.end()) {
        awaited.troubles.Add(Name(profile.path), left_out->second, kCannotWrite);
    } else if (const auto held_up = held_up_.find(profile.path); wanted && held_up != held_up_.end()) {
        awaited.printed += Name(profile.path) + ": " + held_up->second + '\n';
    } else if (!request.names.empty()) {
        const Speaking in(client.ReadsIn());
        awaited.printed += WhyItDoesNotRun(root_, user, profile);
    }
}

// To whoever waits for the run.
void Service::HandOver(const CPopProfile& copy, const std::string& what_else) {
    for (ControlClient* const client : server_.Waiting()) {
        if (!client->awaited || client->awaited->paths.erase(copy.path) == 0) continue;
        const Speaking in(client->ReadsIn());
        ControlClient::AwaitedRuns& awaited = *client->awaited;
        awaited.printed +=
            awaited.in_full ? ReportOf(copy, what_else) : awaited.in_brief.Add(Name(copy.path), copy, what_else);
        awaited.troubles.AddEnd(Name(copy.path), copy.result);
    }
}

// ---- the age of the tree

void Service::RaiseGeneration() {
    if (HasRoot()) age_.Raise([this](const std::string& sentence) { log_.Warn(sentence, kOfService); });
}

// What is held back is told to whoever asks for it.
void Service::RequireThatRunsMayStart() const {
    if (age_.Old()) throw CommandError(kCannotWrite, WhyHeldBack(*age_.Old()));
    if (holds_back_) throw CommandError(kTryLater, Tr(kServiceIsPaused));
}

}  // namespace tarvex::host
