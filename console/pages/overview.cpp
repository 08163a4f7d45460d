// The first page.

#include "console/pages/overview.h"

#include "console/pages/frame.h"
#include "host/language/tr.h"

namespace tarvex::console {

Asked AskOverview(const HttpRequest&) { return Json{{"ask", "overview"}}; }

HttpResponse ShowOverview(const HttpRequest& request, const Json& answer) {
    const Viewer viewer = ViewerOf(answer);
    const Html content = El("p", {}, {host::Tr("You are logged in as {0}.", viewer.name)});
    return ShowPage(request, viewer, {host::Tr("Overview"), content});
}

}  // namespace tarvex::console
