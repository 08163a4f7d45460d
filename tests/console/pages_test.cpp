// Each page and each change, by the table of routes: what it asks, and what it makes of any answer.

#include "console/pages/parts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "console/http/url_text.h"
#include "console/pages/mailboxes/week.h"
#include "console/pages/routes.h"
#include "console/pages/static_files.h"
#include "console/site.h"

namespace tarvex::console {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

const std::string kToken(64, 'a');
const std::string kHostile = "<script>alert(1)</script>\"'&日本";
const std::string kSecret = "a typed secret";

Site TheSite() { return {{{"localhost"}, 0, false}, Routes()}; }

// Fills the places of the pattern with what there may be.
std::string PathOf(const Route& route) {
    std::string path = route.pattern;
    for (const auto& [place, name] :
         std::map<std::string, std::string>{{"{user}", "user0"},
                                            {"{profile}", "from0"},
                                            {"{address}", "forwardto0"},
                                            {"{id}", "1"},
                                            {"{what}", "check"},
                                            {"{job}", kToken},
                                            {"{message}", "M1"},
                                            {"{key}", "endofdata"},
                                            {"{file}", std::string(StaticFiles()[0].served)}}) {
        if (const std::size_t at = path.find(place); at != std::string::npos) path.replace(at, place.size(), name);
    }
    return path;
}

// What a person may type into the forms, beside secrets.
std::string TypedForm() {
    std::string form = "token=t&password=" + EncodeEscapes(kSecret) + "&poppassword=" + EncodeEscapes(kSecret) +
                       "&old=" + EncodeEscapes(kSecret) +
                       "&number=1&mail=user0%2Ffrom0%2F1&id=others&slot=1-18&status=on&code=123456&verb=accept";
    for (const char* const key : {"name", "address", "nickname", "loginname", "terms", "value", "secret", "title",
                                  "expected", "smtpserver", "alert_to"})
        form += std::string("&") + key + "=" + EncodeEscapes(std::string("typed ") + key + " " + kHostile);
    for (const char* const key : {"address", "nickname", "loginname", "status", "smtpserver", "alert_to"})
        form += std::string("&was-") + key + "=x";
    return form;
}

RawRequest RequestTo(const Route& route) {
    RawRequest raw{
        route.method, PathOf(route), {{"host", "localhost"}, {"cookie", "__Host-session=" + kToken}}, "", "192.0.2.1"};
    if (raw.method == "GET") return raw;
    raw.body = TypedForm();
    raw.headers.push_back({"content-type", "application/x-www-form-urlencoded"});
    raw.headers.push_back({"sec-fetch-site", "same-origin"});
    return raw;
}

// Everything that any page reads of an answer; "@" is text that a stranger chose.
const char* const kEverything = R"({"status": "ok",
    "user": {"name": "@", "path": "user0", "administrator": true}, "token": "@", "message": "@", "printed": "@",
    "page": 2, "pages": 3, "found": 120, "all": 1000, "held": [{"profile": "user0/from0", "id": 1, "kind": "@", "subject": "@", "from": "@",
        "when": "@", "size": "@", "account": "@", "damage": "@",
        "addresses": [{"address": "@", "reply": "@", "tries": 2, "next": "@"}]}],
    "counts": {"failing": 1, "well": 2}, "trouble": "@", "now": "@", "zone": "@",
    "profiles": [{"path": "user0/@", "address": "@", "nickname": "@", "user": "@", "level": "@", "ended": "@",
        "last_good": "@", "next": "@", "held": 3, "remarks": ["@"]}],
    "profile": {"path": "user0/from0", "address": "@", "nickname": "@", "user": "@", "level": "failing",
        "state": {"remembered": {"waiting": [{}]}}, "remarks": ["@"], "ended": "@", "last_run": "@", "last_good": "@", "next": "@", "runs": "@",
        "sends_through": "@", "unreadable": "@", "held": 3, "switched_on": true,
        "keys": [{"key": "address", "value": "@"}, {"key": "sslsmtp", "value": "@"}],
        "addresses": [{"path": "user0/from0/forwardto0", "address": "@", "nickname": "@", "status": 1,
            "textonly": 500, "takes_part_now": true, "keys": [{"key": "address", "value": "@"}],
            "schedule": [{"number": 1, "on": false, "term": "@", "meaning": "@"}], "week": null}]},
    "mails": [{"fetched": "@", "subject": "@", "from": "@", "copies": [{"address": "@", "says": "@", "words": "@"}]}],
    "more": true, "lines": ["@"], "is_on": false, "path": "@", "address": "@", "name": "@",
    "events": [{"time": "@", "kind": "edit", "by": "@", "command": "@", "name": "@",
        "keys": [{"key": "@", "before": "@", "after": "@"}]}, {"kind": "run", "name": "@", "ended": "@"}],
    "users": [{"path": "user0", "name": "@", "on": true, "loaded": true, "profiles": 1}],
    "account": {"path": "user0", "name": "@", "has_code": true},
    "sessions": [{"id": "@", "address": "@", "began": "@", "used": "@"}], "secret": "@", "link": "@", "shared": "@", "readers": [{"name": "@", "through": "@", "last": "@",
        "open": [{"name": "user0/from0", "matter": "@", "since": "@"}],
        "trouble": {"since": "@", "next": "@", "words": "@"}}],
    "keys": [{"key": "endofdata", "group": "@", "meaning": "@", "value": "@", "unit": "@", "words": ["@"]}],
    "mail": {"profile": "user0/from0", "id": 1, "kind": "@", "when": "@", "size": "@", "addresses": [], "subject": "@",
        "copies": [{"address": "@", "says": "@", "words": "@", "ended": "@", "milliseconds": 7}]},
    "is_there": true, "addresses": [{"path": "user0/from0/forwardto0", "address": "@"}],
    "removal": {"title": "@", "expected": "@", "held": "@", "goes": ["@"]},
    "whole": "AP8KDQ==", "header": "@", "subject": "@", "from": "@", "text": "@", "job": "@", "what": "@", "about": "@", "title": "@", "begun": "@",
    "found": {"address": "@", "from": "@", "subject": "@", "text": "@", "size": "@", "limit": 128, "bytes": 100,
        "all_bytes": 200},
    "draft": {"kind": "profile", "verb": "set", "name": "user0/from0", "values": {"nickname": "@"}, "rules": {},
        "secrets": ["poppassword"]}})";

Json AnswerOf(const std::string& json) {
    const std::string quoted = Json(kHostile).dump();
    std::string text;
    for (const char c : json) c == '@' ? text += quoted.substr(1, quoted.size() - 2) : text += c;
    return Json::parse(text);
}

Json Answer(const char* status, bool is_administrator) {
    Json answer = AnswerOf(kEverything);
    answer["status"] = status;
    answer["user"]["administrator"] = is_administrator;
    return answer;
}

Work Answered(const Route& route, const Json& answer) {
    const Site site = TheSite();
    Work work = site.Begin(RequestTo(route));
    if (!work.question.empty()) site.Finish(work, answer);
    return work;
}

bool Asks(const Route& route) { return !TheSite().Begin(RequestTo(route)).question.empty(); }

bool IsChange(const Route& route) { return std::string_view(route.method) == "POST"; }

bool IsFile(const HttpResponse& response) { return ValueOf(response.headers, "Content-Type") == "message/rfc822"; }

TEST(Pages, AHeldMessageIsAFileThatNoBrowserShows) {
    const auto route = std::ranges::find_if(
        Routes(), [](const Route& one) { return std::string_view(one.pattern).ends_with("/message.eml"); });
    const HttpResponse file = Answered(*route, Answer("ok", false)).response;
    EXPECT_EQ(file.body, std::string("\0\xff\n\r", 4));
    EXPECT_TRUE(IsFile(file));
    EXPECT_EQ(ValueOf(file.headers, "Content-Disposition"), "attachment; filename=\"message-1.eml\"");
    EXPECT_EQ(ValueOf(file.headers, "X-Content-Type-Options"), "nosniff");
    for (const char* const text : {"AP8", "AP8KDQ=", "@@@@", "日本=="}) {
        const HttpResponse broken = Answered(*route, Json{{"status", "ok"}, {"whole", text}}).response;
        EXPECT_EQ(broken.status, 502) << text;
    }
    EXPECT_EQ(Answered(*route, Json{{"status", "refused"}, {"message", "too large"}}).response.status, 422);
}

TEST(Pages, EachShowsWhatStrangersWroteAsTextAlone) {
    for (const Route& route : Routes()) {
        for (const bool is_administrator : {false, true}) {
            const Work work = Answered(route, Answer("ok", is_administrator));
            EXPECT_LT(work.response.status, 400) << route.pattern << " " << work.log;
            EXPECT_THAT(work.response.body, Not(HasSubstr("<script>alert"))) << route.pattern;
            EXPECT_THAT(work.response.body, Not(HasSubstr("\"'&"))) << route.pattern;
            if (IsChange(route) || !Asks(route) || IsFile(work.response)) continue;
            EXPECT_THAT(work.response.body, HasSubstr("&lt;script&gt;alert(1)")) << route.pattern;
        }
    }
}

TEST(Pages, EachStandsWhenAnAnswerIsAlmostEmptyOrOfAnotherKind) {
    for (const Route& route : Routes()) {
        for (const char* const json : {R"({"status": "ok"})", R"({"status": "ok", "user": 1, "profiles": {}, "keys": 7,
                "profile": [], "held": "@", "mails": [7, [], null], "events": [{}], "account": null, "lines": [1]})"}) {
            const Work work = Answered(route, AnswerOf(json));
            EXPECT_NE(work.response.status, 500) << route.pattern;
            EXPECT_EQ(work.response.body.empty(), work.response.status == 303) << route.pattern;
        }
    }
}

TEST(Pages, TheDeskIsToldWhatIsForAdministratorsAlone) {
    for (const Route& route : Routes()) {
        if (!Asks(route)) continue;
        const Json question = Json::parse(TheSite().Begin(RequestTo(route)).question.substr(4));
        EXPECT_EQ(IsTrue(question, "administrators"), route.audience == Audience::Administrator) << route.pattern;
    }
}

TEST(Pages, NobodyIsSentToTheLogin) {
    for (const Route& route : Routes()) {
        if (!Asks(route)) continue;
        const Work work = Answered(route, Json{{"status", "login"}});
        EXPECT_EQ(work.response.status, 303) << route.pattern;
        EXPECT_THAT(std::string(ValueOf(work.response.headers, "Location")), StartsWith("/login")) << route.pattern;
    }
}

TEST(Pages, WhatIsNotForTheUserIsRefusedAndShowsNothingOfIt) {
    for (const Route& route : Routes()) {
        if (!Asks(route)) continue;
        for (const auto& [status, code] : {std::pair("forbidden", 403), std::pair("missing", 404)}) {
            const Json nothing{{"status", status}, {"user", {{"name", "taro"}, {"path", "user0"}}}};
            const Work work = Answered(route, nothing);
            EXPECT_EQ(work.response.status, code) << route.pattern;
            EXPECT_THAT(work.response.body, Not(HasSubstr("href=\"/users\""))) << route.pattern;
        }
    }
}

TEST(Pages, ARefusalSaysWhyAndNoSecretComesBack) {
    for (const Route& route : Routes()) {
        if (!Asks(route)) continue;
        const Work work = Answered(route, Answer("refused", true));
        const bool is_job = std::string_view(route.pattern) == "/jobs/{job}";  // one that ended so
        EXPECT_EQ(work.response.status, is_job ? 200 : 422) << route.pattern;
        EXPECT_THAT(work.response.body, HasSubstr("&lt;script&gt;alert(1)")) << route.pattern;
        EXPECT_THAT(work.response.body, Not(HasSubstr("<script>alert"))) << route.pattern;
        EXPECT_THAT(work.response.body, Not(HasSubstr(kSecret))) << route.pattern;
        EXPECT_THAT(work.response.body, HasSubstr("<form method=\"post\"")) << route.pattern;
    }
}

TEST(Pages, ARefusedFormKeepsWhatWasTyped) {
    const std::map<std::string_view, std::string> typed{{"/profiles/{user}/{profile}/settings", "nickname"},
                                                        {"/profiles/{user}/{profile}/settings/check", "nickname"},
                                                        {"/profiles/{user}/{profile}/to/{address}/preview", "address"},
                                                        {"/users/{user}/profiles/check", "address"},
                                                        {"/profiles/{user}/{profile}/addresses", "address"},
                                                        {"/profiles/{user}/{profile}/to/{address}/terms", "terms"},
                                                        {"/profiles/{user}/{profile}/to/{address}/options", "address"},
                                                        {"/users", "loginname"},
                                                        {"/users/{user}/rights", "loginname"},
                                                        {"/users/{user}/profiles", "address"},
                                                        {"/rules/{key}", "value"},
                                                        {"/servers", "smtpserver"},
                                                        {"/alerts", "alert_to"},
                                                        {"/first", "name"},
                                                        {"/login", "name"}};
    std::size_t tried = 0;
    for (const Route& route : Routes()) {
        if (!IsChange(route) || !typed.contains(route.pattern)) continue;
        const std::string expected = Escaped("typed " + typed.at(route.pattern) + " " + kHostile);
        EXPECT_THAT(Answered(route, Answer("refused", true)).response.body, HasSubstr(expected)) << route.pattern;
        ++tried;
    }
    EXPECT_EQ(tried, typed.size());
}

TEST(Pages, AChangeThatTakesLongerLeadsToItsJob) {
    for (const Route& route : Routes()) {
        const auto& asked = Asks(route) ? Json::parse(TheSite().Begin(RequestTo(route)).question.substr(4)) : Json();
        const std::string ask = asked.is_object() ? TextOf(asked, "ask") : "";
        const std::set<std::string> jobs{"change", "week", "held-change", "start", "try", "save-tried", "resend"};
        if (!jobs.contains(ask)) continue;
        Json working = Answer("working", true);
        working["job"] = kToken;
        EXPECT_EQ(ValueOf(Answered(route, working).response.headers, "Location"), "/jobs/" + kToken) << route.pattern;
    }
}

TEST(Pages, SelectedMessagesAreSentOrDroppedOnceThatIsSure) {
    const Match match = FindRoute(Routes(), "POST", {"held", "selected"});
    const auto ask = [&](const std::string& form) {
        RawRequest raw = RequestTo(*match.route);
        raw.body = "token=t&" + form;
        return TheSite().Begin(raw).question;
    };
    const Json sent = Json::parse(ask("verb=send&mail=user0%2Ffrom0%2F1&mail=user1%2Ffrom0%2F2").substr(4));
    EXPECT_EQ(sent["mails"], Json({"user0/from0/1", "user1/from0/2"}));
    EXPECT_EQ(sent["verb"], "send");
    EXPECT_EQ(ask("verb=send"), "");
    EXPECT_EQ(ask("verb=drop&mail=user0%2Ffrom0%2F1"), "");
    EXPECT_EQ(Json::parse(ask("verb=drop&sure=yes&mail=user0%2Ffrom0%2F1").substr(4))["verb"], "drop");
}

TEST(Pages, AFormGoesOnWithWhatWasTried) {
    const Match match = FindRoute(Routes(), "GET", {"profiles", "user0", "from0", "settings"});
    Json answer = Answer("ok", true);
    answer["draft"]["values"] = {{"popserver", "typed.example.org"}};
    RawRequest raw = RequestTo(*match.route);
    raw.target += "?draft=" + kToken;
    Work work = TheSite().Begin(raw);
    EXPECT_EQ(Json::parse(work.question.substr(4))["draft"], kToken);
    TheSite().Finish(work, answer);
    EXPECT_THAT(work.response.body, HasSubstr("name=\"popserver\" type=\"text\" value=\"typed.example.org\""));
    EXPECT_THAT(work.response.body, HasSubstr("<input type=\"hidden\" name=\"draft\" value=\"" + kToken + "\">"));
    EXPECT_THAT(work.response.body, HasSubstr("formaction=\"/profiles/user0/from0/settings/check\""));

    raw = RequestTo(*FindRoute(Routes(), "POST", {"profiles", "user0", "from0", "settings"}).route);
    raw.body = "nickname=x&was-nickname=x&draft=" + kToken;  // nothing but the password that was typed before
    EXPECT_EQ(Json::parse(TheSite().Begin(raw).question.substr(4))["draft"], kToken);
}

TEST(Pages, ATryEndsWithAPhoneAndAWayToSaveIt) {
    const Match match = FindRoute(Routes(), "GET", {"jobs", "x"});
    Json answer = Answer("ok", false);
    answer["job"] = "x";
    const std::string page = Answered(*match.route, answer).response.body;
    EXPECT_THAT(page, HasSubstr("class=\"phone\""));
    EXPECT_THAT(page, HasSubstr("100 bytes of 200: the rest is cut"));
    EXPECT_THAT(page, HasSubstr("action=\"/jobs/x/save\""));
    EXPECT_THAT(page, HasSubstr("href=\"/profiles/user0/from0/settings?draft=x\""));
    answer["draft"]["values"] = answer["draft"]["secrets"] = Json();  // nothing was typed: nothing to save
    EXPECT_THAT(Answered(*match.route, answer).response.body, Not(HasSubstr("action=\"/jobs/x/save\"")));
}

TEST(Pages, AJobLoadsItselfAnewUntilItHasEnded) {
    const Match match = FindRoute(Routes(), "GET", {"jobs", "x"});
    EXPECT_TRUE(Find(Answered(*match.route, Answer("working", true)).response.headers, "Refresh"));
    EXPECT_FALSE(Find(Answered(*match.route, Answer("ok", true)).response.headers, "Refresh"));
    EXPECT_FALSE(Find(Answered(*match.route, Answer("refused", true)).response.headers, "Refresh"));
}

TEST(Pages, AJobShowsTheStepThatGoesOn) {
    const Match match = FindRoute(Routes(), "GET", {"jobs", "x"});
    Json answer{{"status", "working"},
                {"printed", "    connect\n"},
                {"begun", "log in"},
                {"about", "user0/from0"},
                {"title", "a@example.org"}};
    const std::string page = Answered(*match.route, answer).response.body;
    EXPECT_THAT(page, HasSubstr("    connect\n    log in …\n"));
    EXPECT_THAT(page, HasSubstr("href=\"/profiles/user0/from0\">a@example.org</a>"));
}

TEST(Pages, TheHistoryNamesMailboxesAsPeopleDoAndKeepsThePathBesideKeys) {
    const Match match = FindRoute(Routes(), "GET", {"history"});
    Json event{{"name", "user0/from0"}, {"title", "a@example.org"}, {"kind", "edit"}};
    const auto page = [&] { return Answered(*match.route, Json{{"status", "ok"}, {"events", {event}}}).response.body; };
    EXPECT_THAT(page(), HasSubstr("href=\"/profiles/user0/from0\">a@example.org</a>"));
    EXPECT_THAT(page(), HasSubstr(">user0/from0<"));
    event["kind"] = "run";
    EXPECT_THAT(page(), Not(HasSubstr(">user0/from0<")));
}

TEST(Pages, ARuleThatDiffersFromWhatIsAboveCanBeGivenBack) {
    const Match match = FindRoute(Routes(), "GET", {"rules", "header_limit"});
    RawRequest raw = RequestTo(*match.route);
    raw.target = "/rules/header_limit?name=user0";
    const auto page = [&](const char* value) {
        const Site site = TheSite();
        Work work = site.Begin(raw);
        const Json key{{"key", "header_limit"}, {"value", value}};
        site.Finish(work, Json{{"status", "ok"}, {"keys", Json::array({key})}, {"above", {{"header_limit", "77"}}}});
        return work.response.body;
    };
    EXPECT_THAT(page("500"), HasSubstr("name=\"value\" value=\"77\""));
    EXPECT_THAT(page("77"), Not(HasSubstr("As above it")));
}

TEST(Pages, OnlyWhatWasChangedIsWritten) {
    const Match match = FindRoute(Routes(), "POST", {"profiles", "user0", "from0", "settings"});
    RawRequest raw = RequestTo(*match.route);
    raw.target = "/profiles/user0/from0/settings";
    raw.body = "nickname=new&was-nickname=old&timer=10&was-timer=10&deletemail=on&was-deletemail=off&popserver=x";
    const Json question = Json::parse(TheSite().Begin(raw).question.substr(4));
    EXPECT_EQ(question["values"], Json::parse(R"({"nickname": "new", "deletemail": "on"})"));
    EXPECT_FALSE(question.contains("secrets"));
    raw.body = "nickname=old&was-nickname=old&poppassword=";
    EXPECT_EQ(TheSite().Begin(raw).response.status, 303);
}

TEST(Pages, AUserWhoIsNoAdministratorIsOfferedNoServer) {
    const Match match = FindRoute(Routes(), "GET", {"profiles", "user0", "from0", "settings"});
    EXPECT_THAT(Answered(*match.route, Answer("ok", true)).response.body, HasSubstr("name=\"popserver\""));
    const std::string of_user = Answered(*match.route, Answer("ok", false)).response.body;
    EXPECT_THAT(of_user, Not(HasSubstr("name=\"popserver\"")));
    EXPECT_THAT(of_user, HasSubstr("name=\"poppassword\""));
}

TEST(Pages, APortIsANumberWithoutAUnit) {
    const Match match = FindRoute(Routes(), "GET", {"rules"});
    Json answer = Answer("ok", true);
    answer["keys"] = Json::parse(R"([{"key": "smtpport", "value": "25", "unit": "TCP port"},
        {"key": "endofdata", "value": "7", "unit": "seconds"}])");
    const std::string page = Answered(*match.route, answer).response.body;
    EXPECT_THAT(page, HasSubstr(">25</td>"));
    EXPECT_THAT(page, HasSubstr("seconds"));
}

TEST(Pages, NamesBecomePathsAndBack) {
    EXPECT_EQ(ProfilePage("user0/from0"), "/profiles/user0/from0");
    EXPECT_EQ(AddressPage("user0/from0/forwardto1"), "/profiles/user0/from0/to/forwardto1");
    EXPECT_EQ(PageAbout(""), "/");
    EXPECT_EQ(PageAbout("user0"), "/users/user0");
    EXPECT_EQ(PageAbout("user0/from0/forwardto1"), AddressPage("user0/from0/forwardto1"));
    EXPECT_EQ(ProfilePage("a b/<"), "/profiles/a%20b/%3C");
    EXPECT_EQ(NumberIn("12", 1), 12);
    for (const char* const none : {"", "x", "1x", " 1", "99999999999999999999"})
        EXPECT_EQ(NumberIn(none, 1), 1) << none;
}

WeekDays WeekOf(const std::string& form) {
    HttpRequest request;
    request.form = *ParseForm(form);
    return WeekOfForm(request);
}

TEST(Week, IsSaidInFewWords) {
    WeekDays week = WeekOf("");
    EXPECT_EQ(WeekInWords(week), "at no time of the week");
    for (const std::size_t day : {1, 2, 3, 4, 5}) week[day].replace(18, 17, 17, '1');
    EXPECT_EQ(WeekInWords(week), "Mon-Fri 9:00-17:30");
    week[3] = std::string(48, '1');
    week[6].replace(44, 4, 4, '1');
    week[6].replace(0, 1, "1");
    EXPECT_EQ(WeekInWords(week), "Mon-Tue 9:00-17:30; Wed all day; Thu-Fri 9:00-17:30; Sat 0:00-0:30, 22:00-24:00");
    week.fill(week[1]);
    EXPECT_EQ(WeekInWords(week), "every day 9:00-17:30");
    week.fill(std::string(48, '1'));
    EXPECT_EQ(WeekInWords(week), "always");
}

TEST(Week, AFormOfItReadsBackTheSame) {
    WeekDays week = WeekOf("");
    for (std::size_t day = 0; day < week.size(); ++day)
        for (std::size_t slot = 0; slot < 48; ++slot) week[day][slot] = (day * 48 + slot) % 5 == 0 ? '1' : '0';
    const std::string html = WeekGrid(week).Bytes();
    std::string form;
    for (std::size_t at = 0; (at = html.find("<input", at)) != std::string::npos; ++at) {
        const std::string box = html.substr(at, html.find('>', at) - at);
        const std::size_t value = box.find("value=\"") + 7;
        if (box.find("checked") != std::string::npos)
            form += "slot=" + box.substr(value, box.find('"', value) - value) + '&';
    }
    EXPECT_EQ(WeekOf(form), week);
}

TEST(Week, WhatIsNoSlotIsLeftOut) {
    EXPECT_EQ(WeekOf("slot=7-1&slot=1-48&slot=-1-2&slot=1&slot=1-&slot=x-1&slot=1--1&slot=&slot=9999-1"), WeekOf(""));
}

TEST(Week, TheUsualWeeksAreThoseTheirButtonsSay) {
    EXPECT_EQ(WeekInWords(WeekOf("usual=always&slot=1-1")), "always");
    EXPECT_EQ(WeekInWords(WeekOf("usual=office")), "Mon-Fri 9:00-18:00");
    EXPECT_EQ(WeekInWords(WeekOf("usual=workdays")), "Mon-Fri all day");
    EXPECT_EQ(WeekInWords(WeekOf("usual=waking")), "every day 7:00-22:00");
}

TEST(Week, OnlySevenDaysOf48HalfHoursAreOne) {
    const std::string day(48, '0');
    EXPECT_TRUE(WeekIn(Json{day, day, day, day, day, day, day}));
    EXPECT_FALSE(WeekIn(Json{day, day, day, day, day, day}));
    EXPECT_FALSE(WeekIn(Json{day, day, day, day, day, day, "0"}));
    EXPECT_FALSE(WeekIn(Json{day, day, day, day, day, day, 1}));
    EXPECT_FALSE(WeekIn(Json()));
}

}  // namespace
}  // namespace tarvex::console
