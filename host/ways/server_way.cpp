// Leads conversations through tunnels, with a token where one is wanted, and tells of TLS as a step of them.

#include "host/ways/server_way.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <mutex>
#include <optional>
#include <utility>

#include "host/settings/shared_account.h"
#include "host/system/paths.h"
#include "host/terminal/wording.h"
#include "host/tokens/login_speaker.h"
#include "host/tokens/profile_tokens.h"
#include "host/tunnels/smtp_starttls.h"
#include "host/tunnels/socket_pair.h"
#include "host/tunnels/stls.h"
#include "host/ways/header_look.h"

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
    LookingGuard(const CPopProfile& profile, const HostRules& rules)
        : rules_(rules), ways_(ParentOf(ParentOf(profile.path))) {}

    CSmtpAccount SendsThrough(const CPopProfile& profile) override { return SmtpAccountOf(profile.setting, rules_); }
    CConnection Connects(const CPopProfile& profile, CServerToReach& server) override {
        return WayTo(server, profile, rules_, &ways_, [this](const TlsOutcome& outcome) { last_.Keep(outcome); });
    }
    std::optional<TlsOutcome> Outcome() const { return last_.Get(); }

private:
    const HostRules rules_;
    LastOutcome last_;
    Ways ways_;
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

// Tells of TLS as it is told in the end: a step before the greeting, or after that of a server that is asked for it.
CProbeWatch WithTls(const CProbeWatch& watch, const LookingGuard& guard, PopTls tls) {
    if (!watch || tls == PopTls::Off) return watch;
    return [&watch, &guard, tls](std::span<const CProbeStep> steps) {
        CArray<CProbeStep> told(steps.begin(), steps.end());
        if (told.back().kind != PROBE_GREETING) AddTlsStep(told, guard.Outcome(), tls);
        if (told.back().kind == PROBE_GREETING && tls == PopTls::FromTheFirstByte) told.back().kind = PROBE_TLS;
        watch(told);
    };
}

// The numbers of sslsmtp mean what those of pop_tls mean.
PopTls SmtpTlsOf(const CSmtpAccount& account) {
    return account.tls == 2 ? PopTls::Stls : account.tls == 0 ? PopTls::Off : PopTls::FromTheFirstByte;
}

// Throws TokenTrouble.
std::unique_ptr<TunnelSpeaker> SpeakerFor(const CServerToReach& server, const CPopProfile& profile,
                                          const HostRules& rules, AccessTokens& tokens, UsedToken* used) {
    const bool is_smtp = server.protocol == CProtocol::Smtp;
    TokenLogin login;
    login.method =
        (is_smtp ? rules.smtp_login : rules.pop_login) == 1 ? TokenMethod::XOAuth2 : TokenMethod::OAuthBearer;
    login.token = tokens.Of(OwnerOf(profile), TokenCommandOf(rules));
    login.host = server.name;
    login.port = server.port;
    if (used) {
        used->token = login.token;
        login.was_refused = used->was_refused;
    }
    return is_smtp ? SmtpLoginSpeaker(std::move(login)) : PopLoginSpeaker(std::move(login));
}

std::optional<HostRules> ReadRules(const CPopProfile& profile, CArray<CProbeStep>& steps) {
    try {
        return RulesOf(profile).value_or(HostRules());
    } catch (const CommandError& error) {
        CProbeStep& step = steps.emplace_back();
        step.failure = PROBE_LOCAL;
        step.text = error.what();
        return std::nullopt;
    }
}

// "-ERR [AUTH] token: why", or "-ERR [SYS/TEMP] ..." for trouble that may pass by itself (RFC 3206); of SMTP with the
// codes 535 and 454 (RFC 4954).
std::string RefusalOf(CProtocol protocol, const TokenTrouble& trouble) {
    const bool may_pass = trouble.Kind() == TokenTroubleKind::ForNow;
    const char* const code = protocol == CProtocol::Smtp ? (may_pass ? "454 4.7.0" : "535 5.7.8")
                                                         : (may_pass ? "-ERR [SYS/TEMP]" : "-ERR [AUTH]");
    const bool by_login = trouble.Kind() == TokenTroubleKind::NeedsLogin;
    return code + std::string(" token: ") + trouble.what() + (by_login ? "; `tarvex login` mends it" : "") + "\r\n";
}

// Where there is no token, the run hears the greeting of a server that refuses.
CConnection RefusedConnection(CProtocol protocol, const TokenTrouble& trouble) {
    std::optional<SocketPair> pair = MakeSocketPair();
    if (!pair) return CConnection::Unusable();
    SendLine(pair->for_tunnel, RefusalOf(protocol, trouble));
    return std::move(pair->for_run);
}

}  // namespace

CConnection WayTo(CServerToReach& server, const CPopProfile& profile, const HostRules& rules, Ways* ways, OnTls on_tls,
                  UsedToken* used) {
    const bool is_smtp = server.protocol == CProtocol::Smtp;
    const PopTls tls = is_smtp ? SmtpTlsOf(SmtpAccountOf(profile.setting, rules)) : rules.Tls();
    const int login = LoginAt(server.protocol, profile.setting, rules);
    if (login == 0 && (is_smtp || tls == PopTls::Off)) return {};
    if (!ways) return CConnection::Unusable();
    TunnelPlan plan;
    try {
        if (login != 0 && tls == PopTls::Off) {
            throw TokenTrouble(TokenTroubleKind::ForGood, is_smtp ? "sslsmtp is plain, and no token goes out in clear"
                                                                  : "pop_tls is off, and no token goes out in clear");
        }
        if (login != 0) plan.after_tls = SpeakerFor(server, profile, rules, ways->tokens, used);
    } catch (const TokenTrouble& trouble) {
        return RefusedConnection(server.protocol, trouble);
    }
    CConnection wire = server.Connect();
    if (!wire) return {};  // the run knows why
    plan.protocol = server.protocol;
    plan.server = server.name;
    plan.authority = rules.tls_authority.empty() ? "" : NativePath(rules.tls_authority).string();
    plan.timeout = std::chrono::seconds(profile.setting.timeout > 0 ? profile.setting.timeout : kDefaultTimeOut_s);
    if (tls == PopTls::Stls && !is_smtp) plan.before_tls = std::make_unique<StlsSpeaker>();
    if (tls == PopTls::Stls && is_smtp) plan.before_tls = std::make_unique<StartTlsSpeaker>();
    plan.on_tls = std::move(on_tls);
    return ways->tunnels.Open(std::move(wire), std::move(plan));
}

bool LookIntoMailbox(const CPopProfile& profile, CMailboxListing& listing, const CProbeWatch& watch) {
    listing = {};
    const std::optional<HostRules> rules = ReadRules(profile, listing.steps);
    return rules && LookIntoMailbox(profile, *rules, listing, watch);
}

bool LookIntoMailbox(const CPopProfile& profile, const HostRules& rules, CMailboxListing& listing,
                     const CProbeWatch& watch) {
    LookingGuard guard(profile, rules);
    const bool good = ListMailbox(profile, guard, WithTls(watch, guard, rules.Tls()), &listing) != 0;
    if (rules.Tls() != PopTls::Off) AddTlsStep(listing.steps, guard.Outcome(), rules.Tls());
    return good;
}

bool LookForHeaders(const CPopProfile& profile, const CHeadersToList& wanted, CMailboxListing& listing,
                    CListedHeaders& headers) {
    listing = {};
    const std::optional<HostRules> rules = ReadRules(profile, listing.steps);
    if (!rules) return false;
    LookingGuard guard(profile, *rules);
    const bool good = ListMailbox(profile, guard, wanted, &listing, &headers) != 0;
    if (rules->Tls() != PopTls::Off) AddTlsStep(listing.steps, guard.Outcome(), rules->Tls());
    return good;
}

bool TryRelay(const CPopProfile& profile, std::span<const CString> recipients, CSmtpTrial& trial,
              const CProbeWatch& watch) {
    trial = {};
    const std::optional<HostRules> rules = ReadRules(profile, trial.steps);
    return rules && TryRelay(profile, *rules, recipients, trial, watch);
}

bool TryRelay(const CPopProfile& profile, const HostRules& rules, std::span<const CString> recipients,
              CSmtpTrial& trial, const CProbeWatch& watch) {
    LookingGuard guard(profile, rules);
    const bool has_tunnel = LoginAt(CProtocol::Smtp, profile.setting, rules) != 0;
    const PopTls tls = has_tunnel ? SmtpTlsOf(SmtpAccountOf(profile.setting, rules)) : PopTls::Off;
    const bool good = TrySmtp(profile, guard, recipients, WithTls(watch, guard, tls), &trial) != 0;
    if (has_tunnel) AddTlsStep(trial.steps, guard.Outcome(), tls);
    return good;
}

}  // namespace tarvex::host
