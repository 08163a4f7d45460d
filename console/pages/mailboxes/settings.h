#pragma once

// The settings of a mailbox, and a new one for a user.

#include "console/http/router.h"

namespace tarvex::console {

Asked AskSettings(const HttpRequest& request);
HttpResponse ShowSettings(const HttpRequest& request, const Json& answer);
Asked AskSetSettings(const HttpRequest& request);
Asked AskTrySettings(const HttpRequest& request);  // the servers, before it is saved
HttpResponse AfterSetSettings(const HttpRequest& request, const Json& answer);
HttpResponse SettingsRefused(const HttpRequest& request, const Json& answer);

Asked AskNewProfile(const HttpRequest& request);
HttpResponse ShowNewProfile(const HttpRequest& request, const Json& answer);
Asked AskAddProfile(const HttpRequest& request);
Asked AskTryNewProfile(const HttpRequest& request);
HttpResponse AfterAddProfile(const HttpRequest& request, const Json& answer);
HttpResponse AddProfileRefused(const HttpRequest& request, const Json& answer);

}  // namespace tarvex::console
