#pragma once

// The host's rules in one run: the answers of its guard, by the settings of host.def, by what is remembered of the runs
// before and by what is set aside.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "host/held/held.h"
#include "host/memory/list_notes.h"
#include "host/memory/memory.h"
#include "host/rules/byte_budget.h"
#include "host/rules/kept_mail.h"
#include "host/rules/left_mail.h"
#include "host/rules/listed_ids.h"
#include "host/rules/rotation.h"
#include "host/rules/servers_fault.h"
#include "host/settings/host_setting.h"
#include "host/settings/shared_account.h"
#include "host/trace/mail_recorder.h"
#include "host/ways/server_way.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

// When the next run of a profile is wanted.
enum class NextRun { WhenDue, AtOnce, InAMinute };

// One for each run. The worker asks it; when the run has ended, the thread that owns the root calls Finish.
class RunRules : public CRunGuard {
public:
    using Clock = std::function<CTime()>;

    // The memory, the budget and what is kept must outlive it.
    RunRules(const HostRules& rules, const CPopProfile& profile, RuleMemory& memory, ByteBudget& budget,
             KeptMails& kept_mails, Clock clock = CurrentTime);
    ~RunRules() override;

    // The ways for rules that want TLS or tokens; they must outlive the run. Without them such a run has no connection.
    void LeadThrough(Ways& ways) { ways_ = &ways; }

    // Where it is written down what becomes of each message; it must outlive the run.
    void TellTo(MailRecorder& recorder) { recorder_ = &recorder; }

    // To be called once, with the result of the run that has ended: remembers what follows from it, and completes it
    // where a rule ended the run.
    NextRun Finish(CRunResult& result);

    // To be called before Finish, with the copy whose run has ended.
    void NoteLists(const CPopProfile& copy) { lists_.AfterRun(copy, Now()); }

    // Copies that were not sent, because their addresses had them although their lists of ids did not say so.
    int CopiesHadAlready() const { return had_already_; }

    // The run is interrupted because it has taken too long. To be called on the thread that calls Finish, before.
    void EndsForTime() { time_is_over_ = true; }

    CSmtpAccount SendsThrough(const CPopProfile& profile) override { return SmtpAccountOf(profile.setting, rules_); }
    CConnection Connects(const CPopProfile& profile, CServerToReach& server) override {
        return WayTo(server, profile, rules_, ways_, {},
                     server.protocol == CProtocol::Smtp ? &used_at_relay_ : &used_at_mailbox_);
    }
    bool Begins(const CPopProfile& profile) override;
    bool Listed(const CPopProfile& profile, std::span<const CMailOnServer> listing) override;
    bool IsHandled(const CPopProfile& profile, const CMailOnServer& mail, bool received) override;
    bool Deletes(const CPopProfile& profile, const CMailOnServer& mail) override;
    bool GoesOnAfter(const CPopProfile& profile, const CRunFailure& refused_deletion) override;
    bool WantsSizes(const CPopProfile& profile) override;
    bool ComesLast(const CPopProfile& profile, const CMailOnServer& mail) override;
    std::optional<CString> Kept(const CPopProfile& profile, const CMailOnServer& mail) override;
    bool Fetches(const CPopProfile& profile, const CMailOnServer& mail, std::int64_t held_bytes) override;
    std::int64_t LeastBytesPerMinute(const CPopProfile& profile) override;
    bool DeliversAfter(const CPopProfile& profile, const CRunFailure& failed_retrieval) override;
    CSending Sends(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address,
                   bool received) override;
    bool Offers(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address) override;
    int TextMailHeaderBytes(const CPopProfile& profile) override;
    int EndOfDataSeconds(const CPopProfile& profile) override;
    CRefusal Refused(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address,
                     const CRunFailure& refusal) override;
    void Taken(const CPopProfile& profile, const CReceiveMail& mail, std::span<CForwardAddress* const> addresses,
               std::string_view reply) override;
    void NotReached(const CPopProfile& profile, std::span<CReceiveMail* const> mails) override;

private:
    // What is known of a fetched message.
    struct Fetched {
        CString uidl;
        std::int64_t listed_bytes = -1;
        MailDigest digest;
        std::set<const CForwardAddress*> sent_before;  // who of those that take part has it
        bool is_new_under_its_id = false;              // the id had another message before
        bool was_here_before = false;                  // the id had this message before
        std::optional<HeldKind> for_nobody;            // a report or a loop
        CString front;                                 // as it was fetched: the part that the delivery may change
        std::size_t rest_bytes = 0;                    // of what is behind that
    };

    static CTime CurrentTime();
    CTime Now() const { return clock_(); }
    bool StandsTwice(std::string_view uidl) const { return !twice_.empty() && twice_.contains(std::string(uidl)); }
    Fetched& Of(const CPopProfile& profile, const CReceiveMail& mail);
    void Tell(const CReceiveMail& mail, const CString& address, CopyFate fate, std::string_view words = {}) {
        if (recorder_) recorder_->Tell(mail, address, fate, words);
    }
    void Judge(const CPopProfile& profile, const SplitMail& mail, Fetched& fetched);
    bool HasOwnId(const CMailOnServer& mail) const;
    bool TakesTurns(const CMailOnServer& mail) const;
    bool HasOtherSize(const CMailOnServer& mail);
    void TakeTurns(std::span<const CMailOnServer> listing);
    std::optional<CString> AsFetched(CString text, const Fetched& fetched);
    bool TakeFromBudget(const CPopProfile& profile, std::int64_t held_bytes, std::int64_t bytes);
    bool MustWait(const CPopProfile& profile, std::span<const CMailOnServer> listing, const SortedIds& listed);
    bool MayDelete(const CPopProfile& profile, std::string_view id);
    bool HasEverybody(const CPopProfile& profile, std::string_view uidl);
    void NoteHeld(const CPopProfile& profile, const HeldRecord& record);
    void NoteId(const Fetched& fetched);
    void NoteNewId(const CPopProfile& profile, const Fetched& fetched);
    void TellNotRemembered(CRunResult& result) const;
    bool IsHeld(const MailDigest& digest, const CForwardAddress& address) const;
    bool Hold(const CReceiveMail& mail, const Fetched& fetched, HeldKind kind, const HeldAddress& waiting);
    bool HoldUnasked(const CPopProfile& profile, const CReceiveMail& mail, const Fetched& fetched, HeldKind kind,
                     const CForwardAddress& address);
    void RememberLogins(const CRunResult& result);
    void RememberLogin(MailServer server, const CRunFailure& why, bool logged_in);
    void ForgetRefusedTokens();
    void RememberRetrievals(const CRunResult& result);
    void CountNotFetched(const CRunResult& result);
    NextRun WhenNext(const CRunResult& result) const;

    const HostRules rules_;
    const TokenOwner token_owner_;
    Ways* ways_ = nullptr;
    MailRecorder* recorder_ = nullptr;
    UsedToken used_at_mailbox_;
    UsedToken used_at_relay_;
    const CTime interval_s_;
    RuleMemory& memory_;
    ProfileMemory profile_memory_;
    ListNotes lists_;
    ServersFault servers_fault_;
    ByteBudget& budget_;
    KeptMails& kept_mails_;
    const CString user_;  // of the budget
    const HeldStore store_;
    const Clock clock_;

    std::optional<CRunFailure> kept_back_;   // why the run was ended before it did anything
    std::unordered_set<std::string> twice_;  // ids that the listing holds more than once
    bool has_other_ids_ = false;             // than the lists know
    std::vector<CString> addresses_;         // of the profile
    std::map<CString, Note> not_fetched_before_;
    std::optional<std::map<const CForwardAddress*, std::unordered_set<std::string_view>>> received_;
    LeftMail left_;
    Rotation rotation_;                                   // of messages without an id of their own
    bool can_remember_ = true;                            // which of those were sent
    int not_remembered_ = 0;                              // those that were not fetched for that
    std::set<std::pair<std::string, std::string>> held_;  // digest and folder of what is set aside
    std::unordered_map<const CReceiveMail*, Fetched> fetched_;
    KeptMail kept_;  // of an earlier run
    bool over_budget_ = false;
    bool asked_for_sizes_ = false;
    bool time_is_over_ = false;
    bool has_learnt_ = false;  // that an id stands for what an address has
    int had_already_ = 0;
    int refused_deletions_ = 0;
};

}  // namespace tarvex::host
