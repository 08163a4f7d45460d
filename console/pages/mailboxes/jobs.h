#pragma once

// What takes longer than a page may wait.

#include "console/http/router.h"

namespace tarvex::console {

Asked AskJob(const HttpRequest& request);
HttpResponse ShowJob(const HttpRequest& request, const Json& answer);

}  // namespace tarvex::console
