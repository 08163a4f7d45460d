#pragma once

// Who is told when something is wrong, of what, and whether it arrives; administrators change it.

#include "console/http/router.h"

namespace tarvex::console {

Asked AskAlerts(const HttpRequest& request);
HttpResponse ShowAlerts(const HttpRequest& request, const Json& answer);

Asked AskSetAlerts(const HttpRequest& request);
HttpResponse AfterSetAlerts(const HttpRequest& request, const Json& answer);
HttpResponse AlertsRefused(const HttpRequest& request, const Json& answer);

Asked AskTestAlert(const HttpRequest& request);
HttpResponse AfterTestAlert(const HttpRequest& request, const Json& answer);

}  // namespace tarvex::console
