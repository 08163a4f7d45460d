#pragma once

// Logging in and out, and the language of the pages.

#include "console/http/router.h"

namespace tarvex::console {

Asked ShowLogin(const HttpRequest& request);
Asked AskLogin(const HttpRequest& request);
HttpResponse AfterLogin(const HttpRequest& request, const Json& answer);
HttpResponse LoginRefused(const HttpRequest& request, const Json& answer);

Asked AskLogout(const HttpRequest& request);
HttpResponse AfterLogout(const HttpRequest& request, const Json& answer);

Asked ChooseLanguage(const HttpRequest& request);

// To the login page, and from there to where the request wanted to go. What a form wanted is lost: the page says so.
HttpResponse LoginFirst(const HttpRequest& request);

}  // namespace tarvex::console
