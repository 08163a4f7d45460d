#pragma once

// One message: what became of it, station by station.

#include <string>
#include <string_view>

#include "console/http/router.h"

namespace tarvex::console {

// "/mails/M12"
std::string MailPage(std::string_view handle);

Asked AskMail(const HttpRequest& request);
HttpResponse ShowMail(const HttpRequest& request, const Json& answer);

// Once more, to all or to one address.
Asked AskResend(const HttpRequest& request);
HttpResponse AfterResend(const HttpRequest& request, const Json& answer);

}  // namespace tarvex::console
