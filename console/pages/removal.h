#pragma once

// Removing a user, a mailbox, a forwarding address: what goes with it is asked, once.

#include "console/http/router.h"

namespace tarvex::console {

Asked AskRemoval(const HttpRequest& request);
HttpResponse ShowRemoval(const HttpRequest& request, const Json& answer);

Asked AskRemove(const HttpRequest& request);
HttpResponse AfterRemove(const HttpRequest& request, const Json& answer);
HttpResponse RemoveRefused(const HttpRequest& request, const Json& answer);

}  // namespace tarvex::console
