#pragma once

// The service: the one host of a root. It calls the entry again and again and makes edits in between. service.cpp
// begins with a picture of its loop. Everything happens on the thread that calls Run, except the runs.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host/alerts/alert_thread.h"
#include "host/edit/root_lock.h"
#include "host/generation/generation.h"
#include "host/history/history.h"
#include "host/language/tr.h"
#include "host/metrics/metrics_server.h"
#include "host/rules/ruled_runs.h"
#include "host/service/control_server.h"
#include "host/service/held_sender.h"
#include "host/service/log/service_log.h"
#include "host/system/orders.h"
#include "host/system/service_manager.h"
#include "host/tree/names.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

class Service {
public:
    // Takes the root and loads the tree. Throws CommandError, which names the holder of a root that is in use.
    // `metrics`: where figures are served (see MetricsServer); empty: nowhere. `expected_generation`: see TreeAge.
    Service(std::string directory, std::chrono::microseconds every, const std::string& metrics = {},
            LogFormat format = LogFormat::Automatic, const std::string& system_log = {},
            const std::string& log_file = {}, std::optional<std::int64_t> expected_generation = {});

    // Until SIGTERM or SIGINT. Returns the exit code of the program.
    int Run();

    // How often the tree has been changed or loaded again; from any thread.
    std::uint64_t Changes() const { return changes_; }

    // Into the log; from any thread.
    void Warn(const std::string& sentence) { log_.Warn(sentence, {LogMatter::Service}); }

private:
    using Clock = std::chrono::steady_clock;

    static constexpr const char* kRootHasGone = Marked(
        "the tree that the service has loaded is not here any more; nothing is done until it is back or the "
        "service is restarted");

    struct AskedRun {
        CTime since = 0;
        bool now = false;  // though it is not due, and though a rule would let it wait
    };

    void ReapEndedRuns();
    void ReapSenders();
    void Tick();
    void StartDueRuns();
    void StartMore();
    void StartWaiting(std::size_t looked_at);
    void ForgetWaiting();
    bool HasRoomFor(const CPopProfile& profile);
    void StartDueHeld();
    bool StartSender(const CPopProfile& profile, const std::vector<HeldChoice>& choice);
    void TellSender(const CString& path, const HeldSender& sender);
    void HandleHeld(ControlClient& client, const HeldRequest& request);
    void BeginHeld(ControlClient& client, const HeldRequest& request);
    bool IsBusy(const CString& profile) const;  // it is being run, or its held mail is being sent
    void Start(CPopProfile& profile);
    void RunAgain(const CString& path, NextRun next);
    bool IsWanted(const CUser& user, const CPopProfile& profile) const;
    bool LetsRun(const CPopProfile& profile, bool asked);
    bool IsAskedForNow(const CPopProfile& profile) const;
    CTime WantedSince(const CPopProfile& profile) const;
    std::vector<NamedProfile> ChosenFor(const ControlClient& client, const RunRequest& request);
    std::string WhatRunsWaitFor(const ControlClient& client, const std::vector<NamedProfile>& chosen) const;
    void AskFor(const CUser& user, CPopProfile& profile, const RunRequest& request, ControlClient& client);
    void GiveUpAsked();
    std::string WhyNeverStarted(const CUser& user, const CPopProfile& profile) const;
    void EndAsked(const CString& path, const std::function<void(ControlClient::AwaitedRuns&)>& tell);
    void AnswerClients();
    bool MakeEdit(ControlClient& client, const EditRequest& request);
    void HandleRuns(ControlClient& client, const RunRequest& request);
    void StartRuns(ControlClient& client, const RunRequest& request);
    void Reload();
    void Stop(const GivenOrder& given);
    bool Obey(const GivenOrder& given);
    void HoldBack(bool holds);
    void Wait();
    void KeepAlive();

    bool HasRoot();
    bool MayRun(const CPopProfile& profile);
    void RetryLeftOut();
    void LeaveOut(const CString& path, const std::string& why);
    void RaiseGeneration();
    void RequireThatRunsMayStart() const;
    int Apply(const EditRequest& request, Reply& reply);
    void FindUnreadable();
    void SpreadFirstRuns();
    void TellRemarks();
    void EndRuns(const std::vector<CString>& paths);
    bool HasToWait(const EditRequest& request, CString& running);
    std::string Name(const CString& path) const;
    LogFacts AboutProfile(const CString& path, LogMatter matter = LogMatter::Profile) const;
    void TellEnd(const CString& path, const PastRun& run, const std::string& what_else = {},
                 std::vector<TracedMail> mails = {});
    void WriteHistory();
    ServiceReport Report();
    void HandOver(const CPopProfile& copy, const std::string& what_else);
    void ForEachProfile(const std::function<void(CUser&, CPopProfile&)>& action);

    const std::string directory_;
    const std::chrono::microseconds every_;
    Orders orders_;  // before there are threads
    ServiceLog log_;
    const ServiceManager manager_;
    const RootLock lock_;
    TreeAge age_;
    RuledRuns rules_;
    CRootPath root_;  // after the rules, which its runs ask
    ControlServer server_;
    HistoryWriter history_;

    std::set<CString> running_;  // profiles whose start has been logged and whose end has not
    std::set<CString> wanted_;   // profiles that an edit, or a request about held mail, waits for
    std::map<CString, std::unique_ptr<HeldSender>> senders_;
    std::map<CString, CTime> next_held_look_;          // profiles whose held mail is of no interest before that
    std::map<CString, std::string> left_out_;          // why, by the paths of the profiles that are not run
    std::map<CString, Clock::time_point> not_before_;  // the first runs of profiles that were due all at once
    std::map<CString, Clock::time_point> soon_;        // profiles that a rule wants to run again before they are due
    std::set<CString> retried_;                        // profiles whose next failure is not followed by such a run
    std::vector<CPopProfile*> waiting_;                // for room, in their order; none outlives a change of the tree
    std::map<CString, AskedRun> asked_;                // runs that commands have asked for, until they start
    std::map<CString, std::string> held_up_;           // why a rule keeps a profile from running now
    std::atomic<std::uint64_t> changes_{0};
    bool has_root_ = true;
    bool look_for_room_ = false;  // a run has ended, or not all that could be started was
    bool look_at_clients_ = false;
    bool stopping_ = false;
    bool holds_back_ = false;  // no run starts, and no held mail is tried, until the system says so
    Clock::time_point next_tick_ = Clock::now();
    Clock::time_point next_keep_alive_ = Clock::now();
    std::unique_ptr<MetricsServer> metrics_;  // null: none
    AlertThread alerts_;
};

}  // namespace tarvex::host
