// The answers of the host's rules, in the order in which a run asks.
//
// The rule of the house decides where two rules meet: a message may go out twice, but it is never lost. So what is not
// sent is in the folder held/ before its id is noted, and what cannot be set aside ends the run as it always did.

#include "host/rules/run_rules.h"

#include <algorithm>
#include <atomic>
#include <ctime>
#include <vector>

#include "host/rules/delivery_report.h"
#include "host/rules/flood.h"
#include "host/rules/held_sending.h"
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

// Why the SMTP server is not ready for mail; nothing when it is.
std::optional<CRunFailure> WhyNoSmtp(const CPopProfileSetting& setting) {
    CSmtpTrial trial;
    if (TrySmtp(setting, &trial) != 0 || trial.steps.empty()) return std::nullopt;
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

bool HasOtherIds(const CPopProfile& profile, const std::unordered_set<std::string_view>& listed) {
    bool has_known = false;
    for (const auto& address : profile.forward_addresses) {
        has_known = has_known || !address->uidls.empty();
        if (std::ranges::any_of(address->uidls, [&](const auto& uidl) { return listed.contains(uidl); })) return false;
    }
    return has_known && !listed.empty();
}

// The run asks for the rest in vain.
bool IsLineLost(const CRunResult& result) {
    return !result.not_fetched.empty() && result.not_fetched.back().reply.empty();
}

// Another run may do better without anybody's help.
bool MayPass(CFailureClass failure_class) {
    return failure_class == CFailureClass::Transient || failure_class == CFailureClass::Connection ||
           failure_class == CFailureClass::TimeOut;
}

// The part that a delivery may change: the line ends before the header, and the header where the profile rewrites it.
CString FrontOf(std::string_view text, bool rewritten) {
    std::size_t end = 0;
    while (text.substr(end).starts_with("\r\n")) end += 2;
    if (rewritten) end = std::min(text.find("\r\n\r\n", end), text.size());
    return CString(text.substr(0, end));
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
    kept_back_ = WhyNoSmtp(profile.setting);
    if (!kept_back_) profile_memory_.RecordLogin(MailServer::Smtp);
    return !kept_back_;
}

bool RunRules::Listed(const CPopProfile& profile, std::span<const CMailOnServer> listing) {
    std::unordered_set<std::string_view> ids;
    std::vector<CString> uidls;
    for (const CMailOnServer& mail : listing) {
        if (mail.uidl.empty()) continue;
        if (!ids.insert(mail.uidl).second) {
            twice_.emplace(mail.uidl);
        } else {
            uidls.emplace_back(mail.uidl);
        }
    }
    if (rules_.floodguard && HasFlood(profile, listing)) return false;
    kept_ = kept_mails_.Take(profile, Now());
    profile_memory_.Seen(uidls, Now());
    std::vector<CString> addresses;
    for (const auto& address : profile.forward_addresses) addresses.push_back(address->setting.address);
    profile_memory_.KeepNotesOf(addresses, Now());
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

bool RunRules::HasFlood(const CPopProfile& profile, std::span<const CMailOnServer> listing) {
    if (profile_memory_.GivenAnswer() == WaitAnswer::Send) return false;
    const auto why = WhyFlood(profile, listing, rules_, profile_memory_, memory_.Root());
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
    if (left_.Rests(mail.uidl)) return false;
    if (!rules_.deletewaits) return true;
    const CString uidl(mail.uidl);
    return refused_deletions_ < kMostRefusedDeletions && !uidl.empty() && !StandsTwice(uidl) &&
           HasEverybody(profile, mail.uidl) && profile_memory_.MayDelete(uidl, Now());
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
    return true;
}

std::int64_t RunRules::LeastBytesPerMinute(const CPopProfile& /*profile*/) {
    return std::int64_t{rules_.minspeed} * 60;
}

bool RunRules::DeliversAfter(const CPopProfile& /*profile*/, const CRunFailure& /*failed_retrieval*/) {
    return rules_.retrylast;
}

// ---- while it is delivered

RunRules::Fetched& RunRules::Of(const CPopProfile& profile, const CReceiveMail& mail) {
    const auto [entry, is_new] = fetched_.try_emplace(&mail);
    Fetched& fetched = entry->second;
    if (!is_new) return fetched;
    fetched.uidl = mail.uidl;
    fetched.listed_bytes = mail.listed_bytes;
    fetched.digest = memory_.DigestOf(mail.text);
    if (!mail.uidl.empty()) {
        const std::optional<MailDigest> before = profile_memory_.DigestOfId(mail.uidl);
        fetched.is_new_under_its_id = before && *before != fetched.digest;
        fetched.was_here_before = before == fetched.digest;
        const bool adds_nothing = fetched.was_here_before && fetched.listed_bytes < 0;
        if (!fetched.is_new_under_its_id && !adds_nothing) NoteId(fetched);
    }
    if (rules_.loopguard) Judge(profile, mail, fetched);
    fetched.front = FrontOf(mail.text, profile.setting.replacefrom != 0 || profile.setting.replaceto != 0);
    fetched.rest_bytes = mail.text.size() - fetched.front.size();
    return fetched;
}

void RunRules::NoteId(const Fetched& fetched) {
    profile_memory_.RecordId(fetched.uidl, fetched.digest, Now(), fetched.listed_bytes);
}

// Until everybody has what is new under an id, the id must not be known for it: a run that ends before would leave it
// to those lists that have the id since the message before.
void RunRules::NoteNewId(const CPopProfile& profile, const Fetched& fetched) {
    if (!fetched.is_new_under_its_id) return;
    const bool everybody = std::ranges::all_of(profile.forward_addresses, [&](const auto& address) {
        return address->setting.status == 0 || IsHeld(fetched.digest, *address) ||
               profile_memory_.WasSent(address->setting.address, fetched.digest, Now());
    });
    if (everybody) NoteId(fetched);
}

std::optional<CString> RunRules::AsFetched(CString text, const Fetched& fetched) {
    if (text.size() < fetched.rest_bytes) return std::nullopt;
    text.replace(0, text.size() - fetched.rest_bytes, fetched.front);
    if (memory_.DigestOf(text) != fetched.digest) return std::nullopt;
    return text;
}

void RunRules::Judge(const CPopProfile& profile, const CReceiveMail& mail, Fetched& fetched) {
    std::vector<CString> addresses;
    bool is_settled = true;
    for (const auto& address : profile.forward_addresses) {
        addresses.push_back(address->setting.address);
        if (address->takes_part && !profile_memory_.WasSent(addresses.back(), fetched.digest, Now()) &&
            !IsHeld(fetched.digest, *address))
            is_settled = false;
    }
    if (is_settled) return;
    if (const auto reported = ReportedAddress(mail.text, addresses)) {
        profile_memory_.CountBounce(*reported, Now());
        fetched.for_nobody = HeldKind::Report;
    } else if (const auto mark = memory_.LoopMarkOf(mail.text);
               mark && profile_memory_.HasPassed(*mark, fetched.digest.Hex(), Now())) {
        fetched.for_nobody = HeldKind::Loop;
    }
}

CSending RunRules::Sends(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address,
                         bool received) {
    if (fetched_.empty()) budget_.Settle(user_);  // all is here
    if (rules_.keyless && !HasMailbox(address)) return CSending::KeepBack;
    const Fetched& fetched = Of(profile, mail);
    const bool sent = rules_.sentonce && profile_memory_.WasSent(address.setting.address, fetched.digest, Now());
    if (sent || IsHeld(fetched.digest, address)) {
        const bool came_back = profile.setting.deletemail != 0 && fetched.was_here_before && !received;
        if (came_back) profile_memory_.RecordNotDeleted(mail.uidl, "the server lists it again", Now());
        if (sent && (!received || fetched.is_new_under_its_id)) ++had_already_;
        // An id that others have as well says nothing.
        if (!received && !mail.uidl.empty() && !StandsTwice(mail.uidl)) has_learnt_ = !has_other_ids_;
        NoteNewId(profile, fetched);
        return CSending::HasIt;
    }
    if (fetched.for_nobody) {
        if (HoldUnasked(profile, mail, fetched, *fetched.for_nobody, address)) return CSending::HasIt;
        left_.Add(fetched.digest, Now());
        return CSending::KeepBack;
    }
    if (!rules_.sentonce) return CSending::AsAlways;
    const bool by_bytes = mail.uidl.empty() || fetched.is_new_under_its_id || StandsTwice(mail.uidl);
    return received && !by_bytes ? CSending::HasIt : CSending::Send;
}

bool RunRules::Offers(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address) {
    const CString& to = address.setting.address;
    if (!rules_.setaside || !profile_memory_.IsParked(to) || profile_memory_.MayAsk(to, Now())) return true;
    return !HoldUnasked(profile, mail, Of(profile, mail), HeldKind::Refused, address);
}

int RunRules::EndOfDataSeconds(const CPopProfile& /*profile*/) { return rules_.endofdata; }

// What is refused for the time being is set aside when that comes twice in a row.
CRefusal RunRules::Refused(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address,
                           const CRunFailure& refusal) {
    if (!rules_.setaside) return CRefusal::EndDelivery;
    const CString& to = address.setting.address;
    const Fetched& fetched = Of(profile, mail);
    const bool for_now = refusal.failure_class == CFailureClass::Transient;
    const bool again =
        !for_now || profile_memory_.CountRefusal(to, fetched.digest, refusal.reply, Now()) >= kSetAsideAfter;
    if (servers_fault_.IsIn(profile, address, fetched.digest, refusal, Now()) || !again) return CRefusal::EndDelivery;
    HeldAddress waiting = RefusedNow(profile, address, refusal.stage, refusal.failure_class, refusal.reply, Now());
    if (!Hold(mail, fetched, HeldKind::Refused, std::move(waiting))) return CRefusal::EndDelivery;
    if (refusal.stage == CRunStage::RcptTo) profile_memory_.Park(to, refusal.reply, Now());
    return CRefusal::HostHasIt;
}

void RunRules::Taken(const CPopProfile& profile, const CReceiveMail& mail,
                     std::span<CForwardAddress* const> addresses) {
    std::vector<CString> to;
    for (const CForwardAddress* address : addresses) to.push_back(address->setting.address);
    profile_memory_.RecordSent(to, Of(profile, mail).digest, Now());
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

// ---- what is set aside

// An address that took over the folder of one that was removed waits for nothing.
void RunRules::NoteHeld(const CPopProfile& profile, const HeldRecord& record) {
    for (const HeldAddress& waiting : record.addresses) {
        const bool waits = std::ranges::any_of(profile.forward_addresses,
                                               [&](const auto& address) { return IsOf(waiting, *address); });
        if (waits) held_.emplace(record.digest, waiting.folder);
    }
}

bool RunRules::IsHeld(const MailDigest& digest, const CForwardAddress& address) const {
    return !held_.empty() && held_.contains({digest.Hex(), FolderOf(address)});
}

bool RunRules::HoldUnasked(const CPopProfile& profile, const CReceiveMail& mail, const Fetched& fetched, HeldKind kind,
                           const CForwardAddress& address) {
    HeldAddress waiting = WaitingNow(profile, address);
    if (kind == HeldKind::Refused) {
        waiting.stage = CRunStage::RcptTo;
        waiting.reply = profile_memory_.ReplyOfParked(waiting.address);
        waiting.failure_class = waiting.reply.starts_with('4') ? CFailureClass::Transient : CFailureClass::Permanent;
    }
    return Hold(mail, fetched, kind, std::move(waiting));
}

bool RunRules::Hold(const CReceiveMail& mail, const Fetched& fetched, HeldKind kind, HeldAddress waiting) {
    HeldRecord record;
    record.uidl = mail.uidl;
    record.digest = fetched.digest.Hex();
    record.kind = kind;
    record.set_aside = Now();
    const std::string folder = waiting.folder;
    record.addresses.push_back(std::move(waiting));
    const HeldLimits limits{rules_.heldmessages, rules_.heldsize * kMiB};
    const std::string digest = record.digest;
    const std::optional<CString> text = AsFetched(mail.text, fetched);
    if (!text || store_.Hold(*text, std::move(record), limits) != HoldOutcome::Held) return false;
    held_.emplace(digest, folder);
    return true;
}

// ---- after the run

NextRun RunRules::Finish(CRunResult& result) {
    if (kept_back_ && result.ending == CRunEnding::KeptBack) {
        result.ending = CRunEnding::DeliveryFailed;
        result.delivery = *kept_back_;
    }
    RememberLogins(result);
    ForgetRefusedTokens();
    RememberRetrievals(result);
    if (result.ending == CRunEnding::Delivered) profile_memory_.RecordSmtp(true, {}, Now());
    if (result.ending == CRunEnding::DeliveryFailed && !result.interrupted) {
        const CRunFailure& why = result.delivery;
        profile_memory_.RecordSmtp(false, why.reply.empty() ? why.reason : why.reply, Now());
    }
    if (HasUsedAnswer(result)) profile_memory_.UseUpAnswer();
    if (result.ending == CRunEnding::Delivered || result.ending == CRunEnding::NothingNew) {
        has_other_ids_ && !over_budget_ ? rotation_.Forget(Now()) : rotation_.Save(Now());
        if (not_remembered_ > 0) TellNotRemembered(result);
    }
    memory_.Save(Now());
    return WhenNext(result);
}

void RunRules::TellNotRemembered(CRunResult& result) const {
    result.ending = CRunEnding::MailboxFailed;
    result.mailbox = {};
    result.mailbox.stage = CRunStage::List;
    result.mailbox.reason = ShowCount(not_remembered_, "message") +
                            " without an id of their own wait: what was sent cannot be written down, so that they "
                            "would go out in every run";
}

void RunRules::RememberLogins(const CRunResult& result) {
    RememberLogin(MailServer::Pop3, result.mailbox,
                  result.messages_listed > 0 || result.ending == CRunEnding::NothingNew);
    RememberLogin(MailServer::Smtp, result.delivery, result.ending == CRunEnding::Delivered);
}

void RunRules::RememberLogin(MailServer server, const CRunFailure& why, bool logged_in) {
    // Where there is no token, the refusal comes as a greeting.
    const bool at_login =
        why.stage == CRunStage::Login || why.reply.starts_with("-ERR [AUTH]") || why.reply.starts_with("535 ");
    if (at_login && why.failure_class == CFailureClass::Permanent) {
        profile_memory_.RecordFailedLogin(server, why.reply, interval_s_, Now());
    } else if (why.stage > CRunStage::Login || logged_in) {
        profile_memory_.RecordLogin(server);
    }
}

void RunRules::RememberRetrievals(const CRunResult& result) {
    if (asked_for_sizes_ && !result.interrupted) {
        const bool told = result.mailbox.stage != CRunStage::List;
        profile_memory_.RecordSizes(told, result.mailbox.reason, Now());
    }
    if (!rules_.retrylast) return;
    // That a run was told to end is no fault of the message that it was fetching, unless that one took all its time.
    if (!result.interrupted || (time_is_over_ && result.messages_fetched == 0)) CountNotFetched(result);
    for (const auto& [mail, fetched] : fetched_) {
        if (not_fetched_before_.contains(fetched.uidl)) profile_memory_.RecordFetched(fetched.uidl);
    }
}

// The next run asks for new ones.
void RunRules::ForgetRefusedTokens() {
    for (const UsedToken* const used : {&used_at_mailbox_, &used_at_relay_}) {
        if (ways_ && *used->was_refused) ways_->tokens.Refused(token_owner_, TokenCommandOf(rules_), used->token);
    }
}

// When the line was lost at one message, those behind it were not even asked for.
void RunRules::CountNotFetched(const CRunResult& result) {
    for (const CNotFetchedMail& mail : result.not_fetched) {
        if (mail.reply.empty() && mail.reason.empty()) break;
        // Without an id it could not be told from the others.
        if (!mail.uidl.empty())
            profile_memory_.CountNotFetched(mail.uidl, mail.reply.empty() ? mail.reason : mail.reply, Now());
        not_fetched_before_.erase(mail.uidl);
        if (mail.reply.empty()) break;
    }
}

NextRun RunRules::WhenNext(const CRunResult& result) const {
    // What the next run would do all over again is no progress.
    const bool copied = rules_.sentonce && result.copies > 0;
    const bool delivered = copied || result.messages_delivered > 0 || result.copies_set_aside > 0;
    const bool got_further = result.lists != CSaved::Failed && (delivered || has_learnt_);
    if (result.ending == CRunEnding::DeliveryFailed && got_further) return NextRun::AtOnce;
    const bool went_well = result.ending == CRunEnding::Delivered || result.ending == CRunEnding::NothingNew;
    if (over_budget_ && went_well)
        return got_further || budget_.IsWaiting(user_) ? NextRun::AtOnce : NextRun::InAMinute;
    const CFailureClass failure = result.ending == CRunEnding::MailboxFailed    ? result.mailbox.failure_class
                                  : result.ending == CRunEnding::DeliveryFailed ? result.delivery.failure_class
                                                                                : CFailureClass::None;
    return rules_.backoff && MayPass(failure) ? NextRun::InAMinute : NextRun::WhenDue;
}

}  // namespace tarvex::host
