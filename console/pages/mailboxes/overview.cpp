// The first page: every profile that one may see, what fails first.

#include "console/pages/mailboxes/overview.h"

#include "console/http/url_text.h"
#include "console/pages/parts.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Tr;
using host::TrN;

// How many are in which state, the worse ones first.
Html Counts(const Json& answer) {
    Html counts;
    const Json& of = PartOf(answer, "counts");
    for (const char* const level : {"failing", "waiting", "running", "well", "new", "off"}) {
        const std::int64_t count = NumberOf(of, level);
        if (count == 0) continue;
        const Word state = StateOf(level);
        counts += Mark({std::to_string(count) + ' ' + state.text, state.tone});
    }
    if (const std::int64_t held = NumberOf(answer, "held"); held > 0)
        counts += LinkTo("/held", TrN("{0} message set aside", "{0} messages set aside", held));
    return counts.IsEmpty() ? Html() : El("p", {{"class", "row"}}, {counts});
}

Html SearchForm(const HttpRequest& request) {
    return El(
        "form", {{"method", "get"}, {"action", "/"}, {"class", "row search"}, {"role", "search"}},
        {El("label", {},
            {Tr("Search"), El("input", {{"type", "search"}, {"name", "search"}, {"value", request.Query("search")}})}),
         El("button", {}, {Tr("Search")})});
}

Html WhoseMailbox(const Viewer& viewer, const Json& row) {
    Html cell = LinkTo(ProfilePage(TextOf(row, "path")), TextOf(row, "address"));
    std::string below = TextOf(row, "nickname");
    if (viewer.is_administrator) below += (below.empty() ? "" : " · ") + TextOf(row, "user");
    if (!below.empty()) cell += El("span", {{"class", "below muted"}}, {below});
    return cell;
}

Html WhatEnded(const Json& row) {
    Html cell = Text(TextOf(row, "ended"));
    for (const Json& remark : ListOf(row, "remarks"))
        if (remark.is_string()) cell += El("span", {{"class", "below muted"}}, {remark.get<std::string>()});
    if (const std::int64_t held = NumberOf(row, "held"); held > 0)
        cell += El("span", {{"class", "below"}},
                   {LinkTo("/held?profile=" + EncodeEscapes(TextOf(row, "path")),
                           TrN("{0} message set aside", "{0} messages set aside", held))});
    return cell;
}

Html Row(const Viewer& viewer, const Json& row) {
    const std::string last = TextOf(row, "last_good");
    return El("tr", {},
              {El("td", {}, {Mark(StateOf(TextOf(row, "level")))}), El("td", {}, {WhoseMailbox(viewer, row)}),
               Cell(Tr("Last run"), WhatEnded(row)), TimeCell(Tr("Last success"), last.empty() ? Tr("none yet") : last),
               TimeCell(Tr("Next run"), TextOf(row, "next")),
               El("td", {}, {ButtonForm(viewer, ProfilePage(TextOf(row, "path")) + "/start/run", Tr("Run now"))})});
}

Html List(const Viewer& viewer, const Json& answer) {
    Html rows;
    for (const Json& row : ListOf(answer, "profiles")) rows += Row(viewer, row);
    return El(
        "table", {{"class", "cards"}},
        {TableHead({Tr("State"), Tr("Mailbox"), Tr("Last run"), Tr("Last success"), Tr("Next run"), Tr("Action")}),
         El("tbody", {}, {rows})});
}

Html Nothing(const Viewer& viewer, const HttpRequest& request) {
    if (!request.Query("search").empty()) return El("p", {}, {Tr("Nothing fits the search.")});
    if (!viewer.is_administrator)
        return El("p", {}, {Tr("No mailbox is forwarded for you yet. An administrator can add one.")});
    return El("p", {}, {Tr("No mailbox is forwarded yet."), " ", LinkTo("/users", Tr("Add one at a user."))});
}

}  // namespace

Asked AskOverview(const HttpRequest& request) {
    return Json{{"ask", "overview"}, {"search", request.Query("search")}, {"page", NumberIn(request.Query("page"), 1)}};
}

HttpResponse ShowOverview(const HttpRequest& request, const Json& answer) {
    const Viewer viewer = ViewerOf(answer);
    const bool is_empty = ListOf(answer, "profiles").empty();
    Html live = Counts(answer);
    if (const std::string trouble = TextOf(answer, "trouble"); !trouble.empty())
        live += El("p", {{"class", "message warn"}}, {trouble});
    live += is_empty ? Nothing(viewer, request) : List(viewer, answer);
    Html content = SearchForm(request);
    content += El("div", {{"id", "profiles"}, {"data-live", "5"}}, {live});
    content += Pager(answer, "/?search=" + EncodeEscapes(request.Query("search")) + "&page=");
    content += El("p", {{"class", "muted"}},
                  {Tr("Times are of {0}; it is {1} there.", TextOf(answer, "zone"), TextOf(answer, "now"))});
    return ShowPage(request, viewer, {Tr("Overview"), content});
}

}  // namespace tarvex::console
