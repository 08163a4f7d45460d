#pragma once

// Mail that is set aside: the list, one message, sending and dropping it.

#include "console/http/router.h"

namespace tarvex::console {

Asked AskHeld(const HttpRequest& request);
HttpResponse ShowHeld(const HttpRequest& request, const Json& answer);

Asked AskHeldMail(const HttpRequest& request);
HttpResponse ShowHeldMail(const HttpRequest& request, const Json& answer);
Asked AskHeldFile(const HttpRequest& request);
HttpResponse GiveHeldFile(const HttpRequest& request, const Json& answer);
HttpResponse ShowDropHeld(const HttpRequest& request, const Json& answer);

Asked AskSendHeld(const HttpRequest& request);
HttpResponse AfterSendHeld(const HttpRequest& request, const Json& answer);
Asked AskDropHeld(const HttpRequest& request);
HttpResponse AfterDropHeld(const HttpRequest& request, const Json& answer);

}  // namespace tarvex::console
