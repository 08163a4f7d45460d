// Lists a mailbox for commands that let its mail count as handled.

#include "host/view/mailbox_ids.h"

#include "host/advice/advice.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/ways/server_way.h"
#include "tarvex/probe.h"

namespace tarvex::host {

std::vector<std::string> IdsOnServer(const CPopProfile& profile, const std::string& outcome) {
    CMailboxListing listing;
    const std::string server = ShowText(profile.setting.popserver);
    if (!LookIntoMailbox(profile, listing)) {
        const CProbeStep* const failed = listing.steps.empty() ? nullptr : &listing.steps.back();
        throw CommandError(kUnavailable,
                           failed ? Tr("cannot list the mailbox at {0} ({1}): {2}; {3}", server, ShowStep(failed->kind),
                                       ShowText(failed->text), outcome)
                                  : Tr("cannot list the mailbox at {0}: not enough memory; {1}", server, outcome));
    }
    std::vector<std::string> ids;
    for (const CListedMail& mail : listing.mails) ids.push_back(mail.uidl);
    if (!listing.has_uidls && !ids.empty()) {
        throw CommandError(kUnavailable, Tr("{0} has no unique ids (UIDL), so old mail cannot be told from new; {1}",
                                            server, outcome));
    }
    return ids;
}

}  // namespace tarvex::host
