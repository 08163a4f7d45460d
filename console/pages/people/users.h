#pragma once

// Users, for administrators: the list, a new one, the rights of one.

#include "console/http/html.h"
#include "console/http/router.h"
#include "console/pages/frame.h"

namespace tarvex::console {

Asked AskUsers(const HttpRequest& request);
HttpResponse ShowUsers(const HttpRequest& request, const Json& answer);

Asked AskAddUser(const HttpRequest& request);
HttpResponse AfterAddUser(const HttpRequest& request, const Json& answer);
HttpResponse AddUserRefused(const HttpRequest& request, const Json& answer);

Asked AskSetUser(const HttpRequest& request);
HttpResponse AfterSetUser(const HttpRequest& request, const Json& answer);
HttpResponse SetUserRefused(const HttpRequest& request, const Json& answer);

// The form for the rights of a user whose page that is.
Html UserForm(const Viewer& viewer, const std::string& page, const Fields& values, const Fields& was);

}  // namespace tarvex::console
