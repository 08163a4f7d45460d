// The loop of the service.
//
// The service owns one tree: it starts the runs that are due, makes the edits of other commands, and answers questions.
// All of this happens on one thread, in turns, so nothing needs a lock. Only the runs have threads of their own. A
// turn:
//
//     reap        for each run that has ended: say how, remember it, free its copy
//     answer      edits first, then requests for runs, then questions
//     tick        when it is time (every 10 seconds): start a run of every profile that is due, leave out what must
//                 not run
//     wait        for a client, an order of the system or the next tick; in short steps while runs are under way
//     clients     read and write what can be read and written now
//     orders      load the tree again (SIGHUP), hold runs back, stop (SIGTERM, SIGINT)
//
// An edit must not meet a run of the same profile, because the run saves its own copy of the settings at its end. So
// the edit waits, and the profile starts no other run before the edit is made:
//
//     profile    run starts ............. run ends                  next tick: run starts, with the new timer
//     command           "set timer" ..... waits ...... edit made, "timer: 10 -> 5"

#include "host/service/service.h"

#include <algorithm>
#include <ctime>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "host/service/log/log_facts.h"
#include "host/service/run_reports.h"
#include "host/settings/host_setting.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"
#include "host/tree/readiness.h"
#include "host/tree/remarks.h"
#include "host/tree/tree_root.h"
#include "host/tree/tree_rules.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;

constexpr auto kRunPollInterval = 50ms;         // for runs that have ended, while there are runs
constexpr auto kUrgentPollInterval = 2ms;       // while an edit waits for one
constexpr auto kLockTimeout = 2000ms;           // at the start, with an edit that is being saved
constexpr auto kMostBetweenFirstRuns = 2000ms;  // of profiles that are due when the service starts
constexpr auto kShutdownGrace = 1000ms;         // at the end, with clients that take their answers
constexpr int kStopNews_ms = 5000;              // how often the manager hears that runs still end
const LogFacts kOfService{.matter = LogMatter::Service};

// The tree must be there: the lock stands in its directory.
RootLock TakeRoot(const std::string& directory) {
    RequireRoot(directory);
    return RootLock::Take(directory, "serve", kLockTimeout);
}

}  // namespace

Service::Service(std::string directory, std::chrono::microseconds every, const std::string& metrics, LogFormat format,
                 const std::string& system_log, const std::string& log_file,
                 std::optional<std::int64_t> expected_generation)
    : directory_(std::move(directory)),
      every_(every),
      log_(format, system_log, log_file),
      lock_(TakeRoot(directory_)),
      age_(directory_, expected_generation),
      rules_(directory_, [this](const std::string& sentence) { log_.Warn(sentence); }),
      server_(directory_, orders_),
      history_(directory_, [this](const std::string& sentence) { log_.Warn(sentence); }),
      alerts_(directory_,
              {[this](const std::string& sentence) { log_.Say(sentence, {LogMatter::Service}); },
               [this](const std::string& sentence) { log_.Warn(sentence); }},
              every_) {
    OpenTree(root_, directory_);
    FindUnreadable();
    SpreadFirstRuns();
    if (metrics.empty()) return;
    metrics_ = std::make_unique<MetricsServer>(directory_, metrics);
    metrics_->Tell(MeasuredProfiles(root_));
}

int Service::Run() {
    std::size_t profiles = 0;
    ForEachProfile([&profiles](const CUser&, const CPopProfile&) { ++profiles; });
    if (HasRoot()) history_.Open();
    log_.Say("serving \"" + ShowPath(directory_) + "\" with " + ShowCount(profiles, "profile"), kOfService);
    if (metrics_) log_.Say("serving metrics on " + metrics_->Place(), kOfService);
    TellRemarks();
    if (age_.Old()) log_.Warn(WhyHeldBack(*age_.Old()), kOfService);
    RaiseGeneration();
    manager_.Ready();
    for (;;) {
        ReapEndedRuns();
        ReapSenders();
        StartMore();
        AnswerClients();
        if (Clock::now() >= next_tick_) Tick();
        Wait();
        if (server_.Work()) look_at_clients_ = true;
        KeepAlive();
        while (const std::optional<GivenOrder> given = orders_.Next()) {
            if (!Obey(*given)) return kDone;
        }
    }
}

// Tells of runs that have ended, and frees what they left. One that ends meanwhile is left for the next time.
void Service::ReapEndedRuns() {
    std::vector<std::unique_ptr<CPopProfile>> ended;
    ended.reserve(root_.running_copies.size());  // so that nothing throws while copies are moved
    std::erase_if(root_.running_copies, [&ended](auto& copy) {
        if (copy->worker_thread.load()) return false;
        ended.push_back(std::move(copy));
        return true;
    });
    for (const auto& copy : ended) {
        running_.erase(copy->path);
        next_held_look_.erase(copy->path);
        const std::string what_else = rules_.WhatElse(*copy);
        const auto duration = rules_.Duration(*copy);
        std::vector<TracedMail> mails;
        RunAgain(copy->path, rules_.Finish(*copy, &mails));
        TellEnd(copy->path, RunThatEnded(*copy, duration), what_else, std::move(mails));
        HandOver(*copy, what_else);
    }
    if (ended.empty()) return;
    look_at_clients_ = true;
    look_for_room_ = true;
    ended.clear();
    if (root_.running_copies.empty()) root_.RefreshThread();  // gives memory back
}

void Service::Tick() {
    RaiseGeneration();  // where the disk was full at the start
    StartDueHeld();
    rules_.EndLongRuns(root_);
    StartDueRuns();
    WriteHistory();
    if (metrics_) metrics_->Tell(MeasuredProfiles(root_));
    if (HasRoot()) alerts_.Tick({left_out_, age_.Old()});
    const Clock::time_point now = Clock::now();
    next_tick_ += every_;
    if (next_tick_ < now) next_tick_ = now + every_;  // ticks that a pause of the machine skipped are dropped
}

// What a long run has done so far, and what can be done when there is time.
void Service::WriteHistory() {
    history_.LookForFile();
    for (const auto& copy : root_.running_copies) history_.AddMails(copy->path, rules_.TakeSettled(*copy));
    history_.Tidy([this] { return LimitsOfHistory(directory_); }, std::time(nullptr), kTidyingTime);
}

// Answers every client whose request can be served now. The others are tried again when something has happened.
void Service::AnswerClients() {
    while (look_at_clients_) {
        look_at_clients_ = false;
        wanted_.clear();
        for (ControlClient* const client : server_.Waiting()) {
            // An edit may have renamed what other requests name.
            if (client->Edit() && MakeEdit(*client, *client->Edit())) look_at_clients_ = true;
        }
        // After the edits: a profile that an edit waits for starts no run.
        for (ControlClient* const client : server_.Waiting()) {
            if (client->Run()) {
                HandleRuns(*client, *client->Run());
            } else if (client->Held()) {
                HandleHeld(*client, *client->Held());
            } else if (!client->Edit()) {
                client->Answer(Report());
            }
        }
    }
}

// A root that was moved or unmounted would look like one without lists of ids.
bool Service::HasRoot() {
    const bool has_root = lock_.IsHeldIn(directory_);
    if (has_root == std::exchange(has_root_, has_root)) return has_root;
    if (has_root) {
        log_.Say("the root is there again");
    } else {
        log_.Warn("\"" + ShowPath(directory_) + "\": " + kRootHasGone);
    }
    return has_root;
}

bool Service::MayRun(const CPopProfile& profile) {
    if (wanted_.contains(profile.path) || left_out_.contains(profile.path) || senders_.contains(profile.path))
        return false;
    const std::string why = WhyNotRunnable(profile);
    if (!why.empty()) LeaveOut(profile.path, why);
    return why.empty();
}

void Service::RetryLeftOut() {
    if (left_out_.empty()) return;
    ForEachProfile([this](CUser& user, CPopProfile& profile) {
        if (!left_out_.contains(profile.path) || running_.contains(profile.path)) return;
        if (!WhyNotLoaded(user.setting_loaded).empty()) LoadAgain(user);
        if (!WhyNotLoaded(profile).empty()) LoadAgain(profile);
        if (const std::string why = WhyNotRunnable(profile); !why.empty()) return LeaveOut(profile.path, why);
        left_out_.erase(profile.path);
        log_.Say(LogLevel::Notice, Name(profile.path) + ": is run again", AboutProfile(profile.path));
    });
}

void Service::LeaveOut(const CString& path, const std::string& why) {
    if (std::exchange(left_out_[path], why) != why) log_.Warn(Name(path) + ": left out, " + why, AboutProfile(path));
}

// What is due when the service starts would be due at the same moment ever after.
void Service::SpreadFirstRuns() {
    std::vector<const CPopProfile*> due;
    ForEachProfile([&](const CUser& user, const CPopProfile& profile) {
        if (profile.NextDue() <= std::time(nullptr) && IsSwitchedOn(user, profile)) due.push_back(&profile);
    });
    if (due.size() < 2 || !rules_.SpreadsRuns()) return;
    std::chrono::milliseconds after{0};
    for (const CPopProfile* const profile : due) {
        not_before_[profile->path] = Clock::now() + after;
        const std::chrono::milliseconds interval = std::chrono::seconds(IntervalSeconds(profile->setting.timer));
        after += std::clamp<std::chrono::milliseconds>(interval / due.size(), 0ms, kMostBetweenFirstRuns);
    }
}

void Service::FindUnreadable() {
    for (const std::string& why : WhatIsNotListed(root_)) log_.Warn(why + "; what is in there is not run until SIGHUP");
    ForEachProfile([this](const CUser&, const CPopProfile& profile) {
        if (const std::string why = WhyUnreadable(profile); !why.empty()) LeaveOut(profile.path, why);
    });
}

// Once for each, for profiles share files.
void Service::TellRemarks() {
    std::set<std::string> remarks;
    const auto add = [&remarks](std::vector<std::string> more) {
        remarks.insert(std::move_iterator(more.begin()), std::move_iterator(more.end()));
    };
    for (const auto& user : root_.users) {
        add(user->profiles.empty() ? std::vector<std::string>() : RemarksOn(*user));
        for (const auto& profile : user->profiles) add(RemarksOnItsOwn(*profile));
    }
    for (const std::string& remark : remarks) log_.Warn(remark);
}

void Service::Reload() {
    manager_.Reloading();
    // What a run that is under way will save is not on disk yet.
    std::map<CString, CTime> last_times;
    ForEachProfile([&](const CUser&, const CPopProfile& profile) {
        if (running_.contains(profile.path)) last_times[profile.path] = profile.setting.lasttime;
    });
    ForgetWaiting();
    std::string trouble = WhyRootUnreadable(directory_);  // which to the engine is an empty tree
    if (trouble.empty() && !HasRoot()) trouble = kRootHasGone;
    if (trouble.empty() && !root_.SetRootPath(directory_)) trouble = "not enough memory";
    ApplyRules(root_);
    ForEachProfile([&](const CUser&, CPopProfile& profile) {
        const auto last = last_times.find(profile.path);
        if (last != last_times.end()) profile.setting.lasttime = last->second;
    });
    ++changes_;
    if (trouble.empty()) {
        log_.Say("loaded the tree again", kOfService);
        left_out_.clear();
        next_held_look_.clear();
        FindUnreadable();
        TellRemarks();
    } else {
        log_.Warn("cannot load the tree again: " + trouble);
    }
    look_at_clients_ = true;
    holds_back_ ? manager_.Holding() : manager_.Ready();
}

// False when it was the last one.
bool Service::Obey(const GivenOrder& given) {
    switch (given.order) {
        case Order::Stop:
            Stop(given);
            return false;
        case Order::Reload:
            Reload();
            break;
        case Order::Hold:
        case Order::Continue:
            HoldBack(given.order == Order::Hold);
            break;
    }
    return true;
}

void Service::HoldBack(bool holds) {
    holds ? manager_.Holding() : manager_.Ready();  // who orders it again waits for the answer, too
    if (std::exchange(holds_back_, holds) == holds) return;
    log_.Say(holds ? "holding runs back" : "holding runs back no more", kOfService);
    ForgetWaiting();
    next_tick_ = Clock::now();
}

void Service::Stop(const GivenOrder& given) {
    manager_.Stopping();
    log_.Say("stopping (" + given.by + ')', kOfService);
    orders_.Release(given);
    waiting_.clear();
    ReapEndedRuns();
    stopping_ = true;
    look_at_clients_ = true;
    AnswerClients();
    InterruptRuns(root_);
    alerts_.Stop();
    for (const auto& [path, sender] : senders_) sender->Stop();
    while (root_.WaitThread(kStopNews_ms) == 0) manager_.Stopping();
    ReapEndedRuns();
    for (; !senders_.empty(); std::this_thread::sleep_for(kUrgentPollInterval)) ReapSenders();
    look_at_clients_ = true;
    AnswerClients();
    const auto deadline = Clock::now() + kShutdownGrace;
    while (!server_.IsIdle() && Clock::now() < deadline) {
        server_.Wait(std::min(deadline, Clock::now() + 10ms));
        if (server_.Work()) look_at_clients_ = true;
        AnswerClients();
    }
    server_.Close();
    log_.Say("stopped", kOfService);
}

void Service::Wait() {
    Clock::time_point until = next_tick_;
    if (!running_.empty() || !senders_.empty())
        until = std::min(until, Clock::now() + (wanted_.empty() ? kRunPollInterval : kUrgentPollInterval));
    if (look_for_room_) until = Clock::now();
    if (manager_.KeepAliveInterval()) until = std::min(until, next_keep_alive_);
    server_.Wait(until);
}

void Service::KeepAlive() {
    const auto interval = manager_.KeepAliveInterval();
    if (!interval || Clock::now() < next_keep_alive_) return;
    manager_.KeepAlive();
    next_keep_alive_ = Clock::now() + *interval;
}

std::string Service::Name(const CString& path) const { return ShownName(root_, path); }

LogFacts Service::AboutProfile(const CString& path, LogMatter matter) const {
    return {.matter = matter, .profile = Name(path)};
}

ServiceReport Service::Report() {
    history_.LookForFile();  // who asks may read it next
    ServiceReport report{RunsNow(root_), {}, ShowZone(), age_.Old(), holds_back_};
    for (const auto& [path, why] : held_up_) report.troubles[Name(path)] = why;
    for (const auto& [path, why] : left_out_) report.troubles[Name(path)] = "left out, " + why;
    return report;
}

void Service::ForEachProfile(const std::function<void(CUser&, CPopProfile&)>& action) {
    const OneReadingOfRules once;
    for (const auto& user : root_.users) {
        for (const auto& profile : user->profiles) action(*user, *profile);
    }
}

}  // namespace tarvex::host
