#pragma once

// The rules of one tree, for the process that runs its profiles: what the runs share, and when which of them may start.

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "host/history/tables/mail_tables.h"
#include "host/rules/run_rules.h"

namespace tarvex::host {

// How much of the history is kept, by the rules of the tree; the defaults where they say nothing.
MailLimits LimitsOfHistory(const CString& root);
inline constexpr std::chrono::milliseconds kTidyingTime{50};  // of the history, at once

// Belongs to the thread that owns the root, and must outlive its runs.
class RuledRuns {
public:
    // `tell` hears what is wrong with the memory; see RuleMemory.
    RuledRuns(const std::string& root, RuleMemory::Tell tell);

    // As StartRun, by the profile's rules where the tree has some. Throws CommandError when a host.def cannot be read;
    // nothing is started then.
    CStartResult Start(CRootPath& root, CPopProfile& profile);

    // What the result of such a run does not tell: ", 3 copies were there already"; empty for nothing.
    std::string WhatElse(const CPopProfile& copy) const;

    // What became of messages of a run that is under way, since this was asked last.
    std::vector<TracedMail> TakeSettled(const CPopProfile& copy);

    // For a copy whose worker has finished: remembers what follows from its run, and completes its result. `mails` gets
    // what became of the messages that were not taken before.
    NextRun Finish(CPopProfile& copy, std::vector<TracedMail>* mails = nullptr);

    // Why a rule keeps the profile from running now, though it may be due; empty when none does. What ends by itself
    // does not keep a person from it (`asked`).
    std::string WhyNotNow(const CPopProfile& profile, bool asked);

    // Whether held mail may be tried by itself: not while logins to the SMTP server wait.
    bool MayTryHeld(const CPopProfile& profile);

    // Whether there is room for one more run with these servers, and for the message that the profile's last run has
    // left for want of memory.
    bool HasRoomFor(const CRootPath& root, const CPopProfile& profile);

    // How long it has taken. Before Finish; 0 where it is not under way.
    std::chrono::milliseconds Duration(const CPopProfile& copy) const;

    // Whether the run of the profile that is under way is one by rules.
    bool HasRules(const CString& profile_path) const { return RulesOfRun(profile_path) != nullptr; }

    // Ends the runs that have taken longer than their rules allow, and lets go of what is kept for no run any more. To
    // be called now and then.
    void EndLongRuns(CRootPath& root);

    // Whether runs that are due together shall not start together. False also when that cannot be read.
    bool SpreadsRuns() const;

    RuleMemory& Memory() { return memory_; }
    Ways& WaysOut() { return ways_; }

private:
    struct Run {
        std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
        std::unique_ptr<MailRecorder> recorder = std::make_unique<MailRecorder>();
        std::unique_ptr<CRunGuard> guard;
        RunRules* rules = nullptr;  // the guard, in a tree with rules
        std::chrono::steady_clock::time_point ends;
        CString relay;  // the SMTP server
    };

    std::unique_ptr<CRunGuard> MakeRules(const HostRules& rules, const CPopProfile& profile, Run& run);
    RunRules* RulesOfRun(const CString& profile_path) const;  // null where there are none

    const std::string root_;
    RuleMemory memory_;
    ByteBudget budget_{0};
    KeptMails kept_mails_{budget_};
    Ways ways_;
    std::map<CString, Run> runs_;  // by the profile's path
};

}  // namespace tarvex::host
