// Tells refusals that are about the server from those that are about a message or a recipient.

#include "host/rules/servers_fault.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "host/held/held_record.h"
#include "host/held/held_sending.h"
#include "host/held/refusal_words.h"
#include "host/held/refusals_in_a_row.h"
#include "host/tree/tree_rules.h"

namespace tarvex::host {
namespace {

// What an address was parked for may be remembered in part.
bool IsBeginningOf(std::string_view words, std::string_view remembered_reply) {
    std::string beginning = StableWords(remembered_reply);
    if (remembered_reply.size() < kMostWordsBytes) return beginning == words;
    beginning.resize(beginning.rfind(' ') == std::string::npos ? 0 : beginning.rfind(' '));
    return words.starts_with(beginning);
}

}  // namespace

bool ServersFault::IsIn(const CPopProfile& profile, const CForwardAddress& address, const MailDigest& digest,
                        const CRunFailure& refusal, CTime now) {
    const std::string words = StableWords(refusal.reply);
    if (refusal.stage != CRunStage::RcptTo) return OfMessage(words, address, digest, refusal, now);
    return !IsAboutTheRecipient(refusal.reply) && OfRecipient(profile, address, words, now);
}

bool ServersFault::OfMessage(const std::string& words, const CForwardAddress& address, const MailDigest& digest,
                             const CRunFailure& refusal, CTime now) {
    const bool was_blocked = memory_.IsBlocked(words);
    if (!was_blocked && !IsInARow(words, digest, now)) return false;
    if (!was_blocked) memory_.Block(words, now);
    // So that it comes last in the next run. What is refused for the time being is counted anyway.
    if (refusal.failure_class == CFailureClass::Permanent)
        memory_.CountRefusal(address.setting.address, digest, refusal.reply, now);
    return true;
}

bool ServersFault::IsInARow(const std::string& words, const MailDigest& digest, CTime now) {
    if (!std::exchange(has_begun_, true) && memory_.WordsInARow().starts_with('5')) memory_.EndRow();
    return memory_.CountInARow(words, digest, now) >= kServersFault;
}

bool ServersFault::OfRecipient(const CPopProfile& profile, const CForwardAddress& address, const std::string& words,
                               CTime now) {
    refused_[&address] = words;
    bool has_others = false;
    for (const auto& other : profile.forward_addresses) {
        if (other.get() == &address || !other->takes_part || !HasMailbox(*other)) continue;
        if (!WasRefusedSo(*other, words)) return false;
        has_others = true;
    }
    if (has_others) memory_.Block(words, now);
    return has_others;
}

bool ServersFault::WasRefusedSo(const CForwardAddress& address, std::string_view words) {
    const auto in_this_run = refused_.find(&address);
    if (in_this_run != refused_.end()) return in_this_run->second == words;
    const CString reply = memory_.ReplyOfParked(address.setting.address);
    return !reply.empty() && IsBeginningOf(words, reply);
}

void ServersFault::Taken(const CPopProfile& profile, CTime now) {
    refused_.clear();
    if (memory_.HasAny(Matter::InARow)) memory_.EndRow();
    if (!memory_.HasAny(Matter::Blocked)) return;
    const std::map<CString, Note> blocked = memory_.Notes(Matter::Blocked);
    for (const auto& address : profile.forward_addresses) {
        const CString reply = memory_.ReplyOfParked(address->setting.address);
        const auto is_why = [&](const auto& words) { return IsBeginningOf(words.first, reply); };
        if (reply.empty() || std::ranges::none_of(blocked, is_why)) continue;
        memory_.Unpark(address->setting.address);
        MakeHeldDue(profile.path, FolderOf(*address), now);
    }
    memory_.Unblock();
    refused_before_.clear();
}

void ServersFault::Load() {
    if (memory_.Notes(Matter::Blocked).empty()) return;
    for (const auto& [subject, note] : memory_.Notes(Matter::Refused)) {
        refused_before_.insert(subject.substr(AddressOfRefusal(subject).size() + 1));
    }
}

bool ServersFault::ComesLast(const CString& uidl) {
    if (refused_before_.empty()) return false;
    const std::optional<MailDigest> digest = memory_.DigestOfId(uidl);
    return digest && refused_before_.contains(digest->Hex());
}

}  // namespace tarvex::host
