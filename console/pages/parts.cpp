// Makes the small pieces of pages.

#include "console/pages/parts.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "console/http/url_text.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

using host::Marked;
using host::Tr;

struct Level {
    std::string_view name;
    const char* text;
    const char* tone;
};

constexpr std::array kLevels{
    Level{"failing", Marked("failing"), "bad"},    Level{"waiting", Marked("needs a look"), "warn"},
    Level{"running", Marked("running"), "accent"}, Level{"well", Marked("working"), "good"},
    Level{"new", Marked("not run yet"), ""},       Level{"off", Marked("switched off"), ""},
};

// The parts of a name, ready to stand in a path.
std::string Encoded(std::string_view name) {
    std::string path;
    while (!name.empty()) {
        const std::size_t end = std::min(name.find('/'), name.size());
        path += '/' + EncodeEscapes(name.substr(0, end));
        name.remove_prefix(std::min(end + 1, name.size()));
    }
    return path;
}

const Json& Member(const Json& object, const char* name, const Json& otherwise) {
    const auto found = object.find(name);
    return found != object.end() && found->type() == otherwise.type() ? *found : otherwise;
}

}  // namespace

const Json& PartOf(const Json& object, const char* name) {
    static const Json none = Json::object();
    return Member(object, name, none);
}

const Json& ListOf(const Json& object, const char* name) {
    static const Json none = Json::array();
    return Member(object, name, none);
}

std::int64_t NumberOf(const Json& object, const char* name) {
    const auto found = object.find(name);
    return found != object.end() && found->is_number_integer() ? found->get<std::int64_t>() : 0;
}

std::string MomentOf(const Json& object, const char* name) {
    std::string text = TextOf(object, name);
    constexpr std::size_t kT = 10, kEnd = 19;
    if (text.size() < kEnd || text[kT] != 'T') return text;
    text[kT] = ' ';
    return text.substr(0, kEnd);
}

std::string ProfilePage(std::string_view name) { return "/profiles" + Encoded(name); }

std::string AddressPage(std::string_view name) {
    const std::size_t slash = name.rfind('/');
    if (slash == std::string_view::npos) return ProfilePage(name);
    return ProfilePage(name.substr(0, slash)) + "/to" + Encoded(name.substr(slash + 1));
}

std::string NameIn(const HttpRequest& request) {
    std::string name(request.Place("user"));
    for (const char* const place : {"profile", "address"}) {
        if (!request.Place(place).empty()) name.append("/").append(request.Place(place));
    }
    return name;
}

std::string PageAbout(std::string_view name) {
    switch (std::ranges::count(name, '/')) {
        case 0:
            return name.empty() ? "/" : "/users" + Encoded(name);
        case 1:
            return ProfilePage(name);
        default:
            return AddressPage(name);
    }
}

std::int64_t NumberIn(std::string_view text, std::int64_t otherwise) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? number : otherwise;
}

Html Mark(const Word& word) {
    return El("span", {{"class", *word.tone ? std::string("state ") + word.tone : "state"}}, {word.text});
}

Word StateOf(const std::string& level) {
    const auto* const found = std::ranges::find(kLevels, level, &Level::name);
    return found == kLevels.end() ? Word{level, ""} : Word{Tr(found->text), found->tone};
}

Html Hidden(std::string_view name, std::string_view value) {
    return El("input", {{"type", "hidden"}, {"name", name}, {"value", value}});
}

Html Cell(std::string_view heading, Node content) { return El("td", {{"data-label", heading}}, {std::move(content)}); }

Html TimeCell(std::string_view heading, std::string_view moment) {
    return El("td", {{"data-label", heading}, {"class", "tight"}}, {moment});
}

Html TableHead(std::initializer_list<std::string> headings) {
    Html cells;
    for (const std::string& heading : headings) cells += El("th", {{"scope", "col"}}, {heading});
    return El("thead", {}, {El("tr", {}, {cells})});
}

Html Fact(std::string_view name, Node value) {
    Html fact = El("dt", {}, {name});
    return fact += El("dd", {}, {std::move(value)});
}

Html LinkTo(std::string_view path, std::string_view text) { return El("a", {{"href", path}}, {text}); }

Html LinkButton(std::string_view path, std::string_view text) {
    return El("a", {{"href", path}, {"class", "button"}}, {text});
}

Html ButtonForm(const Viewer& viewer, std::string_view action, std::string_view text, const char* look,
                const Field& field) {
    return ChangeForm(
        viewer, action,
        {field.name.empty() ? Html() : Hidden(field.name, field.value), El("button", {{"class", look}}, {text})});
}

Html Pager(const Json& answer, std::string_view before) {
    const std::int64_t page = NumberOf(answer, "page");
    const std::int64_t pages = NumberOf(answer, "pages");
    if (pages < 2) return {};
    const std::string path(before);
    Html links;
    if (page > 1) links += LinkButton(path + std::to_string(page - 1), Tr("Previous"));
    links += El("span", {{"class", "muted"}}, {Tr("Page {0} of {1}", page, pages)});
    if (page < pages) links += LinkButton(path + std::to_string(page + 1), Tr("Next"));
    return El("nav", {{"class", "row pager"}, {"aria-label", Tr("Pages of the list")}}, {links});
}

HttpResponse AfterChange(const Json& answer, std::string_view page, std::string_view notice) {
    if (TextOf(answer, "status") == "working") return SeeOther("/jobs/" + EncodeEscapes(TextOf(answer, "job")));
    return SeeOtherWithNotice(page, notice);
}

}  // namespace tarvex::console
