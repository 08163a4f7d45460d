#pragma once

// The rules of one tree, for the process that runs its profiles: what the runs share, and when which of them may start.

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "host/rules/run_rules.h"

namespace tarvex::host {

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

    // For a copy whose worker has finished: remembers what follows from its run, and completes its result.
    NextRun Finish(CPopProfile& copy);

    // Why a rule keeps the profile from running now, though it may be due; empty when none does. What ends by itself
    // does not keep a person from it (`asked`).
    std::string WhyNotNow(const CPopProfile& profile, bool asked);

    // Whether held mail may be tried by itself: not while logins to the SMTP server wait.
    bool MayTryHeld(const CPopProfile& profile);

    // Whether there is room for one more run with these servers, and for the message that the profile's last run has
    // left for want of memory.
    bool HasRoomFor(const CRootPath& root, const CPopProfile& profile);

    // Whether the run of the profile that is under way is one by rules.
    bool HasRules(const CString& profile_path) const { return runs_.contains(profile_path); }

    // Ends the runs that have taken longer than their rules allow, and lets go of what is kept for no run any more. To
    // be called now and then.
    void EndLongRuns(CRootPath& root);

    // Whether runs that are due together shall not start together. False also when that cannot be read.
    bool SpreadsRuns() const;

    RuleMemory& Memory() { return memory_; }
    Ways& WaysOut() { return ways_; }

private:
    struct Run {
        std::unique_ptr<RunRules> rules;
        std::chrono::steady_clock::time_point ends;
        CString relay;  // the SMTP server
    };

    const std::string root_;
    RuleMemory memory_;
    ByteBudget budget_{0};
    KeptMails kept_mails_{budget_};
    Ways ways_;
    std::map<CString, Run> runs_;  // by the profile's path
};

}  // namespace tarvex::host
