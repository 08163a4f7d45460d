// Asks before a removal. The form carries what the page said: where that has changed since, nothing is removed.

#include "console/pages/removal.h"

#include <array>

#include "console/pages/parts.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Marked;
using host::Tr;

struct Kind {
    const char* kind;  // of the desk's change
    const char* what_goes;
    const char* button;
};

constexpr std::array kKinds{
    Kind{"user",
         Marked("The user logs in no more. The mailboxes of the user are removed too, with their addresses, times, "
                "passwords and logs. To pause all of it, switch the user off instead."),
         Marked("Remove the user")},
    Kind{"profile",
         Marked("The mailbox is looked at no more: its settings, addresses, times and log are lost. Mail on its POP3 "
                "server stays there. To pause it, switch it off instead."),
         Marked("Remove the mailbox")},
    Kind{"forward",
         Marked("The address gets no more mail, and its times and options are lost. What was sent stays sent. To "
                "pause it, switch it off instead."),
         Marked("Remove the address")},
};

const Kind& KindOf(const HttpRequest& request) {
    if (!request.Place("address").empty()) return kKinds[2];
    return kKinds[request.Place("profile").empty() ? 0 : 1];
}

// Where what is removed stood.
std::string PageBefore(const HttpRequest& request) {
    const std::string name = NameIn(request);
    const std::size_t slash = name.rfind('/');
    return slash == std::string::npos ? "/users" : PageAbout(name.substr(0, slash));
}

Html WhatGoes(const Json& removal) {
    Html list;
    for (const Json& address : ListOf(removal, "goes"))
        if (address.is_string()) list += El("li", {}, {address.get<std::string>()});
    Html html = El("p", {}, {El("strong", {}, {TextOf(removal, "expected")})});
    if (!list.IsEmpty()) html += El("ul", {}, {list});
    const std::string held = TextOf(removal, "held");
    if (!held.empty()) html += El("p", {{"class", "message warn"}}, {Tr("Also lost, and sent to nobody: {0}.", held)});
    return html;
}

}  // namespace

Asked AskRemoval(const HttpRequest& request) { return Json{{"ask", "removal"}, {"name", NameIn(request)}}; }

HttpResponse ShowRemoval(const HttpRequest& request, const Json& answer) {
    const Viewer viewer = ViewerOf(answer);
    const Json& removal = PartOf(answer, "removal");
    const Kind& kind = KindOf(request);
    Html content = El("p", {}, {Tr(kind.what_goes)});
    content += WhatGoes(removal);
    content +=
        ChangeForm(viewer, request.path,
                   {Hidden("expected", TextOf(removal, "expected")), Hidden("expected_held", TextOf(removal, "held")),
                    El("div", {{"class", "row actions"}},
                       {El("button", {{"class", "danger"}}, {Tr(kind.button)}),
                        LinkButton(PageAbout(NameIn(request)), Tr("Keep it"))})});
    return ShowPage(request, viewer, {Tr("Remove {0}?", TextOf(removal, "title")), content, "", 200, true});
}

Asked AskRemove(const HttpRequest& request) {
    if (request.Form("expected").empty()) return ErrorPage(request, 400);  // nobody was asked
    return Json{{"ask", "change"},
                {"kind", KindOf(request).kind},
                {"verb", "remove"},
                {"name", NameIn(request)},
                {"expected", request.Form("expected")},
                {"expected_held", request.Form("expected_held")}};
}

HttpResponse AfterRemove(const HttpRequest& request, const Json& answer) {
    return AfterChange(answer, PageBefore(request), TextOf(answer, "printed"));
}

HttpResponse RemoveRefused(const HttpRequest& request, const Json& answer) {
    const Html content =
        El("p", {{"class", "row actions"}},
           {LinkButton(request.path, Tr("Look again")), LinkButton(PageAbout(NameIn(request)), Tr("Keep it"))});
    return ShowPage(request, ViewerOf(answer), {Tr("Not done"), content, TextOf(answer, "message"), 422, true});
}

}  // namespace tarvex::console
