#pragma once

// The first login of a new installation: whoever has the link's code becomes an administrator.

#include "console/http/router.h"

namespace tarvex::console {

Asked ShowFirst(const HttpRequest& request);
Asked AskFirst(const HttpRequest& request);
HttpResponse AfterFirst(const HttpRequest& request, const Json& answer);
HttpResponse FirstRefused(const HttpRequest& request, const Json& answer);

}  // namespace tarvex::console
