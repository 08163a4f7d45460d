#pragma once

// The first page.

#include "console/http/router.h"

namespace tarvex::console {

Asked AskOverview(const HttpRequest& request);
HttpResponse ShowOverview(const HttpRequest& request, const Json& answer);

}  // namespace tarvex::console
