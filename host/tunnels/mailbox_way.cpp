// Leads conversations of POP3 through tunnels, and tells of TLS as a step of them.

#include "host/tunnels/mailbox_way.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <mutex>
#include <optional>
#include <utility>

#include "host/system/paths.h"
#include "host/terminal/wording.h"
#include "host/tunnels/stls.h"

namespace tarvex::host {
namespace {

constexpr int kDefaultTimeOut_s = 30;

// What is heard on the loop's thread.
class LastOutcome {
public:
    void Keep(const TlsOutcome& outcome) {
        const std::lock_guard lock(mutex_);
        outcome_ = outcome;
    }
    std::optional<TlsOutcome> Get() const {
        const std::lock_guard lock(mutex_);
        return outcome_;
    }

private:
    mutable std::mutex mutex_;
    std::optional<TlsOutcome> outcome_;
};

class LookingGuard final : public CRunGuard {
public:
    explicit LookingGuard(const HostRules& rules) : rules_(rules) {}

    CConnection Connects(const CPopProfile& profile, CServerToReach& server) override {
        return WayTo(server, profile, rules_, &tunnels_, [this](const TlsOutcome& outcome) { last_.Keep(outcome); });
    }
    std::optional<TlsOutcome> Outcome() const { return last_.Get(); }

private:
    const HostRules rules_;
    LastOutcome last_;
    Tunnels tunnels_;
};

std::string Told(const TlsFacts& facts) {
    std::string names;
    for (const std::string& name : facts.names) names += (names.empty() ? "" : ", ") + name;
    return facts.version + ", " + facts.cipher + ", certificate for " + names + ", " +
           ShowCount(facts.days_left, "day") + " left";
}

struct Meaning {
    TlsTrouble trouble;
    CProbeFailure failure;
    CProbeReason reason;
};

constexpr std::array kMeanings = {
    Meaning{TlsTrouble::None, PROBE_SUCCESS, CProbeReason::None},
    Meaning{TlsTrouble::NoTls, PROBE_NO_TLS, CProbeReason::None},
    Meaning{TlsTrouble::Refused, PROBE_NO_TLS, CProbeReason::TlsRefused},
    Meaning{TlsTrouble::OtherName, PROBE_BAD_CERTIFICATE, CProbeReason::OtherName},
    Meaning{TlsTrouble::OutOfDate, PROBE_BAD_CERTIFICATE, CProbeReason::OutOfDate},
    Meaning{TlsTrouble::NotTrusted, PROBE_BAD_CERTIFICATE, CProbeReason::NotTrusted},
    Meaning{TlsTrouble::NotAccepted, PROBE_BAD_CERTIFICATE, CProbeReason::None},
    Meaning{TlsTrouble::Lost, PROBE_LOST, CProbeReason::None},
    Meaning{TlsTrouble::Local, PROBE_LOCAL, CProbeReason::None},
};

CProbeStep StepOf(const TlsOutcome& outcome) {
    CProbeStep step;
    step.kind = PROBE_TLS;
    const auto meaning = std::ranges::find(kMeanings, outcome.failure.trouble, &Meaning::trouble);
    step.failure = meaning->failure;
    step.reason = meaning->reason;
    step.microseconds = outcome.taken.count();
    step.text = outcome.failure ? outcome.failure.reason : Told(outcome.facts);
    return step;
}

// To the run, TLS is a part of the wait for the greeting.
void AddTlsStep(CArray<CProbeStep>& steps, const std::optional<TlsOutcome>& outcome, PopTls tls) {
    const auto greeting = std::ranges::find(steps, int{PROBE_GREETING}, &CProbeStep::kind);
    if (greeting == steps.end()) return;
    if (!outcome) {
        // Nothing came of it in time, or the server refused before it.
        if (greeting->failure == PROBE_TIMED_OUT || greeting->failure == PROBE_LOST) greeting->kind = PROBE_TLS;
        return;
    }
    const CProbeStep step = StepOf(*outcome);
    if (outcome->failure) {
        *greeting = step;
        return;
    }
    greeting->microseconds = std::max<std::int64_t>(greeting->microseconds - step.microseconds, 0);
    steps.insert(tls == PopTls::Stls ? greeting + 1 : greeting, step);
}

}  // namespace

CConnection WayTo(CServerToReach& server, const CPopProfile& profile, const HostRules& rules, Tunnels* tunnels,
                  OnTls on_tls) {
    if (server.protocol != CProtocol::Pop3 || rules.Tls() == PopTls::Off) return {};
    if (!tunnels) return CConnection::Unusable();
    CConnection wire = server.Connect();
    if (!wire) return {};  // the run knows why
    TunnelPlan plan;
    plan.server = server.name;
    plan.authority = rules.tls_authority.empty() ? "" : NativePath(rules.tls_authority).string();
    plan.timeout = std::chrono::seconds(profile.setting.timeout > 0 ? profile.setting.timeout : kDefaultTimeOut_s);
    if (rules.Tls() == PopTls::Stls) plan.before_tls = std::make_unique<StlsSpeaker>();
    plan.on_tls = std::move(on_tls);
    return tunnels->Open(std::move(wire), std::move(plan));
}

bool LookIntoMailbox(const CPopProfile& profile, CMailboxListing& listing) {
    HostRules rules;
    try {
        rules = RulesOf(profile).value_or(HostRules());
    } catch (const CommandError& error) {
        listing = {};
        CProbeStep& step = listing.steps.emplace_back();
        step.failure = PROBE_LOCAL;
        step.text = error.what();
        return false;
    }
    if (rules.Tls() == PopTls::Off) return ListMailbox(profile.setting, &listing) != 0;
    LookingGuard guard(rules);
    const bool good = ListMailbox(profile, guard, &listing) != 0;
    AddTlsStep(listing.steps, guard.Outcome(), rules.Tls());
    return good;
}

}  // namespace tarvex::host
