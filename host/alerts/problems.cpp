// Finds what somebody should be told.

#include "host/alerts/problems.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "host/advice/advice.h"
#include "host/history/run_words.h"
#include "host/language/tr.h"
#include "host/settings/shared_account.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/terminal/wording.h"
#include "host/tree/readiness.h"
#include "tarvex/probe.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kWordsColumns = 200;
constexpr std::size_t kSubjectColumns = 120;
constexpr CTime kHour_s = 3600;
constexpr std::uint64_t kLittle_bytes = 100'000'000;
constexpr std::uint64_t kEnough_bytes = 1'000'000'000;
constexpr std::uint64_t kLittlePart = 50;  // of the disk: 2 %

int KindOf(CRunStage stage) {
    switch (stage) {
        case CRunStage::Connect:
            return PROBE_CONNECT;
        case CRunStage::Tls:
            return PROBE_TLS;
        case CRunStage::Greeting:
            return PROBE_GREETING;
        case CRunStage::Login:
            return PROBE_LOGIN;
        case CRunStage::List:
            return PROBE_LIST;
        case CRunStage::MailFrom:
            return PROBE_MAIL_FROM;
        case CRunStage::RcptTo:
            return PROBE_RCPT_TO;
        default:
            return PROBE_QUIT;
    }
}

int ProbeFailureOf(CRunStage stage, CFailureClass failure) {
    switch (failure) {
        case CFailureClass::Permanent:
        case CFailureClass::Transient:
            return PROBE_REFUSED;
        case CFailureClass::TimeOut:
            return PROBE_TIMED_OUT;
        case CFailureClass::Protocol:
            return PROBE_WRONG_PROTOCOL;
        case CFailureClass::Local:
            return PROBE_LOCAL;
        default:
            return stage == CRunStage::Connect ? PROBE_NO_CONNECTION
                   : stage == CRunStage::Tls   ? PROBE_NO_TLS
                                               : PROBE_LOST;
    }
}

// As `tarvex check` would say it of the same step.
std::string AdviceOn(const CRunResult& result, const CPopProfile& profile, const HostRules& rules) {
    const CRunFailure* const failure = FailureOf(result);
    if (!failure) return {};
    CProbeStep step;
    step.kind = KindOf(failure->stage);
    step.failure = ProbeFailureOf(failure->stage, failure->failure_class);
    if (failure->failure_class == CFailureClass::Transient) step.reason = CProbeReason::ForNow;
    step.text = failure->reply.empty() ? failure->reason : failure->reply;
    const Protocol protocol = failure == &result.mailbox ? Protocol::Pop : Protocol::Smtp;
    return Advice(step, protocol, WithAccount(profile.setting, rules), rules);
}

bool HasFailedForLong(const ProfileHistory& history, const HostRules& rules, CTime now) {
    if (history.failed_in_a_row <= 0) return false;
    return history.failed_in_a_row >= rules.alert_after || now - history.failing_since >= rules.alert_hours * kHour_s;
}

class Finder {
public:
    Finder(const ProfileState& state, const CPopProfile& profile) : state_(state), profile_(profile) {}

    FoundProblem& Add(Problem problem, std::string subject = {}) {
        FoundProblem& found = all.emplace_back();
        found.key = {state_.name, problem, std::move(subject)};
        found.address = state_.address;
        return found;
    }

    void AddFailing(const HostRules& rules, CTime now) {
        if (!state_.history || !HasFailedForLong(*state_.history, rules, now)) return;
        FoundProblem& found = Add(Problem::Failing);
        found.since = state_.history->failing_since;
        found.count = state_.history->failed_in_a_row;
        found.words = OneLine(ReasonOf(state_.history->last.result), kWordsColumns);
        found.advice = AdviceOn(state_.history->last.result, profile_, rules);
    }

    void AddNotes(Matter matter, Problem problem) {
        const auto notes = state_.remembered.find(matter);
        if (notes == state_.remembered.end()) return;
        for (const auto& [subject, note] : notes->second) {
            FoundProblem& found =
                Add(problem, problem == Problem::Parked ? OneLine(subject, kSubjectColumns) : std::string());
            found.since = note.since;
            found.count = note.count;
            found.words = OneLine(note.words, kWordsColumns);
        }
    }

    std::vector<FoundProblem> all;

private:
    const ProfileState& state_;
    const CPopProfile& profile_;
};

}  // namespace

std::vector<FoundProblem> ProblemsOf(const ProfileState& state, const CPopProfile& profile, const HostRules& rules,
                                     CTime now) {
    Finder finder(state, profile);
    if (!state.trouble.empty()) finder.Add(Problem::LeftOut).words = OneLineOfUtf8(state.trouble, kWordsColumns);
    if (state.switched_on) {
        finder.AddFailing(rules, now);
        if (!state.wants_login.empty())
            finder.Add(Problem::WantsLogin).words = OneLineOfUtf8(state.wants_login, kWordsColumns);
        finder.AddNotes(Matter::Waiting, Problem::Waiting);
        finder.AddNotes(Matter::Parked, Problem::Parked);
    }
    if (!state.held.IsEmpty()) finder.Add(Problem::Held).count = state.held.messages;
    return std::move(finder.all);
}

DiskRoom RoomOn(const std::string& directory) {
    std::error_code error;
    const std::filesystem::space_info space = std::filesystem::space(NativePath(directory), error);
    return error ? DiskRoom() : DiskRoom{space.available, space.capacity};
}

bool IsShort(const DiskRoom& room) {
    if (room.capacity == 0) return false;
    return room.available < kLittle_bytes ||
           (room.available < room.capacity / kLittlePart && room.available < kEnough_bytes);
}

std::vector<FoundProblem> ProblemsOfTree(const CRootPath& root, const DiskRoom& room,
                                         const std::optional<OldCopy>& old_copy) {
    std::vector<FoundProblem> all;
    if (old_copy) {
        FoundProblem& found = all.emplace_back();
        found.key.problem = Problem::OldCopy;
        found.words = WhyHeldBack(*old_copy);
    }
    if (IsShort(room)) {
        FoundProblem& found = all.emplace_back();
        found.key.problem = Problem::DiskIsShort;
        found.words = Tr("{0} of {1} are free", ShowBytes(static_cast<std::int64_t>(room.available)),
                         ShowBytes(static_cast<std::int64_t>(room.capacity)));
    }
    for (const std::string& why : WhatIsNotListed(root)) {
        FoundProblem& found = all.emplace_back();
        found.key = {"", Problem::FolderUnreadable, OneLineOfUtf8(why, kWordsColumns)};
    }
    return all;
}

std::string CommandFor(const ProblemKey& key) {
    switch (key.problem) {
        case Problem::DiskIsShort:
            return "df -h";
        case Problem::FolderUnreadable:  // of the whole tree
            return "tarvex status";
        case Problem::LeftOut:
            return "tarvex status " + key.profile;
        case Problem::Failing:
            return "tarvex check " + key.profile;
        case Problem::WantsLogin:
            return "tarvex login " + key.profile;
        case Problem::Waiting:
            return "tarvex accept " + key.profile;
        case Problem::Parked:
            return "tarvex check " + key.profile;
        case Problem::Held:
            return "tarvex held list " + key.profile;
        case Problem::OldCopy:
            return "tarvex accept";
    }
    return {};
}

}  // namespace tarvex::host
