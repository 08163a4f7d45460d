#pragma once

// What became of messages; and what was done to a profile, a user, the tree.

#include "console/http/html.h"
#include "console/http/router.h"

namespace tarvex::console {

// In which colour a fate is shown.
const char* ToneOf(const std::string& fate);

// Messages as the desk gives them, with the fate of each copy.
Html MailTable(const Json& mails);

Asked AskMails(const HttpRequest& request);
HttpResponse ShowMails(const HttpRequest& request, const Json& answer);

Asked AskHistory(const HttpRequest& request);
HttpResponse ShowHistory(const HttpRequest& request, const Json& answer);

}  // namespace tarvex::console
