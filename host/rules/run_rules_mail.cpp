// What the host's rules know of a message that was fetched, and how they set it aside.

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/held/held_sending.h"
#include "host/memory/delivery_report.h"
#include "host/rules/run_rules.h"

namespace tarvex::host {
namespace {

// The part that a delivery may change: the line ends before the header, and the header where the profile rewrites it.
CString FrontOf(std::string_view text, bool rewritten) {
    std::size_t end = 0;
    while (text.substr(end).starts_with("\r\n")) end += 2;
    if (rewritten) end = std::min(text.find("\r\n\r\n", end), text.size());
    return CString(text.substr(0, end));
}

CopyFate FateOf(HeldKind kind, const HeldAddress& waiting) {
    switch (kind) {
        case HeldKind::Report:
            return CopyFate::Report;
        case HeldKind::Loop:
            return CopyFate::Loop;
        default:
            return waiting.tries > 0 ? CopyFate::Refused : CopyFate::Parked;
    }
}

}  // namespace

RunRules::Fetched& RunRules::Of(const CPopProfile& profile, const CReceiveMail& mail) {
    const auto [entry, is_new] = fetched_.try_emplace(&mail);
    Fetched& fetched = entry->second;
    if (!is_new) return fetched;
    fetched.uidl = mail.uidl;
    fetched.listed_bytes = mail.listed_bytes;
    const SplitMail split(mail.text);
    fetched.digest = memory_.DigestOf(split);
    if (!mail.uidl.empty()) {
        const std::optional<MailDigest> before = profile_memory_.DigestOfId(mail.uidl);
        fetched.is_new_under_its_id = before && *before != fetched.digest;
        fetched.was_here_before = before == fetched.digest;
        const bool adds_nothing = fetched.was_here_before && fetched.listed_bytes < 0;
        if (!fetched.is_new_under_its_id && !adds_nothing) NoteId(fetched);
    }
    for (const auto& address : profile.forward_addresses) {
        if (address->takes_part && profile_memory_.WasSent(address->setting.address, fetched.digest, Now()))
            fetched.sent_before.insert(address.get());
    }
    if (rules_.loopguard) Judge(profile, split, fetched);
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

void RunRules::Judge(const CPopProfile& profile, const SplitMail& mail, Fetched& fetched) {
    const bool is_settled = std::ranges::all_of(profile.forward_addresses, [&](const auto& address) {
        return !address->takes_part || fetched.sent_before.contains(address.get()) || IsHeld(fetched.digest, *address);
    });
    if (is_settled) return;
    if (const auto reported = ReportedAddress(mail, addresses_)) {
        profile_memory_.CountBounce(*reported, Now());
        fetched.for_nobody = HeldKind::Report;
    } else if (const auto mark = memory_.LoopMarkOf(mail);
               mark && profile_memory_.HasPassed(*mark, fetched.digest, Now())) {
        fetched.for_nobody = HeldKind::Loop;
    }
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
    return Hold(mail, fetched, kind, waiting);
}

bool RunRules::Hold(const CReceiveMail& mail, const Fetched& fetched, HeldKind kind, const HeldAddress& waiting) {
    HeldRecord record;
    record.uidl = mail.uidl;
    record.digest = fetched.digest.Hex();
    record.kind = kind;
    record.set_aside = Now();
    record.addresses.push_back(waiting);
    const HeldLimits limits{rules_.heldmessages, rules_.heldsize * kMiB};
    const std::string digest = record.digest;
    const std::optional<CString> text = AsFetched(mail.text, fetched);
    if (!text || store_.Hold(*text, std::move(record), limits) != HoldOutcome::Held) return false;
    held_.emplace(digest, waiting.folder);
    Tell(mail, waiting.address, FateOf(kind, waiting), waiting.reply);
    return true;
}

}  // namespace tarvex::host
