#pragma once

// Mail that is set aside: the list, one message, sending and dropping it.

#include <cstdint>
#include <string>
#include <string_view>

#include "console/http/router.h"

namespace tarvex::console {

std::string HeldPage(std::string_view profile, std::int64_t id);

Asked AskHeld(const HttpRequest& request);
HttpResponse ShowHeld(const HttpRequest& request, const Json& answer);

// Several at once, as the boxes of the list are checked.
Asked AskSelected(const HttpRequest& request);
HttpResponse AfterSelected(const HttpRequest& request, const Json& answer);

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
