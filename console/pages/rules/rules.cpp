// Shows rules as the desk lists them, and changes them one by one.

#include "console/pages/rules/rules.h"

#include <algorithm>
#include <array>

#include "console/http/url_text.h"
#include "console/pages/parts.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Tr;

// The desk changes them for nobody: they name programs and files of the machine.
constexpr std::array<std::string_view, 3> kOfTheMachine{"tls_authority", "token_command", "alert_command"};

std::string_view NameOf(const HttpRequest& request) {
    return request.method == "GET" ? request.Query("name") : request.Form("name");
}

std::string PageWith(const char* path, std::string_view name) {
    return name.empty() ? path : path + ("?name=" + EncodeEscapes(name));
}

std::string ListPage(std::string_view name) { return PageWith("/rules", name); }

std::string RulePage(const std::string& key, std::string_view name) {
    return "/rules/" + EncodeEscapes(key) + (name.empty() ? "" : "?name=" + EncodeEscapes(name));
}

Html ValueWithUnit(const Json& key) {
    const std::string value = TextOf(key, "value");
    if (value.empty()) return Text("–");
    if (TextOf(key, "key").ends_with("port")) return Text(value);  // no amount of something
    Html html = Text(value + ' ');
    return html += El("span", {{"class", "muted"}}, {TextOf(key, "unit")});
}

Html Row(const Json& key, std::string_view name) {
    const std::string word = TextOf(key, "key");
    const bool is_of_machine = std::ranges::find(kOfTheMachine, word) != kOfTheMachine.end();
    const std::string change = Tr("Change {0}", word);
    return El(
        "tr", {},
        {Cell(Tr("Rule"),
              El("span", {},
                 {El("code", {}, {word}), El("span", {{"class", "below muted"}}, {TextOf(key, "meaning")})})),
         Cell(Tr("Value"), ValueWithUnit(key)),
         El("td", {},
            {is_of_machine ? El("span", {{"class", "muted"}}, {Tr("changed on the machine itself")})
                           : El("a", {{"href", RulePage(word, name)}, {"class", "button"}, {"aria-label", change}},
                                {Tr("Change")})})});
}

Html Table(const Html& rows) {
    return El("table", {{"class", "cards rules"}},
              {TableHead({Tr("Rule"), Tr("Value"), Tr("Action")}), El("tbody", {}, {rows})});
}

Html ValueField(const Json& key, const std::string& value) {
    if (!IsTrue(key, "only_words") || ListOf(key, "words").empty()) {
        const bool is_secret = IsTrue(key, "secret");
        return El("input", {{"name", "value"},
                            {"type", is_secret ? "password" : "text"},
                            {"value", is_secret ? "" : value},
                            {"autocomplete", is_secret ? "new-password" : "off"},
                            {"autocapitalize", "none"}});
    }
    Html options;
    for (const Json& word : ListOf(key, "words")) {
        const std::string text = word.is_string() ? word.get<std::string>() : "";
        options += El("option", {{"value", text}, {"selected", text == value}}, {text});
    }
    return El("select", {{"name", "value"}}, {options});
}

// A button that has the rule follow what holds above the user or the mailbox, where it does not.
Html AsAbove(const Viewer& viewer, const Json& answer, const std::string& word, std::string_view name,
             std::string_view value) {
    const Json& above = PartOf(answer, "above");
    if (!above.contains(word) || TextOf(above, word.c_str()) == value) return {};
    const std::string other = TextOf(above, word.c_str());
    return ChangeForm(viewer, RulePage(word, ""),
                      {Hidden("name", name), Hidden("value", other),
                       El("button", {}, {Tr("As above it: {0}", other.empty() ? "–" : other)})});
}

HttpResponse RulePageOf(const HttpRequest& request, const Json& answer, const Json& key, const std::string& value) {
    const Viewer viewer = ViewerOf(answer);
    const std::string word(request.Place("key"));
    const std::string_view name = NameOf(request);
    const std::string unit = TextOf(key, "unit");
    Html content;
    if (!name.empty()) content += El("p", {}, {LinkTo(PageAbout(name), name)});
    content += El("p", {}, {TextOf(key, "meaning")});
    content += ChangeForm(
        viewer, RulePage(word, ""),
        {Hidden("name", name), Hidden("secret", IsTrue(key, "secret") ? "yes" : ""),
         El("div", {{"class", "stack"}},
            {El("label", {},
                {unit.empty() ? Tr("Value") : Tr("Value ({0})", unit), ValueField(key, value),
                 IsTrue(key, "secret") ? El("span", {{"class", "hint"}}, {Tr("Saved empty, it is removed.")})
                                       : Html()}),
             El("div", {{"class", "row actions"}},
                {El("button", {{"class", "main"}}, {Tr("Save")}), LinkButton(ListPage(name), Tr("Cancel"))})})});
    content += AsAbove(viewer, answer, word, name, value);
    const bool is_refused = TextOf(answer, "status") == "refused";
    return ShowPage(request, viewer,
                    {word, content, is_refused ? TextOf(answer, "message") : "", is_refused ? 422 : 200, true});
}

}  // namespace

Asked AskRules(const HttpRequest& request) { return Json{{"ask", "rules"}, {"name", request.Query("name")}}; }

HttpResponse ShowRules(const HttpRequest& request, const Json& answer) {
    const std::string name = TextOf(answer, "name");
    Html content = name.empty()
                       ? El("p", {}, {Tr("For all mailboxes, where a user or a mailbox has no other.")})
                       : El("p", {}, {LinkTo(PageAbout(name), name), " · ", LinkTo("/rules", Tr("Rules of the tree"))});
    if (name.find('/') == std::string::npos)
        content += El("p", {{"class", "row"}},
                      {LinkTo(PageWith("/servers", name), Tr("Default servers")),
                       LinkTo(PageWith("/alerts", name), Tr("Alerts"))});
    std::string group;
    Html rows;
    const auto end_group = [&] {
        if (rows.IsEmpty()) return;
        content += El("h2", {}, {group});
        content += Table(rows);
        rows = {};
    };
    for (const Json& key : ListOf(answer, "keys")) {
        if (TextOf(key, "group") != group) end_group();
        group = TextOf(key, "group");
        rows += Row(key, name);
    }
    end_group();
    return ShowPage(request, ViewerOf(answer), {Tr("Rules"), content});
}

HttpResponse ShowRule(const HttpRequest& request, const Json& answer) {
    for (const Json& key : ListOf(answer, "keys"))
        if (TextOf(key, "key") == request.Place("key")) return RulePageOf(request, answer, key, TextOf(key, "value"));
    return ErrorPage(request, 404, ViewerOf(answer));
}

Asked AskSetRule(const HttpRequest& request) {
    const bool is_secret = request.Form("secret") == "yes";
    const std::string key(request.Place("key"));
    return Json{{"ask", "change"},
                {"kind", "rules"},
                {"verb", "set"},
                {"name", request.Form("name")},
                {is_secret ? "secrets" : "values", {{key, request.Form("value")}}}};
}

HttpResponse AfterSetRule(const HttpRequest& request, const Json& answer) {
    return AfterChange(answer, ListPage(request.Form("name")), TextOf(answer, "printed"));
}

HttpResponse RuleRefused(const HttpRequest& request, const Json& answer) {
    const Json key{{"secret", request.Form("secret") == "yes"}};
    return RulePageOf(request, answer, key, std::string(request.Form("value")));
}

}  // namespace tarvex::console
