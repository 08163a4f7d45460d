// Says how receivers will judge what a profile forwards.
//
// Everything goes out with the profile's address as its envelope sender, so SPF is that of its domain. DMARC goes by
// the From line, which is the stranger's unless `replacefrom` is on: then a DKIM signature of the stranger's domain has
// to fit, and it fits a whole message that nothing was changed in.

#include "host/receivers/notes.h"

#include <algorithm>
#include <utility>

#include "host/advice/advice.h"
#include "host/settings/shared_account.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"
#include "tarvex/settings.h"

namespace tarvex::host {
namespace {

bool IsSwitchedOn(const auto& forward) { return forward->setting.status != 0; }

std::string RelayOf(const CPopProfile& profile) {
    return ShowText(ServerOf(SettingsInUse(profile).setting, Protocol::Smtp));
}

std::string NoteOnSpf(const CPopProfile& profile, const Published& published) {
    const std::string relay = RelayOf(profile);
    if (published.spf.ending == DnsEnding::NoSuchRecord) {
        return published.domain + " has no SPF record, so receivers cannot tell that " + relay +
               " may send for it, and some refuse such mail";
    }
    if (published.spf.records.size() > 1) {
        return published.domain + " has " + std::to_string(published.spf.records.size()) +
               " SPF records, which is an error to receivers: there must be one";
    }
    if (!published.spf.records.empty() && Lower(published.spf.records.front()).starts_with("v=spf1 -all")) {
        return published.domain +
               " says that it sends no mail at all (SPF), so receivers may refuse all that is forwarded";
    }
    return {};
}

// What happens to the sender's signature, when something does.
std::string WhatBreaksTheSignature(const CPopProfile& profile) {
    if (MakesTextMail(profile)) return "text mail keeps its sender's From, but not the sender's signature (DKIM)";
    if (profile.setting.replaceto == 0) return {};
    return "with replaceto mail keeps its sender's From, but no longer fits the sender's signature (DKIM) where that "
           "covers To";
}

std::string NoteOnDmarc(const CPopProfile& profile, const Published& published, const std::string& name) {
    const std::string address = ShowText(profile.setting.address);
    const std::string relay = RelayOf(profile);
    const bool is_strict = published.dmarc.policy != DmarcPolicy::None;
    const std::string policy = "(" + std::string(NameOf(published.dmarc.policy)) + ")";
    if (profile.setting.replacefrom != 0) {
        if (!is_strict) return {};
        return "with replacefrom the DMARC policy of " + published.domain + ' ' + policy +
               " is that of all forwarded mail; it passes when the SPF record covers what " + relay +
               " sends from, or " + relay + " signs for " + published.domain;
    }
    const std::string broken = WhatBreaksTheSignature(profile);
    if (broken.empty()) return {};
    std::string note =
        broken +
        ". Receivers refuse or quarantine it where the domain of the sender has a DMARC policy that asks for it";
    if (is_strict) {
        note += ". " + published.domain + " has one " + policy +
                ": mail from its own addresses passes only when its SPF record covers what " + relay + " sends from";
    }
    return note + ". `tarvex profile set " + name + " --replacefrom on` writes From: " + address +
           " instead. The sender's name and address are gone then, and answers go to " + address +
           " unless the sender gave a Reply-To";
}

}  // namespace

// An address with the limit 0 gets text mail only when messages go out once for each address.
bool MakesTextMail(const CPopProfile& profile) {
    bool has_limit = false, has_none = false, goes_out_alone = profile.setting.replaceto != 0;
    for (const auto& forward : profile.forward_addresses) {
        if (!IsSwitchedOn(forward)) continue;
        const int textonly = forward->setting.textonly;
        has_limit = has_limit || textonly > 0;
        has_none = has_none || textonly == 0;
        goes_out_alone = goes_out_alone || textonly != 0;
    }
    return has_limit || (has_none && goes_out_alone);
}

std::vector<std::string> NotesOnReceivers(const CPopProfile& profile, const Published& published,
                                          const std::string& name) {
    std::vector<std::string> notes = {NoteOnSpf(profile, published), NoteOnDmarc(profile, published, name)};
    std::erase(notes, "");
    return notes;
}

}  // namespace tarvex::host
