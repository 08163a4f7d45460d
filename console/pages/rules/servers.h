#pragma once

// The SMTP server that mailboxes use where they have none of their own: of the tree, of a user; for administrators.

#include "console/http/router.h"

namespace tarvex::console {

HttpResponse ShowServers(const HttpRequest& request, const Json& answer);  // asks as the page of the rules does
Asked AskSetServers(const HttpRequest& request);
HttpResponse AfterSetServers(const HttpRequest& request, const Json& answer);
HttpResponse ServersRefused(const HttpRequest& request, const Json& answer);

}  // namespace tarvex::console
