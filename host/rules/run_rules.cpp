// The answers of the host's rules, in the order in which a run asks.
//
// The rule of the house decides where two rules meet: a message may go out twice, but it is never lost. So what is not
// sent is in the folder held/ before its id is noted, and what cannot be set aside ends the run as it always did.

#include "host/rules/run_rules.h"

#include <algorithm>
#include <atomic>
#include <ctime>
#include <vector>

#include "host/held/held_sending.h"
#include "host/rules/flood.h"
#include "host/terminal/wording.h"
#include "host/tokens/profile_tokens.h"
#include "host/tree/tree_rules.h"

namespace tarvex::host {
namespace {

constexpr int kSetAsideAfter = 2;                       // refusals of one copy in a row, for the time being
constexpr int kMostRefusedDeletions = 10;               // of a run; then the server is not asked any more
constexpr std::int64_t kMostMessageBytes = 256 * kMiB;  // no longer one is ever held, whatever the server says

CRunStage StageOf(int step) {
    switch (step) {
        case PROBE_FIND_SERVER:
        case PROBE_CONNECT:
            return CRunStage::Connect;
        case PROBE_TLS:
            return CRunStage::Tls;
        case PROBE_LOGIN:
            return CRunStage::Login;
        default:
            return CRunStage::Greeting;
    }
}

// Why the SMTP server is not ready for mail; nothing when it is. It is reached and logged in to as by the run itself.
std::optional<CRunFailure> WhyNoSmtp(const CPopProfile& profile, CRunGuard& guard) {
    CSmtpTrial trial;
    if (TrySmtp(profile, guard, &trial) != 0 || trial.steps.empty()) return std::nullopt;
    const CProbeStep& failed = trial.steps.back();
    CRunFailure failure;
    failure.stage = StageOf(failed.kind);
    failure.failure_class = failed.failure == PROBE_TIMED_OUT ? CFailureClass::TimeOut : CFailureClass::Connection;
    (failed.failure == PROBE_REFUSED ? failure.reply : failure.reason) = failed.text;
    if (failed.failure == PROBE_REFUSED)
        failure.failure_class = failed.text.starts_with('5') ? CFailureClass::Permanent : CFailureClass::Transient;
    return failure;
}

// The server was not asked to take it.
bool IsUnasked(const HeldRecord& record) { return record.damage.empty() && record.kind != HeldKind::Refused; }

bool HasOtherIds(const CPopProfile& profile, const SortedIds& listed) {
    bool has_known = false;
    for (const auto& address : profile.forward_addresses) {
        has_known = has_known || !address->uidls.empty();
        const auto is_listed = [&](std::string_view uidl) { return std::ranges::binary_search(listed, uidl); };
        if (std::ranges::any_of(address->uidls, is_listed)) return false;
    }
    return has_known && !listed.empty();
}

// The run asks for the rest in vain.
bool IsLineLost(const CRunResult& result) {
    return !result.not_fetched.empty() && result.not_fetched.back().reply.empty();
}

}  // namespace

CTime RunRules::CurrentTime() { return std::time(nullptr); }

RunRules::RunRules(const HostRules& rules, const CPopProfile& profile, RuleMemory& memory, ByteBudget& budget,
                   KeptMails& kept_mails, Clock clock)
    : rules_(rules),
      token_owner_(OwnerOf(profile)),
      interval_s_(IntervalSeconds(profile.setting.timer)),
      memory_(memory),
      profile_memory_(memory.Of(profile.path)),
      lists_(profile_memory_),
      servers_fault_(profile_memory_),
      budget_(budget),
      kept_mails_(kept_mails),
      user_(profile.path),
      store_(profile.path),
      clock_(std::move(clock)),
      left_(profile_memory_),
      rotation_(profile_memory_) {}

RunRules::~RunRules() { budget_.Leave(user_); }

// ---- before anything is fetched

// While SMTP is down nothing is fetched for nothing.
bool RunRules::Begins(const CPopProfile& profile) {
    if (rules_.floodguard && profile_memory_.IsWaiting()) return false;
    if (!rules_.backoff || !profile_memory_.HasSmtpFailed()) return true;
    kept_back_ = WhyNoSmtp(profile, *this);
    if (!kept_back_) profile_memory_.RecordLogin(MailServer::Smtp);
    return !kept_back_;
}

bool RunRules::Listed(const CPopProfile& profile, std::span<const CMailOnServer> listing) {
    SortedIds ids;
    ids.reserve(listing.size());
    for (const CMailOnServer& mail : listing) ids.push_back(mail.uidl);
    Sort(ids);
    if (rules_.floodguard && MustWait(profile, listing, ids)) return false;
    lists_.BeforeRun(profile, ids, Now());
    ids.erase(ids.begin(), std::ranges::upper_bound(ids, std::string_view()));  // those that are empty
    for (auto id = std::ranges::adjacent_find(ids); id != ids.end(); id = std::adjacent_find(id + 1, ids.end())) {
        twice_.emplace(*id);
    }
    DropRepeated(ids);
    kept_ = kept_mails_.Take(profile, Now());
    profile_memory_.Seen(ids, Now());
    for (const auto& address : profile.forward_addresses) addresses_.push_back(address->setting.address);
    profile_memory_.KeepNotesOf(addresses_, Now());
    not_fetched_before_ = profile_memory_.Notes(Matter::NotFetched);
    servers_fault_.Load();
    if (const auto records = store_.List()) {
        for (const HeldRecord& record : *records) {
            if (record.damage.empty()) NoteHeld(profile, record);
        }
        left_.Begin(std::ranges::count_if(*records, IsUnasked), Now());
    }
    has_other_ids_ = HasOtherIds(profile, ids);
    TakeTurns(listing);
    return true;
}

bool RunRules::HasOwnId(const CMailOnServer& mail) const { return !mail.uidl.empty() && !StandsTwice(mail.uidl); }

// A server whose ids are others in every session tells no more than one without.
bool RunRules::TakesTurns(const CMailOnServer& mail) const {
    return rules_.sentonce && (has_other_ids_ || !HasOwnId(mail));
}

// Without an id of its own, only the memory knows whether a message was sent.
void RunRules::TakeTurns(std::span<const CMailOnServer> listing) {
    std::vector<std::int64_t> numbers;
    for (const CMailOnServer& mail : listing) {
        if (TakesTurns(mail)) numbers.push_back(NumberOf(mail));
    }
    const auto has_own_id = [this](const CMailOnServer& mail) { return HasOwnId(mail); };
    can_remember_ = !rules_.sentonce || std::ranges::all_of(listing, has_own_id) || profile_memory_.CanRemember(Now());
    rotation_.Begin(std::move(numbers));
}

// For a person to say what counts as sent.
bool RunRules::MustWait(const CPopProfile& profile, std::span<const CMailOnServer> listing, const SortedIds& listed) {
    if (profile_memory_.GivenAnswer() == WaitAnswer::Send) return false;
    std::optional<std::string> why = lists_.WhyOlder(profile, listing);
    if (!why) why = WhyFlood(profile, listed, rules_, profile_memory_, memory_.Root());
    if (why) profile_memory_.Wait(*why, Now());
    return why.has_value();
}

bool RunRules::IsHandled(const CPopProfile& /*profile*/, const CMailOnServer& mail, bool received) {
    if (!received) return left_.Rests(mail.uidl);
    return !rules_.sentonce || (HasOwnId(mail) && !HasOtherSize(mail));
}

// A server may have given the id of a message that is gone to another one.
bool RunRules::HasOtherSize(const CMailOnServer& mail) {
    if (mail.size_bytes < 0) return false;
    const std::int64_t size = profile_memory_.SizeOfId(CString(mail.uidl));
    return size >= 0 && size != mail.size_bytes;
}

// The id is forgotten with the message: a server may give it to the next one, which would pass for handled otherwise. A
// message that the server did not delete is known by its bytes.
bool RunRules::Deletes(const CPopProfile& profile, const CMailOnServer& mail) {
    if (left_.Rests(mail.uidl) || !MayDelete(profile, mail.uidl)) return false;
    lists_.BeforeDeletion(profile, mail.uidl, Now());
    return true;
}

bool RunRules::MayDelete(const CPopProfile& profile, std::string_view id) {
    if (!rules_.deletewaits) return true;
    const CString uidl(id);
    return refused_deletions_ < kMostRefusedDeletions && !uidl.empty() && !StandsTwice(uidl) &&
           HasEverybody(profile, uidl) && profile_memory_.MayDelete(uidl, Now());
}

// Everybody who is switched on, whatever his schedule says now.
bool RunRules::HasEverybody(const CPopProfile& profile, std::string_view uidl) {
    if (!received_) {
        received_.emplace();
        for (const auto& address : profile.forward_addresses) {
            if (address->setting.status == 0) continue;
            received_->try_emplace(address.get(), address->uidls.begin(), address->uidls.end());
        }
    }
    return std::ranges::all_of(*received_, [uidl](const auto& of) { return of.second.contains(uidl); });
}

bool RunRules::GoesOnAfter(const CPopProfile& /*profile*/, const CRunFailure& refused_deletion) {
    if (!rules_.deletewaits) return false;
    ++refused_deletions_;
    profile_memory_.RecordNotDeleted(refused_deletion.uidl, refused_deletion.reply, Now());
    return true;
}

// ---- while the rest is fetched

bool RunRules::WantsSizes(const CPopProfile& /*profile*/) {
    asked_for_sizes_ = profile_memory_.MayAskForSizes(Now());
    return asked_for_sizes_;
}

bool RunRules::ComesLast(const CPopProfile& /*profile*/, const CMailOnServer& mail) {
    if (TakesTurns(mail)) return rotation_.IsOld(NumberOf(mail));
    const bool failed = rules_.retrylast && not_fetched_before_.contains(CString(mail.uidl));
    return failed || left_.Knows(mail.uidl) || servers_fault_.ComesLast(CString(mail.uidl));
}

// What another profile has in memory, and may never need, goes first.
bool RunRules::TakeFromBudget(const CPopProfile& profile, std::int64_t held_bytes, std::int64_t bytes) {
    const std::atomic<std::int64_t>* const received = &profile.observer.bytes_received;
    if (budget_.Ask(user_, held_bytes, bytes, received)) return true;
    kept_mails_.MakeRoom(bytes);
    return budget_.Ask(user_, held_bytes, bytes, received);
}

// Only an id that stands for one message says that this is the same one. One that is the message's number goes over to
// the next message when one before it is deleted.
std::optional<CString> RunRules::Kept(const CPopProfile& /*profile*/, const CMailOnServer& mail) {
    if (kept_.IsEmpty() || mail.uidl == mail.number || StandsTwice(mail.uidl)) return std::nullopt;
    return kept_.Take(CString(mail.uidl), mail.size_bytes);
}

bool RunRules::Fetches(const CPopProfile& profile, const CMailOnServer& mail, std::int64_t held_bytes) {
    const bool takes_turns = TakesTurns(mail);
    const bool waits = takes_turns && !can_remember_ && !HasOwnId(mail);
    if (waits) ++not_remembered_;
    if (waits || (takes_turns && !rotation_.HasItsTurn(NumberOf(mail)))) return false;
    if (ComesLast(profile, mail) && !profile_memory_.MayFetch(CString(mail.uidl), Now())) return false;
    const std::int64_t bytes = std::clamp<std::int64_t>(mail.size_bytes, 0, kMostMessageBytes);
    if (bytes > budget_.Largest()) {
        const std::string words = "it has " + ShowBytes(bytes) + ", more than the memory allows";
        if (!mail.uidl.empty()) profile_memory_.CountNotFetched(CString(mail.uidl), words, Now());
        return false;
    }
    const std::int64_t held = held_bytes + kept_.Bytes();
    const bool fits = held == 0 || held + bytes <= rules_.runsize * kMiB;
    if (!fits || !TakeFromBudget(profile, held, bytes)) {
        over_budget_ = true;
        if (takes_turns) rotation_.EndsHere();
        return false;
    }
    if (takes_turns && !IsLineLost(profile.result)) rotation_.Fetches(NumberOf(mail));
    if (recorder_) recorder_->Fetches(mail);
    return true;
}

std::int64_t RunRules::LeastBytesPerMinute(const CPopProfile& /*profile*/) {
    return std::int64_t{rules_.minspeed} * 60;
}

bool RunRules::DeliversAfter(const CPopProfile& /*profile*/, const CRunFailure& /*failed_retrieval*/) {
    return rules_.retrylast;
}

// ---- while it is delivered

CSending RunRules::Sends(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address,
                         bool received) {
    if (fetched_.empty()) budget_.Settle(user_);  // all is here
    const CString& to = address.setting.address;
    if (rules_.keyless && !HasMailbox(address)) {
        Tell(mail, to, CopyFate::Waits, "the address is none");
        return CSending::KeepBack;
    }
    const Fetched& fetched = Of(profile, mail);
    const bool sent = rules_.sentonce && fetched.sent_before.contains(&address);
    if (sent || IsHeld(fetched.digest, address)) {
        const bool came_back = profile.setting.deletemail != 0 && fetched.was_here_before && !received;
        if (came_back) profile_memory_.RecordNotDeleted(mail.uidl, "the server lists it again", Now());
        if (sent && (!received || fetched.is_new_under_its_id)) ++had_already_;
        // An id that others have as well says nothing.
        if (!received && !mail.uidl.empty() && !StandsTwice(mail.uidl)) {
            has_learnt_ = !has_other_ids_;
            if (has_learnt_ && sent) Tell(mail, to, CopyFate::HadAlready);
        }
        NoteNewId(profile, fetched);
        return CSending::HasIt;
    }
    if (fetched.for_nobody) {
        Tell(mail, to, CopyFate::Waits, "there is no room to set it aside");
        if (HoldUnasked(profile, mail, fetched, *fetched.for_nobody, address)) return CSending::HasIt;
        left_.Add(fetched.digest, Now());
        return CSending::KeepBack;
    }
    const bool by_bytes = mail.uidl.empty() || fetched.is_new_under_its_id || StandsTwice(mail.uidl);
    const bool has_it = received && !(rules_.sentonce && by_bytes);
    if (!has_it) Tell(mail, to, CopyFate::Waits);
    if (!has_it && received) lists_.Forget(address, Now());  // a failure takes the id off its list
    if (!rules_.sentonce) return CSending::AsAlways;
    return has_it ? CSending::HasIt : CSending::Send;
}

bool RunRules::Offers(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address) {
    const CString& to = address.setting.address;
    if (recorder_) recorder_->Offers(mail, to);
    if (!rules_.setaside || !profile_memory_.IsParked(to) || profile_memory_.MayAsk(to, Now())) return true;
    return !HoldUnasked(profile, mail, Of(profile, mail), HeldKind::Refused, address);
}

int RunRules::TextMailHeaderBytes(const CPopProfile& /*profile*/) { return rules_.header_limit; }

int RunRules::EndOfDataSeconds(const CPopProfile& /*profile*/) { return rules_.endofdata; }

// What is refused for the time being is set aside when that comes twice in a row.
CRefusal RunRules::Refused(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address,
                           const CRunFailure& refusal) {
    if (!rules_.setaside) return CRefusal::EndDelivery;
    const CString& to = address.setting.address;
    Tell(mail, to, CopyFate::Waits, refusal.reply);
    const Fetched& fetched = Of(profile, mail);
    const bool for_now = refusal.failure_class == CFailureClass::Transient;
    const bool again =
        !for_now || profile_memory_.CountRefusal(to, fetched.digest, refusal.reply, Now()) >= kSetAsideAfter;
    if (servers_fault_.IsIn(profile, address, fetched.digest, refusal, Now()) || !again) return CRefusal::EndDelivery;
    const HeldAddress waiting =
        RefusedNow(profile, address, refusal.stage, refusal.failure_class, refusal.reply, Now());
    if (!Hold(mail, fetched, HeldKind::Refused, waiting)) return CRefusal::EndDelivery;
    if (refusal.stage == CRunStage::RcptTo) profile_memory_.Park(to, refusal.reply, Now());
    return CRefusal::HostHasIt;
}

void RunRules::Taken(const CPopProfile& profile, const CReceiveMail& mail, std::span<CForwardAddress* const> addresses,
                     std::string_view reply) {
    std::vector<CString> to;
    for (const CForwardAddress* address : addresses) to.push_back(address->setting.address);
    profile_memory_.RecordSent(to, Of(profile, mail).digest, Now());
    for (const CString& address : to) Tell(mail, address, CopyFate::Sent, reply);
    NoteNewId(profile, Of(profile, mail));
    servers_fault_.Taken(profile, Now());
    for (const CForwardAddress* address : addresses) {
        if (profile_memory_.IsParked(address->setting.address)) {
            profile_memory_.Unpark(address->setting.address);
            MakeHeldDue(profile.path, FolderOf(*address), Now());  // what waits for it follows in order
        }
    }
}

// ---- what is not delivered

void RunRules::NotReached(const CPopProfile& profile, std::span<CReceiveMail* const> mails) {
    if (profile.result.mailbox.stage == CRunStage::None) kept_ = {};  // the server lists it no more
    for (CReceiveMail* const mail : mails) {
        const bool is_known = !mail->uidl.empty() && !StandsTwice(mail->uidl);
        if (!is_known || mail->listed_bytes < 0 || mail->listed_bytes > kMostMessageBytes) continue;
        const auto fetched = fetched_.find(mail);
        if (fetched == fetched_.end()) continue;
        std::optional<CString> text = AsFetched(std::move(mail->text), fetched->second);
        if (text) kept_.Add(mail->uidl, mail->listed_bytes, *std::move(text));
    }
    if (kept_.IsEmpty()) return;
    kept_mails_.Keep(profile, std::exchange(kept_, {}), Now());
}

}  // namespace tarvex::host
