// Says how receivers will judge what a profile forwards.
//
// Everything goes out with the profile's address as its envelope sender, so SPF is that of its domain. DMARC goes by
// the From line, which is the stranger's unless `replacefrom` is on: then a DKIM signature of the stranger's domain has
// to fit, and it fits a whole message that nothing was changed in.

#include "host/receivers/notes.h"

#include <algorithm>
#include <utility>

#include "host/advice/advice.h"
#include "host/language/tr.h"
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
        return Tr("{0} has no SPF record, so receivers cannot tell that {1} may send for it, and some refuse such mail",
                  published.domain, relay);
    }
    if (published.spf.records.size() > 1) {
        return Tr("{0} has {1} SPF records, which is an error to receivers: there must be one", published.domain,
                  published.spf.records.size());
    }
    if (!published.spf.records.empty() && Lower(published.spf.records.front()).starts_with("v=spf1 -all")) {
        return Tr("{0} says that it sends no mail at all (SPF), so receivers may refuse all that is forwarded",
                  published.domain);
    }
    return {};
}

// What happens to the sender's signature, when something does.
std::string WhatBreaksTheSignature(const CPopProfile& profile) {
    if (MakesTextMail(profile)) return Tr("text mail keeps its sender's From, but not the sender's signature (DKIM)");
    if (profile.setting.replaceto == 0) return {};
    return Tr(
        "with replaceto mail keeps its sender's From, but no longer fits the sender's signature (DKIM) where that "
        "covers To");
}

std::string NoteOnDmarc(const CPopProfile& profile, const Published& published, const std::string& name) {
    const std::string address = ShowText(profile.setting.address);
    const std::string relay = RelayOf(profile);
    const bool is_strict = published.dmarc.policy != DmarcPolicy::None;
    const std::string policy(NameOf(published.dmarc.policy));
    if (profile.setting.replacefrom != 0) {
        if (!is_strict) return {};
        return Tr(
            "with replacefrom the DMARC policy of {0} ({1}) is that of all forwarded mail; it passes when the SPF "
            "record covers what {2} sends from, or {2} signs for {0}",
            published.domain, policy, relay);
    }
    const std::string broken = WhatBreaksTheSignature(profile);
    if (broken.empty()) return {};
    std::string note =
        Tr("{0}. Receivers refuse or quarantine it where the domain of the sender has a DMARC policy that asks for it",
           broken);
    if (is_strict) {
        note =
            Tr("{0}. {1} has one ({2}): mail from its own addresses passes only when its SPF record covers what {3} "
               "sends from",
               note, published.domain, policy, relay);
    }
    return Tr(
        "{0}. `tarvex profile set {1} --replacefrom on` writes From: {2} instead. The sender's name and address are "
        "gone then, and answers go to {2} unless the sender gave a Reply-To",
        note, name, address);
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
