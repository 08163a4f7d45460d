// What the desk decides by itself: passwords, sessions, failed logins, codes, rights, weeks.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "host/desk/jobs.h"
#include "host/desk/login/attempts.h"
#include "host/desk/login/one_time_code.h"
#include "host/desk/login/sessions.h"
#include "host/desk/rights.h"
#include "host/desk/server_talk.h"
#include "host/settings/login_password.h"
#include "host/settings/schedule_text.h"
#include "host/system/command_error.h"
#include "host/view/status_words.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

TEST(LoginPassword, IsKeptAsAHashThatOnlyItFits) {
    const std::string kept = HashedPassword("correct horse");
    EXPECT_THAT(kept, StartsWith("$scrypt$ln=15,r=8,p=1$"));
    EXPECT_TRUE(IsHashedPassword(kept));
    EXPECT_NE(kept, HashedPassword("correct horse"));
    EXPECT_TRUE(FitsPassword(kept, "correct horse"));
    EXPECT_FALSE(FitsPassword(kept, "correct horsf"));
    EXPECT_FALSE(FitsPassword(kept, kept));  // who steals the tree does not log in with what stands there
    EXPECT_FALSE(FitsPassword(kept, ""));
}

// RFC 7914, 12: the hash of "pleaseletmein" with N=16384, whose beginning is kept here in 32 bytes.
TEST(LoginPassword, IsScryptAsOthersHaveIt) {
    EXPECT_TRUE(FitsPassword("$scrypt$ln=14,r=8,p=1$U29kaXVtQ2hsb3JpZGU$cCO9yzr9c0hGHAbNgf046/2o+7qQT44+qbVD9lRdofI",
                             "pleaseletmein"));
}

TEST(LoginPassword, InClearFitsToo) {
    EXPECT_TRUE(FitsPassword("secret", "secret"));
    EXPECT_FALSE(FitsPassword("secret", "secre"));
    EXPECT_FALSE(FitsPassword("", ""));
}

TEST(LoginPassword, AHashThatIsNoneOrCostsTooMuchOpensNothing) {
    for (const char* const kept :
         {"$scrypt$ln=25,r=8,p=1$U29kaXVt$cCO9yzr9", "$scrypt$ln=15,r=8,p=99$U29kaXVt$cCO9yzr9",
          "$scrypt$ln=0,r=8,p=1$U29kaXVt$cCO9yzr9"}) {
        EXPECT_TRUE(IsHashedPassword(kept)) << kept;
        EXPECT_FALSE(FitsPassword(kept, "x")) << kept;
    }
    for (const char* const kept : {"$scrypt$ln=15,r=8$U29k$cCO9", "$scrypt$ln=15,r=8,p=1$U29k",
                                   "$scrypt$ln=15,r=8,p=1$*$*", "$scrypt$ln=15,r=8,p=1$$", "$2b$10$abc"}) {
        EXPECT_FALSE(IsHashedPassword(kept)) << kept;
        EXPECT_TRUE(FitsPassword(kept, kept)) << kept;  // somebody's password in clear
    }
}

TEST(Sessions, EndWhenNobodyUsesThemAndAfterHalfADay) {
    Sessions sessions;
    Session session;
    session.user = "user0";
    auto now = Sessions::Clock::now();
    const std::string secret = sessions.Begin(session, now);
    EXPECT_THAT(secret, SizeIs(64));
    const auto found = sessions.Use(secret, now);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->user, "user0");
    EXPECT_THAT(found->form_token, SizeIs(64));
    EXPECT_FALSE(sessions.Use(found->form_token, now));
    EXPECT_FALSE(sessions.Use("", now));
    for (int half_hours = 0; half_hours < 24; ++half_hours) EXPECT_TRUE(sessions.Use(secret, now += 30min));
    EXPECT_FALSE(sessions.Use(secret, now += 1min));  // though it was used all the time

    const std::string idle = sessions.Begin(session, now);
    EXPECT_FALSE(sessions.Use(idle, now + 31min));
    EXPECT_FALSE(sessions.Use(idle, now));  // and is gone
    const std::string early = sessions.Begin(session, now);
    EXPECT_FALSE(sessions.Use(early, now - 1h));  // a clock that was set back
}

TEST(Sessions, AreEndedOneByOneOrAllButOne) {
    Sessions sessions;
    Session session;
    session.user = "user0";
    const auto now = Sessions::Clock::now();
    const std::string mine = sessions.Begin(session, now);
    const std::string other = sessions.Begin(session, now);
    const std::string third = sessions.Begin(session, now);
    session.user = "user1";
    const std::string stranger = sessions.Begin(session, now);
    const std::string id = sessions.Use(other, now)->id;
    EXPECT_FALSE(sessions.EndById("user1", id));
    EXPECT_TRUE(sessions.EndById("user0", id));
    EXPECT_FALSE(sessions.Use(other, now));
    sessions.EndAllOf("user0", sessions.Use(mine, now)->id);
    EXPECT_FALSE(sessions.Use(third, now));
    EXPECT_TRUE(sessions.Use(mine, now));
    EXPECT_TRUE(sessions.Use(stranger, now));
}

TEST(Sessions, OfAUserAreSoMany) {
    Sessions sessions;
    Session session;
    session.user = "user0";
    auto now = Sessions::Clock::now();
    const std::string first = sessions.Begin(session, now);
    for (std::size_t i = 0; i < Sessions::kMostOfUser; ++i) sessions.Begin(session, now += 1s);
    EXPECT_THAT(sessions.Of("user0", now), SizeIs(Sessions::kMostOfUser));
    EXPECT_FALSE(sessions.Use(first, now));
}

TEST(Attempts, AreFiveInAQuarterOfAnHourForANameAndForAnAddress) {
    Attempts attempts;
    auto now = Attempts::Clock::now();
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(attempts.Begin("taro", "192.0.2." + std::to_string(i), now));
    EXPECT_FALSE(attempts.Begin("taro", "192.0.2.9", now));
    EXPECT_TRUE(attempts.Begin("jiro", "192.0.2.9", now));
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(attempts.Begin("n" + std::to_string(i), "192.0.2.20", now));
    EXPECT_FALSE(attempts.Begin("jiro", "192.0.2.20", now));
    EXPECT_TRUE(attempts.Begin("taro", "192.0.2.9", now + 15min + 1s));
}

TEST(Attempts, WithoutANameCountForTheAddressAlone) {
    Attempts attempts;
    const auto now = Attempts::Clock::now();
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(attempts.Begin("", "192.0.2.1", now));
    EXPECT_FALSE(attempts.Begin("", "192.0.2.1", now));
    EXPECT_TRUE(attempts.Begin("", "192.0.2.2", now));  // nobody keeps the first administrator out
}

TEST(Attempts, ARightPasswordForgivesTheNameButNotWhatTheAddressTriedElsewhere) {
    Attempts attempts;
    const auto now = Attempts::Clock::now();
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(attempts.Begin("taro", "192.0.2.1", now));
    attempts.Forgive("taro", "192.0.2.1");
    EXPECT_TRUE(attempts.Begin("jiro", "192.0.2.1", now));
    EXPECT_TRUE(attempts.Begin("jiro", "192.0.2.1", now));
    EXPECT_FALSE(attempts.Begin("jiro", "192.0.2.1", now));
}

TEST(Attempts, WhereNothingWasTriedNothingCounts) {
    Attempts attempts;
    const auto now = Attempts::Clock::now();
    EXPECT_TRUE(attempts.Begin("taro", "192.0.2.1", now));
    for (int i = 0; i < 9; ++i) {
        EXPECT_TRUE(attempts.Begin("taro", "192.0.2.1", now));
        attempts.TakeBack("taro", "192.0.2.1");
    }
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(attempts.Begin("taro", "192.0.2.1", now));
    EXPECT_FALSE(attempts.Begin("taro", "192.0.2.1", now));  // what was tried before stays
}

TEST(Attempts, OneNetworkOfIpv6CountsAsOneAddress) {
    Attempts attempts;
    const auto now = Attempts::Clock::now();
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(attempts.Begin("n" + std::to_string(i), "2001:db8:1:2::" + std::to_string(i), now));
    EXPECT_FALSE(attempts.Begin("x", "2001:db8:1:2:3:4:5:6", now));
    EXPECT_TRUE(attempts.Begin("x", "2001:db8:1:3::1", now));
}

// RFC 6238, appendix B, of which the last six digits are shown by authenticators.
TEST(OneTimeCode, IsAsOthersMakeIt) {
    constexpr std::string_view kSecret = "GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ";
    const std::map<std::int64_t, std::string> codes = {{59, "287082"},         {1111111109, "081804"},
                                                       {1111111111, "050471"}, {1234567890, "005924"},
                                                       {2000000000, "279037"}, {20000000000, "353130"}};
    for (const auto& [moment, code] : codes) {
        EXPECT_EQ(StepOfCode(kSecret, code, moment, 0), moment / 30) << moment;
        EXPECT_EQ(StepOfCode(kSecret, code, moment + 30, 0), moment / 30);  // a clock that is a little wrong
        EXPECT_FALSE(StepOfCode(kSecret, code, moment + 90, 0));
        EXPECT_FALSE(StepOfCode(kSecret, code, moment, moment / 30));  // used before
    }
    EXPECT_FALSE(StepOfCode(kSecret, "28708", 59, 0));
    EXPECT_FALSE(StepOfCode("not base32!", "287082", 59, 0));
    EXPECT_FALSE(StepOfCode("", "287082", 59, 0));
}

TEST(OneTimeCode, SecretsAreNewEachTime) {
    const std::string secret = NewCodeSecret();
    EXPECT_THAT(secret, SizeIs(32));
    EXPECT_NE(secret, NewCodeSecret());
    EXPECT_EQ(CodeLink(secret, "taro yamada", "mail.example.org"),
              "otpauth://totp/Tarvex:taro%20yamada%40mail.example.org?secret=" + secret + "&issuer=Tarvex");
}

EditRequest Request(EditKind kind, EditVerb verb, std::map<std::string, std::string> values = {}) {
    EditRequest request(kind, verb, "user0/from0");
    request.values = std::move(values);
    return request;
}

TEST(Rights, AUserChangesWhatMakesTheServerConnectToNothingElse) {
    const auto right = [](const EditRequest& request) { return RightTo(request, false); };
    EXPECT_EQ(right(Request(EditKind::Forward, EditVerb::Add, {{"address", "a@b.example"}})), Right::May);
    EXPECT_EQ(right(Request(EditKind::Schedule, EditVerb::Set)), Right::May);
    EXPECT_EQ(right(Request(EditKind::Profile, EditVerb::Set, {{"status", "off"}})), Right::May);
    EXPECT_EQ(right(Request(EditKind::Profile, EditVerb::CatchUp)), Right::May);
    for (const char* const key : {"popserver", "popport", "smtpserver", "smtpport", "timer", "timeout", "address"})
        EXPECT_EQ(right(Request(EditKind::Profile, EditVerb::Set, {{key, "1"}})), Right::OnlyAdministrators) << key;
    EXPECT_EQ(right(Request(EditKind::Profile, EditVerb::Set, {{"status", "on"}, {"popserver", "10.0.0.1"}})),
              Right::OnlyAdministrators);
    for (const EditVerb verb : {EditVerb::Add, EditVerb::Remove, EditVerb::Hold})
        EXPECT_EQ(right(Request(EditKind::Profile, verb)), Right::OnlyAdministrators);
    for (const EditKind kind : {EditKind::User, EditKind::Rules, EditKind::Tree}) {
        for (const EditVerb verb : {EditVerb::Add, EditVerb::Set, EditVerb::Remove, EditVerb::Accept})
            EXPECT_EQ(right(Request(kind, verb)), Right::OnlyAdministrators);
    }
    EditRequest with_rules = Request(EditKind::Forward, EditVerb::Add);
    with_rules.rules["pop_tls"] = "off";
    EXPECT_EQ(right(with_rules), Right::OnlyAdministrators);
}

TEST(Rights, ProgramsAndFilesOfTheMachineAreNamedOnTheMachineAlone) {
    for (const char* const key : {"token_command", "alert_command", "tls_authority"}) {
        EXPECT_EQ(RightTo(Request(EditKind::Rules, EditVerb::Set, {{key, "x"}}), true), Right::OnlyOnTheMachine);
        EditRequest profile = Request(EditKind::Profile, EditVerb::Add);
        profile.rules[key] = "x";
        EXPECT_EQ(RightTo(profile, true), Right::OnlyOnTheMachine) << key;
    }
    EXPECT_EQ(RightTo(Request(EditKind::Rules, EditVerb::Set, {{"floodguard", "on"}}), true), Right::May);
    EXPECT_EQ(RightTo(Request(EditKind::Profile, EditVerb::Set, {{"popserver", "10.0.0.1"}}), true), Right::May);
}

CScheduleSetting Schedule(const std::vector<std::string>& terms) {
    CScheduleSetting schedule;
    for (const std::string& text : terms) {
        for (const CTerm& term : ParseTerms(text)) schedule.AddNewTerm(&term);
    }
    return schedule;
}

std::vector<std::string> Written(const Week& week) {
    std::vector<std::string> texts;
    for (const CTerm& term : TermsOfWeek(week)) texts.push_back(WriteTerm(term));
    return texts;
}

TEST(WeekOfSchedule, GoesThereAndBack) {
    for (const std::vector<std::string>& terms :
         std::vector<std::vector<std::string>>{{"mon 9:00-17:30", "tue 9:00-17:30"},
                                               {"sun 0:00-24:00", "wed 8:00-12:00", "wed 13:00-24:00"},
                                               {"daily 7:30-22:00"}}) {
        const auto week = WeekOf(Schedule(terms));
        ASSERT_TRUE(week);
        EXPECT_EQ(Written(*week), terms);
    }
    EXPECT_THAT(Written(*WeekOf(Schedule({}))), IsEmpty());  // always
}

TEST(WeekOfSchedule, KnowsWhatTermsDoAtMidnight) {
    EXPECT_THAT(Written(*WeekOf(Schedule({"thu 22:00-6:00"}))), ElementsAre("thu 22:00-24:00", "fri 0:00-6:00"));
    EXPECT_THAT(Written(*WeekOf(Schedule({"fri 22:00-6:00"}))), ElementsAre("fri 22:00-24:00"));  // ends at midnight
    EXPECT_THAT(Written(*WeekOf(Schedule({"sat 22:00-6:00"}))), ElementsAre("sun 0:00-6:00", "sat 22:00-24:00"));
    EXPECT_THAT(Written(*WeekOf(Schedule({"daily 22:00-6:00"}))), ElementsAre("daily 0:00-6:00", "daily 22:00-24:00"));
}

TEST(WeekOfSchedule, SaysWhenItIsCoarserThanTheTerms) {
    EXPECT_TRUE(IsWholeWeek(Schedule({"mon 9:00-17:30", "2026-12-24 18:05 .. 2026-12-26 9:00"})));
    const CScheduleSetting fine = Schedule({"mon 9:10-17:20"});
    EXPECT_FALSE(IsWholeWeek(fine));
    EXPECT_THAT(Written(*WeekOf(fine)), ElementsAre("mon 9:00-17:30"));
    CScheduleSetting odd = Schedule({"mon 9:00-17:00"});
    odd.terms.front()->start = "0,0,1,9,0,0";
    EXPECT_FALSE(WeekOf(odd));
    odd.terms.front()->status = 0;
    EXPECT_TRUE(WeekOf(odd)->at(1).none());
}

TEST(Jobs, AreTheirOwnersAndSayHowFarTheyAre) {
    Jobs jobs;
    std::atomic<bool> go{false};
    JobState state;
    state.what = "check";
    const auto work = [&go](JobVoice& voice) -> std::pair<int, std::string> {
        voice.Print("one\n");
        while (!go && !voice.Stops()) std::this_thread::sleep_for(1ms);
        voice.Print("two\n");
        return {69, "it failed"};
    };
    const std::string name = jobs.Begin("user0", state, work, 0ms);
    EXPECT_THAT(name, SizeIs(64));
    EXPECT_FALSE(jobs.Of("user1", name));
    EXPECT_FALSE(jobs.Of("user0", "x"));
    EXPECT_FALSE(jobs.Of("user0", name)->done);
    for (std::size_t i = 1; i < Jobs::kMostOfOwner; ++i) EXPECT_NE(jobs.Begin("user0", state, work, 0ms), "");
    EXPECT_EQ(jobs.Begin("user0", state, work, 0ms), "");  // too many
    const std::string others = jobs.Begin(
        "user1", state, [](JobVoice&) { return std::pair(0, std::string()); }, 20s);
    EXPECT_TRUE(jobs.Of("user1", others)->done);  // it waited for the end
    go = true;
    while (!jobs.Of("user0", name)->done) std::this_thread::sleep_for(1ms);
    EXPECT_EQ(jobs.Of("user0", name)->printed, "one\ntwo\n");
    EXPECT_EQ(jobs.Of("user0", name)->exit_code, 69);
    EXPECT_EQ(jobs.Of("user0", name)->error, "it failed");
}

TEST(Jobs, ThatHaveEndedTakeNoRoomFromOthers) {
    Jobs jobs;
    const auto work = [](JobVoice&) { return std::pair(0, std::string()); };
    const std::string others = jobs.Begin("user1", {}, work, 20s);
    std::string last;
    for (std::size_t i = 0; i < 2 * Jobs::kMost; ++i) EXPECT_NE(last = jobs.Begin("user0", {}, work, 20s), "");
    EXPECT_TRUE(jobs.Of("user0", last));
    EXPECT_TRUE(jobs.Of("user1", others));
}

TEST(Jobs, EndWithTheDesk) {
    std::atomic<bool> ended{false};
    {
        Jobs jobs;
        jobs.Begin(
            "user0", {},
            [&ended](JobVoice& voice) -> std::pair<int, std::string> {
                while (!voice.Stops()) std::this_thread::sleep_for(1ms);
                ended = true;
                return {};
            },
            0ms);
    }
    EXPECT_TRUE(ended);
}

TEST(Jobs, AreForgottenInTimeWithWhatWasTyped) {
    Jobs jobs(20ms);
    const std::string name = jobs.Begin(
        "user0", {}, [](JobVoice&) { return std::pair(0, std::string()); }, 20s);
    const auto deadline = Jobs::Clock::now() + 20s;
    while (jobs.Of("user0", name) && Jobs::Clock::now() < deadline) std::this_thread::sleep_for(1ms);
    EXPECT_FALSE(jobs.Of("user0", name));  // though no other has begun
}

TEST(ServerTalk, EndsWithItsJobAndInItsTime) {
    struct Voice : JobVoice {
        void Print(std::string_view) override {}
        void Begin(const std::string&) override {}
        void Show(Json) override {}
        bool Stops() const override { return stops; }
        bool stops = false;
    } voice;
    const auto talk = [] {
        while (!RunIsInterrupted()) std::this_thread::sleep_for(1ms);
    };
    EXPECT_THROW(TalkToServers(voice, talk, 10ms), CommandError);
    voice.stops = true;
    TalkToServers(voice, talk);
    EXPECT_THROW(TalkToServers(voice, [] { throw CommandError(kUnavailable, "why"); }), CommandError);
}

// Who reads the console may have no shell, and sees beside a remark whom it is about.
TEST(Notes, OfTheConsoleNameNoCommandAndNoPath) {
    ProfileState state;
    state.name = "user0/from0";
    state.switched_on = true;
    state.last_due = state.next_due = 2000;
    state.held.messages = 1;
    state.wants_login = "the token has expired";
    state.clear_login = "`tarvex rules set user0/from0 --pop_tls tls` encrypts it";
    state.trouble = "its list of ids cannot be read";
    state.history.emplace();
    state.history->failed_in_a_row = 3;
    state.remembered[Matter::Waiting][""].since = 1000;
    const std::vector<std::string> notes = NotesOn(state, 1500);
    EXPECT_THAT(notes, ::testing::Each(
                           ::testing::Not(::testing::AnyOf(::testing::HasSubstr("user0"), ::testing::HasSubstr("`")))));
    EXPECT_EQ(notes.size(), 6U);
    const std::vector<std::string> remarks = RemarksOn(state, 1500);
    EXPECT_THAT(remarks, ::testing::Each(::testing::HasSubstr("user0/from0")));
    EXPECT_EQ(remarks.size(), 7U);  // also of what is set aside
}

}  // namespace
}  // namespace tarvex::host
