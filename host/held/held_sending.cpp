// Delivers mail that was set aside.
//
// One try of a message for an address:
//
//     write the time of the try into the record     a disk that is full shows itself before anything is sent
//     MAIL, RCPT, DATA                              by the engine, over a connection that serves all tries
//     taken       the address is struck off the record; with its last address the message is removed
//     refused     reply and time of the next try go into the record; the next try goes on
//     failed      nothing more is tried: the server is the same for all
//     blocked     the words that refused three messages in a row: the record stays as it was, and after three of
//                 them nothing more is tried
//
// A kill between the server's yes and the record costs a second copy, never the message.

#include "host/held/held_sending.h"

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <utility>

#include "host/held/held.h"
#include "host/held/refusal_words.h"
#include "host/held/refusals_in_a_row.h"
#include "host/language/tr.h"
#include "host/settings/shared_account.h"
#include "host/tokens/profile_tokens.h"
#include "host/trace/mail_recorder.h"
#include "host/tree/tree_rules.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr CTime kPause_s = CTime{15} * 60;

struct Quit {
    void operator()(CSmtpSocket* connection) const { QuitSmtpConnection(connection); }
};
using Connection = std::unique_ptr<CSmtpSocket, Quit>;

using Mails = CArray<CReceiveMail*, CReceiveMail*>;

CForwardAddress* AddressOf(const CPopProfile& profile, const HeldAddress& waiting) {
    for (const auto& address : profile.forward_addresses) {
        if (IsOf(waiting, *address)) return address.get();
    }
    return nullptr;
}

HeldAddress* Waiting(HeldRecord& record, const CString& folder) {
    const auto found = std::ranges::find(record.addresses, folder, &HeldAddress::folder);
    return found == record.addresses.end() ? nullptr : &*found;
}

bool WasRefusedAsRecipient(const HeldAddress& waiting) { return waiting.stage == CRunStage::RcptTo; }

// Its last try had no answer about it.
bool HasFailed(const HeldAddress& waiting) { return waiting.next_try != 0 && waiting.last_try >= waiting.next_try; }

// A try of the future shows that the clock was set back, and so does one that is further off than any is put off.
bool ClockWasSetBack(const HeldAddress& waiting, CTime now) {
    return waiting.last_try > now || waiting.next_try > now + kLongestHeldPause;
}

bool WasTriedJustNow(const HeldAddress& waiting, CTime now) {
    return now < waiting.last_try + kPause_s && now >= waiting.last_try;
}

bool IsPutOff(const HeldAddress& waiting, CTime now) {
    return waiting.next_try > now && !ClockWasSetBack(waiting, now);
}

bool HasChanged(const HeldAddress& waiting, const CForwardAddress& address, const CString& route) {
    return waiting.address != address.setting.address || waiting.route != route;
}

// Keeps a refusal from ending the conversation: the message is held.
class SendingGuard : public CRunGuard {
public:
    SendingGuard(int end_of_data_s, Ways* ways) : end_of_data_s_(end_of_data_s), ways_(ways) {}

    // Of one message for one address.
    bool taken = false;
    CString taken_with;  // what the server answered
    CRunFailure refusal;

    // The next connection asks for a new one.
    void ForgetRefusedToken(const CPopProfile& profile) const {
        if (ways_ && rules_ && *used_.was_refused)
            ways_->tokens.Refused(OwnerOf(profile), TokenCommandOf(*rules_), used_.token);
    }

private:
    // Account and connection go by the same rules, whatever is changed in between.
    CSmtpAccount SendsThrough(const CPopProfile& profile) override {
        try {
            rules_.reset();
            rules_ = RulesOf(profile).value_or(HostRules());
            return SmtpAccountOf(profile.setting, *rules_);
        } catch (const CommandError&) {
            return CRunGuard::SendsThrough(profile);
        }
    }
    CConnection Connects(const CPopProfile& profile, CServerToReach& server) override {
        if (!rules_) return CConnection::Unusable();  // neither other rules nor none
        used_ = {};
        return WayTo(server, profile, *rules_, ways_, {}, &used_);
    }
    int TextMailHeaderBytes(const CPopProfile&) override { return rules_ ? rules_->header_limit : 0; }
    int EndOfDataSeconds(const CPopProfile&) override { return end_of_data_s_; }
    CRefusal Refused(const CPopProfile&, const CReceiveMail&, const CForwardAddress&, const CRunFailure& why) override {
        refusal = why;
        return CRefusal::HostHasIt;
    }
    void Taken(const CPopProfile&, const CReceiveMail&, std::span<CForwardAddress* const>,
               std::string_view reply) override {
        taken = true;
        taken_with = reply;
    }

    const int end_of_data_s_;
    Ways* const ways_;
    std::optional<HostRules> rules_;
    UsedToken used_;
};

class Sending {
public:
    Sending(CPopProfile& copy, const HeldSendingOptions& options)
        : copy_(copy), options_(options), store_(copy.path), guard_(options.end_of_data_s, options.ways) {
        if (options.memory) memory_ = options.memory->Of(copy.path);
        copy_.guard = &guard_;
    }
    ~Sending() {
        connection_.reset();
        copy_.guard = nullptr;
    }
    Sending(const Sending&) = delete;
    Sending& operator=(const Sending&) = delete;

    // False when nothing more can be tried.
    bool Try(HeldResult& result) {
        std::optional<HeldRecord> record = store_.Find(result.choice.id);
        if (!record) return NotTried(result, Marked("it is not held any more"));
        if (!record->damage.empty()) return NotTried(result, record->damage);
        if (!result.choice.digest.empty() && record->digest != result.choice.digest) {
            return NotTried(result, Marked("it is not held any more"));
        }
        result.digest = record->digest;
        HeldAddress* const waiting = Waiting(*record, result.choice.folder);
        if (!waiting) return NotTried(result, Marked("the address does not wait for it any more"));
        result.address = waiting->address;
        CForwardAddress* const address = AddressOf(copy_, *waiting);
        if (!address) return NotTried(result, Marked("its address was removed"));
        result.address = address->setting.address;
        if (address->setting.status == 0) return NotTried(result, Marked("its address is switched off"));
        if (!HasMailbox(*address)) return NotTried(result, Marked("its address has no \"@\""));
        if (refused_.contains(waiting->folder)) {
            return NotTried(result, Marked("the server has just refused its address for another message"));
        }
        std::optional<std::string> text = store_.Text(record->id);
        if (!text) return NotTried(result, Marked("the message cannot be read"));
        return TryNow(*record, *waiting, *address, *std::move(text), result);
    }

private:
    static bool NotTried(HeldResult& result, const std::string& why) {
        result.outcome = HeldOutcome::NotTried;
        result.why = why;
        return true;
    }

    bool TryNow(HeldRecord& record, HeldAddress& waiting, CForwardAddress& address, std::string text,
                HeldResult& result) {
        if (ClockWasSetBack(waiting, options_.now) && waiting.next_try != 0) waiting.next_try = options_.now;
        waiting.last_try = options_.now;
        const bool changed = HasChanged(waiting, address, RouteOf(copy_));
        if (changed && waiting.next_try == 0) waiting.next_try = options_.now;  // should this try fail
        if (!store_.Update(record)) {
            result.outcome = HeldOutcome::Failed;
            result.why = kCannotWriteRecord;
            return false;
        }
        std::optional<MailDigest> digest;
        if (memory_) digest = options_.memory->DigestOf(text);
        if (memory_ && memory_->WasSent(address.setting.address, *digest, options_.now)) {
            result.outcome = HeldOutcome::Taken;
            StrikeOff(record, result);
            return result.why.empty();
        }
        TracedMail trace = TraceOf(record.uidl, text);
        const Milliseconds offered = MailRecorder::Now();
        Deliver(std::move(text), address, result);
        if (memory_) RememberLogin(result);
        if (result.outcome == HeldOutcome::Refused) return RecordRefusal(record, waiting, address, result);
        if (result.outcome != HeldOutcome::Taken) return false;
        trace.copies.push_back(
            {address.setting.address, CopyFate::Sent, offered, MailRecorder::Now(), guard_.taken_with});
        result.sent = std::move(trace);
        refusals_.MessageWasTaken();
        if (memory_) RecordTaken(address.setting.address, *digest);
        const bool follow = WasRefusedAsRecipient(waiting);
        StrikeOff(record, result);
        if (follow) MakeHeldDue(copy_.path, result.choice.folder, options_.now);
        return result.why.empty();
    }

    // A connection that has served a while may have been closed, or have reached a limit of the server.
    void Deliver(std::string text, CForwardAddress& address, HeldResult& result) {
        if (connection_ && !DeliverOnce(text, address, result)) return;
        DeliverOnce(std::move(text), address, result);
    }

    // True when the server was gone before it heard of the message.
    bool DeliverOnce(std::string text, CForwardAddress& address, HeldResult& result) {
        result.outcome = HeldOutcome::Failed;
        copy_.result.delivery = {};
        guard_.taken = false;
        guard_.refusal = {};
        if (!connection_) {
            connection_.reset(copy_.CreateSmtpConnection());
            guard_.ForgetRefusedToken(copy_);
        }
        if (connection_ && !Send(std::move(text), address)) CloseSmtpConnection(connection_.release());  // after QUIT
        if (guard_.taken) {
            result.outcome = HeldOutcome::Taken;
            return false;
        }
        const bool refused = guard_.refusal.failure_class != CFailureClass::None;
        if (refused) result.outcome = HeldOutcome::Refused;
        result.failure = refused ? guard_.refusal : copy_.result.delivery;
        return !refused && result.failure.stage == CRunStage::MailFrom &&
               result.failure.failure_class == CFailureClass::Connection;
    }

    // False when the connection can be used no more.
    bool Send(std::string text, CForwardAddress& address) {
        auto mail = std::make_unique<CReceiveMail>();
        mail->text = std::move(text);
        mail->destinations = {&address};
        Mails mails(1);  // owns its messages
        mails.front() = mail.release();
        if (copy_.setting.replacefrom != 0) copy_.ReplaceFrom(&mails);
        const bool done = copy_.SmtpProcess(connection_.get(), &mails) != 0;
        for (CReceiveMail* const left : mails) std::unique_ptr<CReceiveMail>{left}.reset();
        return done;
    }

    void RecordTaken(const CString& address, const MailDigest& digest) {
        memory_->RecordSent({&address, 1}, digest, options_.now);
        memory_->Unpark(address);
        memory_->Unblock();
        memory_->EndRow();
    }

    void RememberLogin(const HeldResult& result) {
        const CRunFailure& why = result.failure;
        if (result.outcome != HeldOutcome::Failed) {
            memory_->RecordLogin(MailServer::Smtp);
        } else if (why.stage == CRunStage::Login && why.failure_class == CFailureClass::Permanent) {
            const CTime interval_s = IntervalSeconds(copy_.setting.timer);
            memory_->RecordFailedLogin(MailServer::Smtp, why.reply, interval_s, options_.now);
        }
    }

    // The address waits for the message no more.
    void StrikeOff(HeldRecord& record, HeldResult& result) const {
        std::erase_if(record.addresses, [&](const HeldAddress& one) { return one.folder == result.choice.folder; });
        const bool written = record.addresses.empty() ? store_.Remove(record.id) : store_.Update(record);
        if (!written) result.why = kCannotWriteRecord;
    }

    // False when nothing more can be tried.
    bool RecordRefusal(HeldRecord& record, HeldAddress& waiting, const CForwardAddress& address, HeldResult& result) {
        const CRunFailure& failure = result.failure;
        const std::string words = StableWords(failure.reply);
        const bool is_third = refusals_.Add(record.digest, words);
        if (is_third && memory_) memory_->Block(words, options_.now);
        if (is_third || (memory_ && memory_->IsBlocked(words))) {
            result.outcome = HeldOutcome::Blocked;
            return !is_third;
        }
        if (failure.stage == CRunStage::RcptTo) {
            refused_.insert(waiting.folder);
            if (memory_) memory_->Park(address.setting.address, failure.reply, options_.now);
        }
        waiting.address = address.setting.address;
        waiting.route = RouteOf(copy_);
        CountRefusal(waiting, failure.stage, failure.failure_class, failure.reply, options_.now);
        if (!store_.Update(record)) result.why = kCannotWriteRecord;
        return result.why.empty();
    }

    static constexpr const char* kCannotWriteRecord = Marked("its record cannot be written");

    CPopProfile& copy_;
    const HeldSendingOptions& options_;
    const HeldStore store_;
    std::optional<ProfileMemory> memory_;
    SendingGuard guard_;
    Connection connection_;
    RefusalsInARow refusals_;
    std::set<CString> refused_;  // folders of addresses that the server has refused now as recipients
};

}  // namespace

std::vector<HeldChoice> AllHeld(const std::vector<HeldRecord>& records) {
    std::vector<HeldChoice> all;
    for (const HeldRecord& record : records) {
        for (const HeldAddress& waiting : record.addresses) all.push_back({record.id, waiting.folder, record.digest});
    }
    return all;
}

std::vector<HeldChoice> DueHeld(const CPopProfile& profile, const std::vector<HeldRecord>& records, CTime now) {
    const CString route = RouteOf(profile);
    std::map<CString, HeldAddress> last_as_recipient;  // by folder: the latest refusal
    for (const HeldRecord& record : records) {
        for (const HeldAddress& waiting : record.addresses) {
            if (HasFailed(waiting) && WasTriedJustNow(waiting, now)) return {};
            HeldAddress& last = last_as_recipient[waiting.folder];
            if (WasRefusedAsRecipient(waiting) && waiting.last_try >= last.last_try) last = waiting;
        }
    }
    std::vector<HeldChoice> due;
    for (const HeldRecord& record : records) {
        if (record.kind != HeldKind::Refused || !record.damage.empty()) continue;
        for (const HeldAddress& waiting : record.addresses) {
            const CForwardAddress* const address = AddressOf(profile, waiting);
            if (!address || !address->JudgeTakePart(now)) continue;
            const bool changed = HasChanged(waiting, *address, route);
            const bool time_has_come = waiting.next_try != 0 && !IsPutOff(waiting, now);
            if (!time_has_come && !(changed && !WasTriedJustNow(waiting, now))) continue;
            if (!changed && IsPutOff(last_as_recipient[waiting.folder], now)) continue;
            due.push_back({record.id, waiting.folder, record.digest});
        }
    }
    return due;
}

CTime NextHeldLook(const std::vector<HeldRecord>& records, CTime now) {
    CTime next = now + kPause_s;
    for (const HeldRecord& record : records) {
        for (const HeldAddress& waiting : record.addresses) {
            if (waiting.next_try > now) next = std::min(next, waiting.next_try);
        }
    }
    return next;
}

std::vector<HeldResult> SendHeld(CPopProfile& copy, const std::vector<HeldChoice>& choice,
                                 const HeldSendingOptions& options) {
    std::vector<HeldResult> results;
    Sending sending(copy, options);
    for (const HeldChoice& one : choice) {
        if (options.stop && options.stop()) break;
        results.emplace_back().choice = one;
        if (!sending.Try(results.back())) break;
    }
    return results;
}

std::vector<TracedMail> SentIn(const std::vector<HeldResult>& results) {
    std::vector<TracedMail> sent;
    for (const HeldResult& result : results) {
        if (result.sent) sent.push_back(*result.sent);
    }
    return sent;
}

void MakeHeldDue(const CString& profile_path, const CString& folder, CTime now) {
    const HeldStore store(profile_path);
    for (HeldRecord& record : store.List().value_or(std::vector<HeldRecord>())) {
        HeldAddress* const waiting = Waiting(record, folder);
        if (!waiting || !record.damage.empty() || record.kind != HeldKind::Refused) continue;
        if (!WasRefusedAsRecipient(*waiting) || (waiting->next_try != 0 && waiting->next_try <= now)) continue;
        waiting->next_try = std::max(now, waiting->last_try + 1);  // else it would look as if that try had failed
        // What stays as it was is tried at its own time.
        [[maybe_unused]] const bool written = store.Update(record);
    }
}

}  // namespace tarvex::host
