#pragma once

// The rules of the tree, of a user, of a mailbox; for administrators.

#include "console/http/router.h"

namespace tarvex::console {

Asked AskRules(const HttpRequest& request);
HttpResponse ShowRules(const HttpRequest& request, const Json& answer);
HttpResponse ShowRule(const HttpRequest& request, const Json& answer);

Asked AskSetRule(const HttpRequest& request);
HttpResponse AfterSetRule(const HttpRequest& request, const Json& answer);
HttpResponse RuleRefused(const HttpRequest& request, const Json& answer);

}  // namespace tarvex::console
