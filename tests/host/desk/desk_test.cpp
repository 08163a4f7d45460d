// The desk in the service, asked by its socket as the console asks it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/desk/login/one_time_code.h"
#include "host/held/memory_edit.h"
#include "host/saving/console_files.h"
#include "host/settings/login_password.h"
#include "host/system/command_error.h"
#include "host/terminal/json.h"
#include "host/tree/tree_root.h"
#include "tests/host/desk/desk_fixture.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using host::Json;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

TEST_F(DeskTest, WhoLogsInSeesWhatIsHisOwnAndAnAdministratorAll) {
    const Json hanako = LogIn("hanako");
    EXPECT_EQ(hanako["status"], "ok");
    EXPECT_EQ(hanako["user"], (Json{{"name", "hanako"}, {"path", "user1"}, {"administrator", false}}));
    Json overview = AskAs(hanako, "overview");
    ASSERT_THAT(overview["profiles"], SizeIs(1));
    EXPECT_EQ(overview["profiles"][0]["path"], "user1/from0");
    EXPECT_EQ(overview["all"], 1);
    overview = AskAs(LogIn("taro"), "overview", {{"search", "HANAKO"}});
    EXPECT_EQ(overview["all"], 2);
    EXPECT_EQ(overview["found"], 1);
    EXPECT_EQ(overview["profiles"][0]["user"], "hanako");
}

TEST_F(DeskTest, NobodyGetsAnythingWithoutASession) {
    for (const char* const ask :
         {"logout",  "account",     "set-password", "end-session", "begin-code", "set-code",  "overview",
          "state",   "profile",     "log",          "mails",       "held",       "held-mail", "history",
          "removal", "new-profile", "alerts",       "test-alert",  "users",      "rules",     "change",
          "week",    "held-change", "start",        "job",         "try",        "save-tried"}) {
        EXPECT_EQ(AskAs({}, ask)["status"], "login") << ask;
        EXPECT_EQ(AskAs({{"session", std::string(64, 'a')}}, ask)["status"], "login") << ask;
    }
    EXPECT_EQ(AskAs({}, "nothing")["status"], "bad");
}

TEST_F(DeskTest, WhatIsAnothersIsNotThere) {
    const Json hanako = LogIn("hanako");
    for (const char* const path : {"user0/from0", "user9/from0", "", "user1", "../user0/from0", "taro@example.org"}) {
        for (const char* const ask : {"profile", "log"})
            EXPECT_EQ(AskAs(hanako, ask, {{"profile", path}})["status"], "missing") << ask << ' ' << path;
        for (const char* const what : {"run", "check", "plan"})
            EXPECT_EQ(AskAs(hanako, "start", {{"profile", path}, {"what", what}})["status"], "missing") << path;
        EXPECT_EQ(AskAs(hanako, "held-change", {{"verb", "drop"}, {"mails", {path + std::string("/1")}}})["status"],
                  "missing");
        EXPECT_EQ(AskAs(hanako, "state", {{"profiles", {path}}})["status"], "missing");
    }
    const Json change = {
        {"kind", "forward"}, {"verb", "set"}, {"name", "user0/from0/forwardto0"}, {"values", {{"status", "off"}}}};
    EXPECT_EQ(AskAs(hanako, "change", change)["status"], "missing");
    EXPECT_EQ(AskAs(hanako, "account", {{"account", "user0"}})["status"], "missing");
    EXPECT_EQ(AskAs(hanako, "set-password", {{"account", "user0"}, {"password", "long enough"}})["status"], "missing");
    EXPECT_EQ(AskAs(hanako, "history", {{"name", "user0"}})["status"], "missing");
    for (const char* const ask : {"users", "rules"}) EXPECT_EQ(AskAs(hanako, ask)["status"], "forbidden");
    EXPECT_THAT(AskAs(hanako, "history")["events"].dump(), Not(HasSubstr("taro")));
    EXPECT_THAT(AskAs(LogIn("taro"), "history")["events"].dump(), AllOf(HasSubstr("user0"), HasSubstr("user1")));
}

TEST_F(DeskTest, AChangeWantsTheTokenOfTheForm) {
    const Json hanako = LogIn("hanako");
    const Json change = {
        {"kind", "profile"}, {"verb", "set"}, {"name", "user1/from0"}, {"values", {{"nickname", "work"}}}};
    for (const char* const token : {"", "x", "0000000000000000000000000000000000000000000000000000000000000000"}) {
        Json with = change;
        with["token"] = token;
        EXPECT_EQ(AskAs(hanako, "change", with)["status"], "forbidden");
    }
    Json with = change;
    with["token"] = LogIn("taro")["token"];
    EXPECT_EQ(AskAs(hanako, "change", with)["status"], "forbidden");
    EXPECT_EQ(AskAs(hanako, "change", change)["status"], "ok");
    EXPECT_EQ(AskAs(hanako, "profile", {{"profile", "user1/from0"}})["profile"]["nickname"], "work");
}

TEST_F(DeskTest, AChangeIsTheServicesOwnEditAndStandsInTheHistory) {
    const Json hanako = LogIn("hanako");
    const Json added = AskAs(
        hanako, "change",
        {{"kind", "forward"}, {"verb", "add"}, {"name", "user1/from0"}, {"values", {{"address", "ko@example.net"}}}});
    EXPECT_EQ(added["status"], "ok") << added;
    EXPECT_THAT(added["printed"].get<std::string>(), HasSubstr("user1/from0/forwardto1"));
    const Json refused =
        AskAs(hanako, "change",
              {{"kind", "forward"}, {"verb", "add"}, {"name", "user1/from0"}, {"values", {{"address", "no address"}}}});
    EXPECT_EQ(refused["status"], "refused");
    EXPECT_NE(refused["message"], "");
    EXPECT_EQ(AskAs(hanako, "change",
                    {{"kind", "profile"},
                     {"verb", "set"},
                     {"name", "user1/from0"},
                     {"values", {{"popserver", "10.0.0.1"}}}})["status"],
              "forbidden");
    EXPECT_THAT(host_.Tell({"history", "--edits"}), HasSubstr("hanako (console) (as "));
    EXPECT_EQ(added["title"], "hanako@example.org");
    std::map<std::string, std::string> titles;
    const Json history = AskAs(LogIn("taro"), "history");
    for (const Json& event : history["events"]) titles[event["name"]] = event["title"];
    EXPECT_EQ(titles["user1"], "hanako");
    EXPECT_EQ(titles["user1/from0"], "hanako@example.org");
    EXPECT_EQ(titles["user1/from0/forwardto0"], "phone@example.net");
    EXPECT_THAT(host_.Tell({"forward", "list", "hanako@example.org"}), HasSubstr("ko@example.net"));
}

TEST_F(DeskTest, ARuleSetAsAboveFollowsWhatIsAboveFromThenOn) {
    const Json taro = LogIn("taro");
    const auto set = [&](const char* name, const Json& value) {
        const Json question = {
            {"kind", "rules"}, {"verb", "set"}, {"name", name}, {"values", {{"header_limit", value}}}};
        EXPECT_EQ(Finish(taro, AskAs(taro, "change", question))["status"], "ok");
    };
    const auto value = [&] {
        const Json rules = AskAs(taro, "rules", {{"name", "user0/from0"}});
        for (const Json& key : rules["keys"])
            if (key["key"] == "header_limit") return key["value"].get<std::string>();
        return std::string();
    };
    set("user0", "400");
    set("user0/from0", "500");
    EXPECT_EQ(value(), "500");
    set("user0/from0", AskAs(taro, "rules", {{"name", "user0/from0"}})["above"]["header_limit"]);
    EXPECT_EQ(value(), "400");
    set("user0", "700");
    EXPECT_EQ(value(), "700");
    EXPECT_FALSE(AskAs(taro, "rules").contains("above"));
}

TEST_F(DeskTest, TheWeekOfAnAddressIsSetAsAGrid) {
    const Json hanako = LogIn("hanako");
    const std::string none(48, '0');
    const std::string office = std::string(18, '0') + std::string(18, '1') + std::string(12, '0');
    const std::string name = "user1/from0/forwardto0";
    const Json set = AskAs(hanako, "week", {{"name", name}, {"days", {none, office, office, none, none, none, none}}});
    EXPECT_EQ(set["status"], "ok") << set;
    const Json address = AskAs(hanako, "profile", {{"profile", "user1/from0"}})["profile"]["addresses"][0];
    EXPECT_EQ(address["week"]["days"][1], office);
    EXPECT_EQ(address["week"]["days"][0], none);
    EXPECT_EQ(address["schedule"][0]["term"], "mon 9:00-18:00");
    EXPECT_EQ(AskAs(hanako, "week", {{"name", name}, {"days", Json(7, none)}})["status"], "refused");
    EXPECT_EQ(AskAs(hanako, "week", {{"name", name}, {"days", Json(6, none)}})["status"], "bad");
    EXPECT_EQ(AskAs(hanako, "week", {{"name", name}, {"days", Json(7, std::string(48, '1'))}})["status"], "ok");
    EXPECT_THAT(host_.Tell({"schedule", "list", name}), HasSubstr("always takes part"));
}

// With a date the days without a term would say that it takes part then alone.
TEST_F(DeskTest, AWholeWeekBesideADateIsWritten) {
    const std::string name = "user1/from0/forwardto0";
    host_.Tell({"schedule", "add", name, "2026-12-24 18:00 .. 2026-12-26 9:00"});
    EXPECT_EQ(AskAs(LogIn("hanako"), "week", {{"name", name}, {"days", Json(7, std::string(48, '1'))}})["status"],
              "ok");
    EXPECT_THAT(host_.Tell({"schedule", "list", name}), AllOf(HasSubstr("daily 0:00-24:00"), HasSubstr("2026-12-24")));
}

TEST_F(DeskTest, AWrongPasswordOpensNothingAndFiveCloseTheDoor) {
    for (int i = 0; i < 5; ++i) {
        const Json answer = LogIn(i < 3 ? "hanako" : "nobody", {}, "wrong");
        EXPECT_EQ(answer["status"], "refused");
        EXPECT_EQ(answer["message"], "The name or the password is wrong.");  // whether the name is there or not
        EXPECT_FALSE(answer.contains("session"));
    }
    EXPECT_THAT(LogIn("hanako")["message"].get<std::string>(), HasSubstr("too many"));
    EXPECT_EQ(LogIn("hanako", {{"address", "192.0.2.8"}})["status"], "ok");
    EXPECT_TRUE(service_->WaitForOutput("failed login at the console: \"hanako\" from 192.0.2.7", kDeskPatience));
}

TEST_F(DeskTest, AUserWhoIsSwitchedOffOrHasANewPasswordIsOut) {
    const Json hanako = LogIn("hanako");
    const Json taro = LogIn("taro");
    host_.Tell({"user", "set", "hanako", "--status", "off"});
    EXPECT_EQ(AskAs(hanako, "overview")["status"], "login");
    EXPECT_EQ(LogIn("hanako")["status"], "refused");
    host_.Tell({"user", "set", "hanako", "--status", "on"});
    const Json again = LogIn("hanako");
    EXPECT_EQ(AskAs(taro, "set-password", {{"account", "user1"}, {"password", "another secret"}})["status"], "ok");
    EXPECT_EQ(AskAs(again, "overview")["status"], "login");
    EXPECT_EQ(LogIn("hanako", {}, "another secret")["status"], "ok");
    EXPECT_EQ(AskAs(taro, "overview")["status"], "ok");
}

TEST_F(DeskTest, OnesOwnPasswordWantsTheOldOne) {
    const Json hanako = LogIn("hanako");
    EXPECT_EQ(AskAs(hanako, "set-password", {{"old", "wrong"}, {"password", "a new secret"}})["status"], "refused");
    EXPECT_EQ(AskAs(hanako, "set-password", {{"old", "hanako's secret"}, {"password", "short"}})["status"], "refused");
    const Json changed = AskAs(hanako, "set-password", {{"old", "hanako's secret"}, {"password", "a new secret"}});
    EXPECT_EQ(changed["status"], "ok");
    EXPECT_EQ(AskAs(hanako, "overview")["status"], "login");
    EXPECT_EQ(AskAs(changed, "overview")["status"], "ok");  // with a new cookie
}

TEST_F(DeskTest, PasswordsAreKeptAsHashesAndOneInClearBecomesOne) {
    const std::string file = host_.Root() + "/user1/userset.def";
    EXPECT_THAT(host_.Tell({"user", "show", "hanako"}), Not(HasSubstr("secret")));
    const std::string kept = ReadFile(file);
    CUserSetting setting;
    ASSERT_EQ(setting.Load(host_.Root() + "/user1"), 1);
    EXPECT_THAT(setting.password, StartsWith("$scrypt$"));
    service_->Interrupt();
    service_->Wait();
    setting.password = "hanako's secret";  // as an earlier version kept it
    setting.Save(host_.Root() + "/user1");
    Serve();
    EXPECT_EQ(LogIn("hanako", {}, "hanako's secre")["status"], "refused");
    EXPECT_EQ(LogIn("hanako")["status"], "ok");
    ASSERT_EQ(setting.Load(host_.Root() + "/user1"), 1);
    EXPECT_THAT(setting.password, StartsWith("$scrypt$"));
    EXPECT_EQ(LogIn("hanako")["status"], "ok");
}

TEST_F(DeskTest, SessionsAreSeenAndEnded) {
    const Json hanako = LogIn("hanako");
    const Json phone = LogIn("hanako", {{"address", "192.0.2.9"}});
    const Json account = AskAs(hanako, "account");
    ASSERT_THAT(account["sessions"], SizeIs(2));
    EXPECT_EQ(AskAs(hanako, "end-session", {{"id", "others"}})["status"], "ok");
    EXPECT_EQ(AskAs(phone, "overview")["status"], "login");
    EXPECT_EQ(AskAs(hanako, "logout")["status"], "ok");
    EXPECT_EQ(AskAs(hanako, "overview")["status"], "login");
}

TEST_F(DeskTest, ACodeIsWantedOnceAnAuthenticatorIsThere) {
    const Json taro = LogIn("taro");
    const std::string secret = AskAs(taro, "begin-code", {{"place", "example.org"}})["secret"].get<std::string>();
    EXPECT_EQ(AskAs(taro, "set-code", {{"secret", secret}, {"code", "000000"}})["status"], "refused");
    const std::string right = host::CodeOf(secret, std::time(nullptr) / 30);
    EXPECT_EQ(AskAs(taro, "set-code", {{"secret", secret}, {"code", right}})["status"], "ok");
    for (int i = 0; i < 6; ++i) EXPECT_EQ(LogIn("taro")["code"], true);  // which is no failure
    EXPECT_EQ(LogIn("taro", {{"code", "12345"}, {"address", "192.0.2.8"}})["status"], "refused");
    EXPECT_EQ(LogIn("taro", {{"code", right}, {"address", "192.0.2.8"}})["status"], "ok");
    EXPECT_EQ(LogIn("taro", {{"code", right}, {"address", "192.0.2.8"}})["status"], "refused");  // used before
    EXPECT_EQ(AskAs(taro, "account")["account"]["has_code"], true);
}

TEST_F(DeskTest, TheFirstLinkMakesAnAdministratorOnce) {
    const std::string printed = host_.Tell({"console", "init", "--url", "https://mail.example.org/"});
    const std::size_t at = printed.find("https://mail.example.org/first?code=");
    ASSERT_NE(at, std::string::npos) << printed;
    const std::string code = printed.substr(printed.find('=', at) + 1, 64);
    Json first = {{"ask", "first-login"}, {"name", "jiro"}, {"password", "jiro's secret"}, {"address", kDeskClient}};
    first["code"] = std::string(64, '0');
    EXPECT_EQ(Ask(first)["status"], "refused");
    first["code"] = code;
    first["name"] = "two\nlines";
    EXPECT_EQ(Ask(first)["status"], "refused");  // by the edit: the link works still
    first["name"] = "jiro";
    const Json jiro = Ask(first);
    EXPECT_EQ(jiro["status"], "ok") << jiro;
    EXPECT_EQ(jiro["user"]["administrator"], true);
    EXPECT_EQ(AskAs(jiro, "overview")["all"], 2);
    first["name"] = "saburo";
    EXPECT_EQ(Ask(first)["status"], "refused");
    EXPECT_EQ(LogIn("jiro")["status"], "ok");
}

TEST_F(DeskTest, AnAdministratorWhoHasLostTheAuthenticatorComesInByALink) {
    host::WriteConsoleFile(host_.Root(), host::CodeFileOf("user0"), host::NewCodeSecret());
    const std::string printed = host_.Tell({"console", "init"});
    const std::string code = printed.substr(printed.find("code=") + 5, 64);
    EXPECT_EQ(Ask({{"ask", "first-login"}, {"name", "taro"}, {"password", "a new secret"}, {"code", code}})["status"],
              "ok");
    EXPECT_EQ(LogIn("taro", Json::object(), "a new secret")["status"], "ok");
}

TEST_F(DeskTest, ARunIsAJobThatSaysWhatItDoes) {
    mailbox_.Add(MailNumber(1));
    const Json taro = LogIn("taro");
    const Json set = AskAs(
        taro, "change",
        {{"kind", "profile"}, {"verb", "set"}, {"name", "user0/from0"}, {"secrets", {{"poppassword", "secret"}}}});
    ASSERT_EQ(set["status"], "ok") << set;
    Json job = AskAs(taro, "start", {{"what", "run"}, {"profile", "user0/from0"}});
    const std::string name = job["job"];
    EXPECT_EQ(AskAs(LogIn("hanako"), "job", {{"job", name}})["status"], "missing");
    job = Finish(taro, job);
    EXPECT_EQ(job["status"], "ok") << job;
    EXPECT_THAT(job["printed"].get<std::string>(), AllOf(StartsWith("== user0/from0: "), Not(HasSubstr(host_.Root()))));
    EXPECT_EQ(sink_.Delivered().size(), 1U);
    const Json mails = AskAs(taro, "mails", {{"search", "mail-1"}})["mails"];
    ASSERT_THAT(mails, SizeIs(1));
    EXPECT_EQ(mails[0]["copies"][0]["says"], "sent");
    EXPECT_THAT(AskAs(LogIn("hanako"), "mails")["mails"], IsEmpty());
    EXPECT_THAT(AskAs(taro, "log", {{"profile", "user0/from0"}})["lines"].dump(), HasSubstr("Operation starting"));
    EXPECT_THAT(AskAs(taro, "profile", {{"profile", "user0/from0"}}).dump(), Not(HasSubstr("\"secret\":\"secret\"")));
}

// The time would tell which names there are.
TEST_F(DeskTest, AnEmptyPasswordTakesAsLongAsAnyOther) {
    const auto shortest = [](const auto& what) {
        auto least = std::chrono::steady_clock::duration::max();
        for (int i = 0; i < 3; ++i) {
            const auto begin = std::chrono::steady_clock::now();
            what();
            least = std::min(least, std::chrono::steady_clock::now() - begin);
        }
        return least;
    };
    const auto empty = shortest([&] {
        EXPECT_EQ(Ask({{"ask", "login"}, {"name", "hanako"}, {"password", ""}, {"address", kDeskClient}})["status"],
                  "refused");
    });
    EXPECT_GT(empty, shortest([] { host::TakePasswordsTime("x"); }) / 2);
}

TEST_F(DeskTest, AnAuthenticatorIsNotTakenAwayByGuessing) {
    const Json taro = LogIn("taro");
    host::WriteConsoleFile(host_.Root(), host::CodeFileOf("user0"), host::NewCodeSecret());
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(AskAs(taro, "set-code", {{"code", "12345"}, {"address", kDeskClient}})["code"], true);
    EXPECT_THAT(AskAs(taro, "set-code", {{"code", "12345"}, {"address", kDeskClient}})["message"].get<std::string>(),
                HasSubstr("too many"));
}

TEST_F(DeskTest, WhoGetsTheFolderOfARemovedUserDoesNotGetTheHistory) {
    EXPECT_THAT(AskAs(LogIn("hanako"), "history").dump(), HasSubstr("hanako@example.org"));
    host_.Tell({"user", "remove", "hanako", "--yes"});
    WriteFile(folder_ / "password", "jiro's secret\n");
    host_.Tell({"user", "add", "jiro", "--password-file", folder_ / "password"});
    const Json jiro = LogIn("jiro");
    EXPECT_EQ(jiro["user"]["path"], "user1");
    EXPECT_THAT(AskAs(jiro, "history").dump(), AllOf(HasSubstr("jiro"), Not(HasSubstr("hanako"))));
}

// The path was judged at the desk; by the time the service makes the edit, it may be the name of something else.
TEST_F(DeskTest, AnEditByPathNeverFallsBackToWhatIsCalledSo) {
    service_.reset();
    host_.Tell({"user", "set", "taro", "--loginname", "user1"});
    host_.Tell({"user", "remove", "hanako", "--yes"});
    CRootPath root;
    host::OpenTree(root, host_.Root());
    host::RuleMemory memory(host_.Root(), [](const std::string&) {});
    host::EditRequest request(host::EditKind::Forward, host::EditVerb::Set, "user1/from0/forwardto0");
    request.values["nickname"] = "mine";
    host::Reply reply;
    request.by_path = true;
    EXPECT_EQ(host::EditWithMemory(root, memory, request, reply), host::kNotFound);
    EXPECT_THAT(reply.error, Not(HasSubstr("phone@example.net")));  // nor says what others have
    EXPECT_THAT(host::TouchedProfiles(root, request), IsEmpty());
    request.by_path = false;
    EXPECT_EQ(host::EditWithMemory(root, memory, request, reply), host::kDone);
}

TEST_F(DeskTest, AnswersInTheReadersLanguage) {
    EXPECT_THAT(LogIn("nobody", {{"language", "ja"}})["message"].get<std::string>(), HasSubstr("パスワード"));
}

TEST_F(DeskTest, NonsenseIsRefusedAndHarmsNothing) {
    for (const std::string& text :
         {std::string(), std::string("x"), std::string("[]"), std::string("{}"), std::string(R"({"ask":1})"),
          std::string(R"({"ask":"login","name":[]})"), std::string(R"({"ask":"overview","session":{}})"),
          std::string(100'000, '['), std::string("{\"ask\":\"login\",\"name\":\"\xff\"}")}) {
        EXPECT_THAT(Exchange(WithLength(text)), HasSubstr(R"("status":"bad")")) << text.substr(0, 40);
    }
    EXPECT_THAT(Exchange("\xff\xff\xff\xff"), HasSubstr("bad"));
    EXPECT_EQ(LogIn("taro", {{"session", std::string(5000, 'x')}})["status"], "ok");  // which nobody looks at there
    EXPECT_EQ(LogIn("taro", {}, std::string(5000, 'x'))["status"], "bad");
}

TEST_F(DeskTest, WhoSaysNothingKeepsNobodyFromAsking) {
    std::vector<DeskClient> silent;
    for (int i = 0; i < 5; ++i) silent.push_back(Connect());
    EXPECT_EQ(LogIn("taro")["status"], "ok");
}

TEST_F(DeskTest, ASecondServiceDoesNotTakeTheSocketOfAnother) {
    Host other;
    other.Tell({"init"});
    ChildProcess second({TARVEX_HOST, "--root", other.Root(), "serve", "--console", Path()},
                        ChildProcess::Output::Together);
    second.Wait();
    EXPECT_EQ(second.ExitCode(), 73);
    EXPECT_EQ(LogIn("taro")["status"], "ok");
    service_->Kill();
    Serve();  // in the place of what was left over
    EXPECT_EQ(LogIn("taro")["status"], "ok");
}

}  // namespace
}  // namespace tarvex::testing
