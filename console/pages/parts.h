#pragma once

// Small pieces that many pages are made of.

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "console/http/html.h"
#include "console/http/message.h"
#include "console/http/router.h"
#include "console/pages/frame.h"

namespace tarvex::console {

// ---- out of the desk's answers: what is missing or of another kind is empty

const Json& PartOf(const Json& object, const char* name);
const Json& ListOf(const Json& object, const char* name);
std::int64_t NumberOf(const Json& object, const char* name);

// "2026-11-22 16:41:47" of "2026-11-22T16:41:47+0000".
std::string MomentOf(const Json& object, const char* name);

// ---- names and addresses of pages

// "/profiles/user0/from0" of "user0/from0".
std::string ProfilePage(std::string_view name);
// "/profiles/user0/from0/to/forwardto0" of "user0/from0/forwardto0".
std::string AddressPage(std::string_view name);
// "user0/from0/forwardto0" of the places that the path has, as far as it has them.
std::string NameIn(const HttpRequest& request);
// The page about what has such a name.
std::string PageAbout(std::string_view name);

// The number in a query or a form; `otherwise` for what is none.
std::int64_t NumberIn(std::string_view text, std::int64_t otherwise);

// ---- HTML

struct Word {
    std::string text;
    const char* tone;  // "good", "warn", "bad" or ""
};
Html Mark(const Word& word);

// How a profile is doing, by the desk's "level".
Word StateOf(const std::string& level);

Html Hidden(std::string_view name, std::string_view value);
Html Cell(std::string_view heading, Node content);
Html TimeCell(std::string_view heading, std::string_view moment);
Html TableHead(std::initializer_list<std::string> headings);
Html Fact(std::string_view name, Node value);
Html LinkTo(std::string_view path, std::string_view text);
Html LinkButton(std::string_view path, std::string_view text);

// A form of nothing but a button; `field` may carry a value.
Html ButtonForm(const Viewer& viewer, std::string_view action, std::string_view text, const char* look = "",
                const Field& field = {});

// Leads to the other pages of a list; `before` is their address up to the number. Nothing for a single page.
Html Pager(const Json& answer, std::string_view before);

// ---- after a change

// To the page that shows the change; while a job still makes it, to the page of the job.
HttpResponse AfterChange(const Json& answer, std::string_view page, std::string_view notice);

}  // namespace tarvex::console
