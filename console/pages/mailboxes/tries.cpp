// Shows what came of a try, and leads on.

#include "console/pages/mailboxes/tries.h"

#include <algorithm>

#include "console/http/url_text.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Tr;

std::string Bytes(std::int64_t bytes) { return Tr("{0} bytes", bytes); }

std::string WhatIsSent(const Json& found) {
    if (IsTrue(found, "whole")) return Tr("the whole mail; the text alone would be this");
    const std::int64_t limit = NumberOf(found, "limit");
    if (limit == 0) return Tr("a text mail without limit");
    return Tr("a text mail of at most {0} bytes", limit);
}

std::string HowMuchFits(const Json& found) {
    const std::int64_t bytes = NumberOf(found, "bytes"), all = NumberOf(found, "all_bytes");
    if (bytes >= all) return Tr("{0}: all of it", Bytes(bytes));
    return Tr("{0} of {1}: the rest is cut", Bytes(bytes), all);
}

std::string FormOf(const Json& draft) {
    const std::string name = TextOf(draft, "name");
    if (TextOf(draft, "kind") != "profile") return AddressPage(name);
    return TextOf(draft, "verb") == "add" ? PageAbout(name) + "/profiles" : ProfilePage(name) + "/settings";
}

bool HasAnything(const Json& draft) {
    return !PartOf(draft, "values").empty() || !ListOf(draft, "secrets").empty() || !PartOf(draft, "rules").empty();
}

// The job, by the form or by the query of the page.
std::string_view DraftOf(const HttpRequest& request) {
    return request.Form("draft").empty() ? request.Query("draft") : request.Form("draft");
}

}  // namespace

Html Preview(const Json& answer) {
    const Json& found = PartOf(answer, "found");
    if (found.empty()) return {};
    Html facts = Fact(Tr("For"), TextOf(found, "address"));
    facts += Fact(Tr("What it gets"), WhatIsSent(found));
    facts += Fact(Tr("Text"), HowMuchFits(found));
    facts += Fact(Tr("The message itself"), TextOf(found, "size"));
    Html html = El("dl", {{"class", "facts sheet"}}, {facts});
    const std::string text = TextOf(found, "text");
    html += El("div", {{"class", "phone"}, {"role", "region"}, {"aria-label", Tr("On the phone")}, {"tabindex", 0}},
               {El("p", {{"class", "muted"}}, {TextOf(found, "from")}),
                El("h2", {}, {TextOf(found, "subject").empty() ? Tr("(no subject)") : TextOf(found, "subject")}),
                text.empty() ? El("p", {{"class", "muted"}}, {Tr("No part of the message is text.")})
                             : El("p", {{"class", "screen"}}, {text})});
    return html;
}

Html AfterTry(const Viewer& viewer, const Json& answer) {
    const Json& draft = PartOf(answer, "draft");
    if (draft.empty() || TextOf(answer, "status") == "working") return {};
    const std::string job = EncodeEscapes(TextOf(answer, "job"));
    return El(
        "div", {{"class", "row actions"}},
        {HasAnything(draft) ? ButtonForm(viewer, "/jobs/" + job + "/save", Tr("Save what was typed"), "main") : Html(),
         LinkButton(FormOf(draft) + "?draft=" + job, Tr("Back to the form"))});
}

Asked AskSaveTried(const HttpRequest& request) { return Json{{"ask", "save-tried"}, {"job", request.Place("job")}}; }

HttpResponse AfterSaveTried(const HttpRequest&, const Json& answer) {
    return AfterChange(answer, PageAbout(TextOf(answer, "about")), Tr("It is saved."));
}

void AddDraft(const HttpRequest& request, Json& question) {
    if (const std::string_view draft = DraftOf(request); !draft.empty()) question["draft"] = draft;
}

void PutDraft(const Json& answer, Fields& values) {
    for (const char* const part : {"values", "rules"}) {
        for (const auto& [key, value] : PartOf(PartOf(answer, "draft"), part).items()) {
            if (!value.is_string()) continue;
            std::erase_if(values, [name = std::string_view(key)](const Field& field) { return field.name == name; });
            values.push_back({key, value.template get<std::string>()});
        }
    }
}

Html DraftInForm(const HttpRequest& request, const Json& answer) {
    const Json& draft = PartOf(answer, "draft");
    if (draft.empty()) return request.Form("draft").empty() ? Html() : Hidden("draft", request.Form("draft"));
    Html html = Hidden("draft", DraftOf(request));
    html += El("p", {{"class", "message warn"}},
               {ListOf(draft, "secrets").empty()
                    ? Tr("What you typed is not saved yet.")
                    : Tr("What you typed is not saved yet. A password that you typed is kept for ten minutes; type it "
                         "again only to change it.")});
    return html;
}

}  // namespace tarvex::console
