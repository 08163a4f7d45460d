// Lists a mailbox for commands that let its mail count as handled.

#include "host/commands/arguments/mailbox_ids.h"

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
        throw CommandError(
            kUnavailable, "cannot list the mailbox at " + server +
                              (failed ? std::string(" (") + ProbeStepName(failed->kind) + "): " + ShowText(failed->text)
                                      : ": not enough memory") +
                              "; " + outcome);
    }
    std::vector<std::string> ids;
    for (const CListedMail& mail : listing.mails) ids.push_back(mail.uidl);
    if (!listing.has_uidls && !ids.empty()) {
        throw CommandError(kUnavailable,
                           server + " has no unique ids (UIDL), so old mail cannot be told from new; " + outcome);
    }
    return ids;
}

}  // namespace tarvex::host
