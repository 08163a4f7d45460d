#pragma once

// A forwarding address: its times, its options; a new one.

#include "console/http/router.h"

namespace tarvex::console {

Asked AskAddress(const HttpRequest& request);  // as the page of the profile
HttpResponse ShowAddress(const HttpRequest& request, const Json& answer);

Asked AskSetWeek(const HttpRequest& request);
HttpResponse AfterSetWeek(const HttpRequest& request, const Json& answer);
HttpResponse WeekRefused(const HttpRequest& request, const Json& answer);

// One term more: days with a time, or a time with dates. And the end of one.
Asked AskAddTerm(const HttpRequest& request);
Asked AskRemoveTerm(const HttpRequest& request);
HttpResponse AddTermRefused(const HttpRequest& request, const Json& answer);

Asked AskSetAddress(const HttpRequest& request);
HttpResponse AfterSetAddress(const HttpRequest& request, const Json& answer);
HttpResponse SetAddressRefused(const HttpRequest& request, const Json& answer);
Asked AskPreview(const HttpRequest& request);  // with the options that are typed
Asked AskSwitchAddress(const HttpRequest& request);
HttpResponse AfterSwitchAddress(const HttpRequest& request, const Json& answer);

HttpResponse ShowNewAddress(const HttpRequest& request, const Json& answer);
Asked AskAddAddress(const HttpRequest& request);
HttpResponse AfterAddAddress(const HttpRequest& request, const Json& answer);
HttpResponse AddAddressRefused(const HttpRequest& request, const Json& answer);

}  // namespace tarvex::console
