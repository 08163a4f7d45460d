// Shows how far a job is. The page loads itself anew until the job has ended.

#include "console/pages/mailboxes/jobs.h"

#include "console/pages/mailboxes/tries.h"
#include "console/pages/parts.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Tr;

constexpr const char* kReload_s = "2";

std::string TitleOf(const std::string& what) {
    if (what == "run") return Tr("Run");
    if (what == "check") return Tr("Check of the servers");
    if (what == "plan") return Tr("What a run would do");
    if (what == "try") return Tr("Check of what was typed");
    if (what == "preview") return Tr("As the phone shows it");
    if (what == "alert test") return Tr("Test alert");
    return Tr("Change");
}

Word StateOfJob(const std::string& status, const Json& answer) {
    if (status == "working") return {Tr("at work"), "accent"};
    if (status == "refused") return {Tr("not done"), "bad"};
    return NumberOf(answer, "exit_code") == 0 ? Word{Tr("done"), "good"} : Word{Tr("done, with failures"), "warn"};
}

// What a job is about, or where that was.
std::string PlaceOf(const Json& answer) {
    const std::string about = TextOf(answer, "about");
    const std::string what = TextOf(answer, "what");
    if (!what.ends_with(" remove") || what == "schedule remove") return about;
    return about.substr(0, about.find('/') == std::string::npos ? 0 : about.rfind('/'));
}

Html LinkToPlace(const Json& answer) {
    if (TextOf(answer, "what") == "alert test") return LinkTo("/alerts", Tr("Alerts"));
    const std::string place = PlaceOf(answer);
    if (place.empty()) return LinkTo(PageAbout(place), Tr("Overview"));
    return LinkTo(PageAbout(place), place == TextOf(answer, "about") ? TextOf(answer, "title") : place);
}

}  // namespace

Asked AskJob(const HttpRequest& request) { return Json{{"ask", "job"}, {"job", request.Place("job")}}; }

HttpResponse ShowJob(const HttpRequest& request, const Json& answer) {
    const std::string status = TextOf(answer, "status");
    const std::string begun = TextOf(answer, "begun");
    const std::string printed = TextOf(answer, "printed") + (begun.empty() ? "" : "    " + begun + " …\n");
    Html content =
        El("p", {{"class", "row"}, {"role", "status"}}, {Mark(StateOfJob(status, answer)), LinkToPlace(answer)});
    if (!printed.empty())
        content += El("pre", {{"tabindex", 0}, {"role", "region"}, {"aria-label", Tr("Steps so far")}}, {printed});
    content += Preview(answer);
    content += AfterTry(ViewerOf(answer), answer);
    if (status == "working")
        content += El("p", {{"class", "muted"}},
                      {Tr("The page follows the work by itself; it goes on also when you leave it.")});
    HttpResponse response =
        ShowPage(request, ViewerOf(answer),
                 {TitleOf(TextOf(answer, "what")), content, status == "refused" ? TextOf(answer, "message") : ""});
    if (status == "working") response.headers.push_back({"Refresh", kReload_s});
    return response;
}

}  // namespace tarvex::console
