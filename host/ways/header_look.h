#pragma once

// The headers of what is in a mailbox, over the way that the rules of its profile want.

#include "tarvex/mail_headers.h"

namespace tarvex::host {

// As LookIntoMailbox (server_way.h), and asks for these headers.
bool LookForHeaders(const CPopProfile& profile, const CHeadersToList& wanted, CMailboxListing& listing,
                    CListedHeaders& headers);

}  // namespace tarvex::host
