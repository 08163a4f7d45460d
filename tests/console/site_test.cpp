// What is done with requests and with the desk's answers, without sockets.

#include "console/site.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "console/http/cookies.h"
#include "console/pages/frame.h"
#include "console/pages/routes.h"
#include "console/pages/static_files.h"

namespace tarvex::console {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

const std::string kToken(64, 'a');

Site TheSite() { return {{{"localhost"}, 0, false}, Routes()}; }

RawRequest Get(const std::string& target) {
    return {"GET", target, {{"host", "localhost"}, {"cookie", "__Host-session=" + kToken}}, "", "192.0.2.1"};
}

RawRequest Post(const std::string& target, const std::string& form) {
    RawRequest raw = Get(target);
    raw.method = "POST";
    raw.body = form;
    raw.headers.push_back({"content-type", "application/x-www-form-urlencoded"});
    raw.headers.push_back({"sec-fetch-site", "same-origin"});
    return raw;
}

// What the desk is asked: a message without its length.
Json Question(const Work& work) { return work.question.empty() ? Json() : Json::parse(work.question.substr(4)); }

Work Answered(const RawRequest& raw, const DeskOutcome& outcome) {
    const Site site = TheSite();
    Work work = site.Begin(raw);
    EXPECT_FALSE(work.question.empty());
    site.Finish(work, outcome);
    return work;
}

const Json kSomebody{
    {"status", "ok"}, {"user", {{"name", "tana<ka"}, {"path", "user0"}, {"administrator", false}}}, {"token", "t\"1"}};

TEST(Site, AsksTheDeskWithWhatTheConsoleKnows) {
    RawRequest raw = Post("/login", "name=a&password=b&token=t");
    raw.headers.push_back({"accept-language", "ja"});
    EXPECT_EQ(Question(TheSite().Begin(raw)), Json::parse(R"({"ask": "login", "name": "a", "password": "b", "code": "",
        "session": ")" + kToken + R"(", "token": "t", "address": "192.0.2.1", "language": "ja"})"));
}

TEST(Site, AsksNothingAboutACookieThatCannotBeASession) {
    for (const std::string& session :
         {std::string("x"), std::string(63, 'a'), std::string(64, 'A'), std::string(65, 'a')}) {
        RawRequest raw = Get("/");
        raw.headers[1].value = "__Host-session=" + session;
        EXPECT_EQ(Question(TheSite().Begin(raw))["session"], "");
    }
}

TEST(Site, EveryAnswerOfTheDeskBecomesAPage) {
    struct Case {
        DeskOutcome outcome;
        int status;
        const char* text;
    };
    const auto with = [](const char* status) { return Json{{"status", status}, {"message", "<because>"}}; };
    const std::vector<Case> cases{
        {kSomebody, 200, "tana&lt;ka"},
        {with("forbidden"), 403, "&lt;because&gt;"},
        {with("missing"), 404, "&lt;because&gt;"},
        {with("refused"), 422, "&lt;because&gt;"},
        {with("busy"), 503, "&lt;because&gt;"},
        {with("bad"), 400, "&lt;because&gt;"},
        {with("nonsense"), 502, "wrong answer"},
        {DeskTrouble::NotThere, 503, "not running"},
        {DeskTrouble::Silent, 504, "in time"},
        {DeskTrouble::Wrong, 502, "wrong answer"},
    };
    for (const Case& each : cases) {
        const Work work = Answered(Get("/"), each.outcome);
        EXPECT_EQ(work.response.status, each.status);
        EXPECT_THAT(work.response.body, HasSubstr(each.text));
        EXPECT_TRUE(Find(work.response.headers, "Content-Security-Policy"));
    }
}

TEST(Site, WhoIsNotLoggedInComesBackToThePageAfterwards) {
    const Json login{{"status", "login"}};
    EXPECT_EQ(ValueOf(Answered(Get("/?a=b"), login).response.headers, "Location"), "/login?next=%2F%3Fa%3Db");
    EXPECT_EQ(ValueOf(Answered(Post("/logout", ""), login).response.headers, "Location"), "/login?lost=1");
}

TEST(Site, ALoginKeepsTheSessionAndARefusedOneTheName) {
    Json answer = kSomebody;
    answer["session"] = kToken;
    const Work in = Answered(Post("/login", "name=a&next=%2Fx"), answer);
    EXPECT_EQ(ValueOf(in.response.headers, "Location"), "/x");
    EXPECT_THAT(ValueOf(in.response.headers, "Set-Cookie"), StartsWith("__Host-session=" + kToken));
    const Work out = Answered(Post("/login", "name=%22a&password=secret"),
                              Json{{"status", "refused"}, {"message", "No."}, {"code", true}});
    EXPECT_EQ(out.response.status, 422);
    EXPECT_THAT(out.response.body, HasSubstr("value=\"&quot;a\""));
    EXPECT_THAT(out.response.body, HasSubstr("name=\"code\""));
    EXPECT_THAT(out.response.body, Not(HasSubstr("secret")));
    EXPECT_THAT(out.log, Not(HasSubstr("secret")));
}

TEST(Site, ALogoutForgetsTheSession) {
    const Work work = Answered(Post("/logout", ""), Json{{"status", "ok"}});
    EXPECT_EQ(work.response.status, 303);
    EXPECT_THAT(AllOf(work.response.headers, "Set-Cookie"), ::testing::Contains(StartsWith("__Host-session=; ")));
}

TEST(Site, ANoticeShowsOnceOnTheNextPage) {
    const std::string cut = std::string(998, 'a') + "日本";
    const std::string header(ValueOf(SeeOtherWithNotice("/", cut).headers, "Set-Cookie"));
    RawRequest raw = Get("/login");
    raw.headers.push_back({"cookie", header.substr(0, header.find(';'))});
    const Work work = TheSite().Begin(raw);
    EXPECT_THAT(work.response.body, HasSubstr(">" + std::string(998, 'a') + "</p>"));
    EXPECT_EQ(ValueOf(work.response.headers, "Set-Cookie"), ForgetCookie(kNoticeCookie).value);
}

TEST(Site, AChangeFromElsewhereAsksNothing) {
    for (const Route& route : Routes()) {
        if (std::string_view(route.method) != "POST") continue;
        RawRequest raw = Post(route.pattern, "");
        raw.headers.back().value = "cross-site";
        const Work work = TheSite().Begin(raw);
        EXPECT_EQ(work.response.status, 403) << route.pattern;
        EXPECT_TRUE(work.question.empty()) << route.pattern;
    }
}

TEST(Site, AnswersOnlyToItsNames) {
    RawRequest raw = Get("/static/x");
    raw.headers[0].value = "rebound.example";
    EXPECT_EQ(TheSite().Begin(raw).response.status, 421);
}

TEST(Site, SaysWhichMethodsAnAddressHas) {
    RawRequest raw = Get("/login");
    raw.method = "DELETE";
    const Work work = TheSite().Begin(raw);
    EXPECT_EQ(work.response.status, 405);
    EXPECT_EQ(ValueOf(work.response.headers, "Allow"), "GET, HEAD, POST");
}

TEST(Site, ATextThatGrowsBeyondTheDesksLimitIsRefused) {
    std::string form = "name=";
    for (int i = 0; i < 300'000; ++i) form += "%01";
    EXPECT_EQ(TheSite().Begin(Post("/login", form)).response.status, 413);
}

TEST(Site, TheJournalHoldsChangesAndErrorsButNoSecrets) {
    EXPECT_EQ(Answered(Get("/?secret=1"), kSomebody).log, "");
    EXPECT_EQ(Answered(Post("/logout?secret=1", "token=secret"), kSomebody).log,
              "POST /logout by tana<ka from 192.0.2.1: 303");
    EXPECT_EQ(Answered(Get("/?secret=1"), DeskTrouble::NotThere).log, "GET / from 192.0.2.1: 503");
    EXPECT_EQ(TheSite().Begin(Get("/none")).log, "");
}

TEST(Site, FilesAreKeptForGoodUnderTheirDigest) {
    for (const StaticFile& file : StaticFiles()) {
        RawRequest raw = Get(StaticPath(file.name));
        const HttpResponse response = TheSite().Begin(raw).response;
        EXPECT_EQ(response.status, 200) << file.name;
        EXPECT_EQ(response.body, file.bytes);
        EXPECT_EQ(ValueOf(response.headers, "Content-Type"), file.type);
        EXPECT_THAT(std::string(ValueOf(response.headers, "Cache-Control")), HasSubstr("immutable"));
        raw.headers.push_back({"if-none-match", std::string(ValueOf(response.headers, "ETag"))});
        EXPECT_EQ(TheSite().Begin(raw).response.status, 304);
    }
    EXPECT_EQ(StaticFiles().size(), 3U);
    EXPECT_EQ(TheSite().Begin(Get("/static/style.css")).response.status, 404);
}

TEST(Site, EveryWayInTheHeadIsAPage) {
    for (const NavigationEntry& entry : Navigation())
        EXPECT_TRUE(FindRoute(Routes(), "GET", *SegmentsOf(entry.path)).route) << entry.path;
}

TEST(Wire, OnlyAnAnswerIsTakenForOne) {
    EXPECT_TRUE(ReadAnswer(R"({"status": "ok", "x": [[{}]]})"));
    for (const std::string& bytes :
         {std::string(), std::string("x"), std::string("[]"), std::string("{}"), std::string(R"({"status": 1})"),
          std::string("{\"status\": \"\xFF\"}"), std::string(R"({"status": "ok"} x)"),
          "{\"status\": \"ok\", \"x\": " + std::string(1 << 20, '[')})
        EXPECT_FALSE(ReadAnswer(bytes)) << bytes.substr(0, 40);
}

TEST(Wire, LengthsAreBounded) {
    EXPECT_EQ(AnswerLength({0, 0, 1, 2}), 258U);
    EXPECT_EQ(AnswerLength({1, 0, 0, 0}), kMostAnswerBytes);
    EXPECT_FALSE(AnswerLength({1, 0, 0, 1}));
    EXPECT_FALSE(AnswerLength({255, 255, 255, 255}));
    EXPECT_FALSE(AnswerLength({0, 0, 0, 0}));
    EXPECT_EQ(DeskMessage(Json("ab")), std::string("\0\0\0\4\"ab\"", 8));
    EXPECT_FALSE(DeskMessage(Json(std::string(kMostQuestionBytes, 'a'))));
}

}  // namespace
}  // namespace tarvex::console
