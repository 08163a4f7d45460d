// What follows from a run that has ended: what is remembered of it, and when the next one is wanted.

#include "host/rules/flood.h"
#include "host/rules/run_rules.h"
#include "host/terminal/wording.h"
#include "host/tokens/profile_tokens.h"

namespace tarvex::host {
namespace {

// Another run may do better without anybody's help.
bool MayPass(CFailureClass failure_class) {
    return failure_class == CFailureClass::Transient || failure_class == CFailureClass::Connection ||
           failure_class == CFailureClass::TimeOut;
}

}  // namespace

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
