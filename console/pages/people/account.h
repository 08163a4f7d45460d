#pragma once

// An account: password, sessions, authenticator. One's own at /account, to administrators any at /users/{user}.

#include "console/http/router.h"

namespace tarvex::console {

Asked AskAccount(const HttpRequest& request);
HttpResponse ShowAccount(const HttpRequest& request, const Json& answer);

Asked AskSetPassword(const HttpRequest& request);
HttpResponse AfterSetPassword(const HttpRequest& request, const Json& answer);
HttpResponse PasswordRefused(const HttpRequest& request, const Json& answer);

Asked AskEndSession(const HttpRequest& request);
HttpResponse AfterEndSession(const HttpRequest& request, const Json& answer);

// One's own authenticator: a secret to put into it, which counts once a code has come back.
Asked AskBeginCode(const HttpRequest& request);
HttpResponse ShowBegunCode(const HttpRequest& request, const Json& answer);
Asked AskSetCode(const HttpRequest& request);
HttpResponse AfterSetCode(const HttpRequest& request, const Json& answer);
HttpResponse CodeRefused(const HttpRequest& request, const Json& answer);
Asked AskRemoveCode(const HttpRequest& request);
HttpResponse AfterRemoveCode(const HttpRequest& request, const Json& answer);

}  // namespace tarvex::console
