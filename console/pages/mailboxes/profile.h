#pragma once

// A profile: how it does, where its mail goes, what became of the last messages; its log, and what is started for it.

#include "console/http/router.h"

namespace tarvex::console {

Asked AskProfile(const HttpRequest& request);
HttpResponse ShowProfile(const HttpRequest& request, const Json& answer);

Asked AskSwitchProfile(const HttpRequest& request);
HttpResponse AfterSwitchProfile(const HttpRequest& request, const Json& answer);

// What becomes of the mail of a profile that waits for a person.
Asked AskDecide(const HttpRequest& request);
HttpResponse AfterDecide(const HttpRequest& request, const Json& answer);

// A run, a check, a plan.
Asked AskStart(const HttpRequest& request);
HttpResponse AfterStart(const HttpRequest& request, const Json& answer);

Asked AskLog(const HttpRequest& request);
HttpResponse ShowLog(const HttpRequest& request, const Json& answer);

}  // namespace tarvex::console
