// The pages about people: removals, passwords, who is told of trouble, the key of an authenticator.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "console/pages/people/qr_picture.h"
#include "console/pages/routes.h"
#include "console/site.h"

namespace tarvex::console {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

Work Begun(const char* method, const std::string& target, const std::string& form = {}) {
    const Site site({{"localhost"}, 0, false}, Routes());
    RawRequest raw{method, target, {{"host", "localhost"}}, form, ""};
    if (raw.method == "POST") {
        raw.headers.push_back({"content-type", "application/x-www-form-urlencoded"});
        raw.headers.push_back({"sec-fetch-site", "same-origin"});
    }
    return site.Begin(raw);
}

Json QuestionOf(const std::string& target, const std::string& form) {
    return Json::parse(Begun("POST", target, form).question.substr(4));
}

std::string PageOf(const char* method, const std::string& target, const std::string& answer) {
    const Site site({{"localhost"}, 0, false}, Routes());
    Work work = Begun(method, target);
    site.Finish(work, Json::parse(answer));
    return work.response.body;
}

// What was not said there is not agreed to.
TEST(PeoplePages, ARemovalSendsBackWhatItsPageSaid) {
    const std::string answer =
        R"({"status": "ok", "removal": {"title": "t", "expected": "all of it", "held": "1 mail"}})";
    for (const char* const place : {"/users/user0", "/profiles/user0/from0", "/profiles/user0/from0/to/forwardto0"}) {
        const std::string target = std::string(place) + "/remove";
        const std::string page = PageOf("GET", target, answer);
        EXPECT_THAT(page, HasSubstr("name=\"expected\" value=\"all of it\""));
        EXPECT_THAT(page, HasSubstr("name=\"expected_held\" value=\"1 mail\""));
        const Json question = QuestionOf(target, "expected=all+of+it&expected_held=1+mail");
        EXPECT_EQ(question["verb"], "remove");
        EXPECT_EQ(question["expected"], "all of it");
        EXPECT_EQ(question["expected_held"], "1 mail");
        EXPECT_EQ(Begun("POST", target, "expected=").response.status, 400) << place;
    }
}

// Where it was there is nothing any more.
TEST(PeoplePages, TheJobOfARemovalLeadsToWhereItWas) {
    for (const auto& [what, about, link] :
         {std::tuple("user remove", "user0", "href=\"/\">Overview"),
          std::tuple("profile remove", "user0/from0", "href=\"/users/user0\""),
          std::tuple("forward remove", "user0/from0/forwardto0", "href=\"/profiles/user0/from0\""),
          std::tuple("schedule remove", "user0/from0/forwardto0", "href=\"/profiles/user0/from0/to/forwardto0\"")}) {
        const Json answer{{"status", "ok"}, {"what", what}, {"about", about}};
        EXPECT_THAT(PageOf("GET", "/jobs/x", answer.dump()), HasSubstr(link)) << what;
    }
}

TEST(PeoplePages, APasswordIsRemovedWhereTheBoxForItIsMarkedAndNoOtherStands) {
    const std::string settings = "/profiles/user0/from0/settings";
    EXPECT_EQ(QuestionOf(settings, "poppassword=&clear-poppassword=on")["secrets"], (Json{{"poppassword", ""}}));
    EXPECT_EQ(QuestionOf(settings, "poppassword=new&clear-poppassword=on")["secrets"], (Json{{"poppassword", "new"}}));
    const auto shown = [&settings](const std::string& key) {
        const std::string before = R"({"status": "ok", "profile": {"keys": [{"key": "poppassword", "secret": true,)";
        return PageOf("GET", settings, before + key + "}]}}");
    };
    EXPECT_THAT(shown(R"x("value": "(set)", "json": "(set)")x"), HasSubstr("name=\"clear-poppassword\""));
    EXPECT_THAT(shown(R"x("value": "(none)", "json": null)x"), Not(HasSubstr("clear-")));
    EXPECT_THAT(shown(R"x("value": "(set)", "json": "(set)")x"), Not(HasSubstr("clear-smtppassword")));
}

// The port of the server before would hold for the new one only where it is written too.
TEST(PeoplePages, AnotherServerTakesItsWholeAccountAlong) {
    const std::string same = "&alert_port=25&was-alert_port=25&alert_tls=plain&was-alert_tls=plain&alert_password=";
    EXPECT_EQ(QuestionOf("/alerts", "alert_server=new&was-alert_server=old" + same)["values"],
              Json::parse(R"({"alert_server": "new", "alert_port": "25", "alert_tls": "plain", "alert_user": ""})"));
    EXPECT_EQ(QuestionOf("/alerts", "alert_server=old&was-alert_server=old&alert_port=26&was-alert_port=25")["values"],
              Json::parse(R"({"alert_port": "26"})"));
}

TEST(PeoplePages, OnlyAdministratorsAreOfferedToChangeWhoIsTold) {
    const std::string answer =
        R"({"status": "ok", "readers": [{"name": "ops"}], "user": {"name": "x", "administrator": )";
    const std::string page = PageOf("GET", "/alerts", answer + "true}}");
    EXPECT_THAT(page, HasSubstr("name=\"alert_to\""));
    EXPECT_THAT(page, HasSubstr("action=\"/alerts/test\""));
    const std::string of_user = PageOf("GET", "/alerts", answer + "false}}");
    EXPECT_THAT(of_user, Not(HasSubstr("name=\"alert_to\"")));
    EXPECT_THAT(of_user, Not(HasSubstr("/alerts/test")));
}

TEST(PeoplePages, TheKeyOfAnAuthenticatorIsAPictureInThePageToo) {
    const std::string link = "otpauth://totp/Tarvex:taro%40localhost?secret=ABCD&amp;issuer=Tarvex";
    const std::string answer = R"({"status": "ok", "secret": "ABCD", "link": ")" + link + "\"}";
    const std::string page = PageOf("POST", "/account/code", answer);
    EXPECT_THAT(page, HasSubstr("<path d=\"M4 4h7v1h-7z"));  // the edge of a finder in the corner
    EXPECT_THAT(page, HasSubstr("ABCD</code>"));
    EXPECT_THAT(page, Not(HasSubstr("style=")));
    EXPECT_TRUE(QrPicture(std::string(10'000, 'x'), "too long").IsEmpty());
}

}  // namespace
}  // namespace tarvex::console
