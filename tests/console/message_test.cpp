// Requests taken apart, and the heads of answers.

#include "console/http/message.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "console/http/router.h"

namespace tarvex::console {
namespace {

using ::testing::ElementsAre;
using ::testing::Optional;

RawRequest Post(const std::string& body, const std::string& type = "application/x-www-form-urlencoded") {
    return {"POST", "/x", {{"host", "h"}, {"content-type", type}}, body, ""};
}

int StatusOf(const RawRequest& raw) {
    HttpRequest request;
    const auto refusal = Understand(raw, request);
    return refusal ? refusal->status : 200;
}

TEST(Message, ARequestIsTakenApart) {
    HttpRequest request;
    RawRequest raw = Post("a=b");
    raw.target = "/users/%E6%97%A5/x?page=2&q=%26";
    raw.headers.push_back({"cookie", "c=d"});
    ASSERT_FALSE(Understand(raw, request));
    EXPECT_THAT(request.segments, ElementsAre("users", "日", "x"));
    EXPECT_EQ(request.path, "/users/%E6%97%A5/x");
    EXPECT_EQ(request.Query("q"), "&");
    EXPECT_EQ(request.Form("a"), "b");
    EXPECT_EQ(request.Cookie("c"), "d");
    raw.method = "HEAD";
    raw.body.clear();
    ASSERT_FALSE(Understand(raw, request));
    EXPECT_EQ(request.method, "GET");
}

TEST(Message, WhatCannotBeUnderstoodIsRefused) {
    for (const char* const target : {"", "x", "*", "http://h/x", "/a b", "/a\x7F", "/\xE6"})
        EXPECT_EQ(StatusOf({"GET", target, {}, "", ""}), 400) << target;
    for (const char* const target :
         {"//", "/a//b", "/a/", "/.", "/a/..", "/a/%2e%2E/b", "/a%2Fb", "/%00", "/%0A", "/%ff", "/%"})
        EXPECT_EQ(StatusOf({"GET", target, {}, "", ""}), 404) << target;
    EXPECT_EQ(StatusOf({"GET", "/?a=%", {}, "", ""}), 400);
    EXPECT_EQ(StatusOf({"GET", "/", {}, "a=b", ""}), 400);
    EXPECT_EQ(StatusOf(Post("a=%")), 400);
    EXPECT_EQ(StatusOf(Post("a=b", "text/plain")), 415);
    EXPECT_EQ(StatusOf(Post("a=b", "application/x-www-form-urlencodedx")), 415);
    EXPECT_EQ(StatusOf(Post("a=b", "Application/X-WWW-Form-URLencoded; charset=utf-8")), 200);
    EXPECT_EQ(StatusOf(Post("", "")), 200);
}

TEST(Message, RedirectionsStayInTheConsole) {
    EXPECT_EQ(ValueOf(SeeOther("/users?x=1").headers, "Location"), "/users?x=1");
    for (const char* const foreign :
         {"", "//evil.example", "https://evil.example", "/\\evil.example", "/a\r\nX: y", "x"})
        EXPECT_EQ(ValueOf(SeeOther(foreign).headers, "Location"), "/") << foreign;
}

TEST(Message, AHeadHasNoLinesThatWereNotMeant) {
    HttpResponse response;
    response.status = 404;
    response.headers = {{"X", "a\r\nSet-Cookie: b\x01"}};
    response.body = "12345";
    EXPECT_EQ(
        HeadOf(response, false, "now"),
        "HTTP/1.1 404 Not Found\r\nDate: now\r\nX: aSet-Cookie: b\r\nContent-Length: 5\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(HeadOf({304, {}, ""}, true, "now"), "HTTP/1.1 304 Not Modified\r\nDate: now\r\n\r\n");
}

TEST(Message, DatesAreThoseOfHttp) {
    EXPECT_EQ(HttpDate(784111777), "Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(HttpDate(1709164800), "Thu, 29 Feb 2024 00:00:00 GMT");
}

Asked AskNothing(const HttpRequest&) { return HttpResponse{}; }

TEST(Router, FindsThePageThePlacesAndWhatIsAllowed) {
    const Route routes[] = {
        {"GET", "/", Audience::User, AskNothing},
        {"GET", "/users/new", Audience::User, AskNothing},
        {"GET", "/users/{user}", Audience::User, AskNothing},
        {"POST", "/users/{user}", Audience::User, AskNothing},
        {"POST", "/users/{user}/profiles/{profile}/run", Audience::User, AskNothing},
    };
    const auto found = [&](const char* method, const char* path) {
        return FindRoute(routes, method, *SegmentsOf(path));
    };
    EXPECT_EQ(found("GET", "/").route, &routes[0]);
    EXPECT_EQ(found("GET", "/users/new").route, &routes[1]);
    EXPECT_EQ(found("GET", "/users/news").route, &routes[2]);
    EXPECT_EQ(found("POST", "/users/new").route, &routes[3]);
    const Match run = found("POST", "/users/%7Bx%7D/profiles/y/run");
    EXPECT_EQ(run.route, &routes[4]);
    EXPECT_THAT(run.places, ElementsAre(Field{"user", "{x}"}, Field{"profile", "y"}));
    EXPECT_EQ(found("PUT", "/users/new").allowed, "GET, HEAD, POST");
    EXPECT_EQ(found("GET", "/users/x/profiles/y/run").allowed, "POST");
    for (const char* const path : {"/users", "/users/x/y", "/user", "/users/x/profiles/y/run/z"}) {
        EXPECT_EQ(found("GET", path).route, nullptr) << path;
        EXPECT_EQ(found("GET", path).allowed, "") << path;
    }
}

}  // namespace
}  // namespace tarvex::console
