// The POP3 conversation: what is said, what is logged, what is fetched.

#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/conversation.h"
#include "tests/support/shortage.h"

namespace tarvex::testing {
namespace {

struct PopCase {
    std::string name = {};
    std::string script = {};
    std::string log = {};  // where it is not what the script implies
    int result = 1;
    std::vector<std::string> mails = {};    // "id: text"
    std::vector<std::string> present = {};  // afterwards
    std::vector<CString> handled = {};
    std::vector<CString> already_present = {};
    int apop = 0;
    int deletemail = 0;
    int timeout = kAmpleTimeOut_s;
    CString user = "alice";
    CString password = "secret";
};

struct PopOutcome {
    int result = -1;
    std::string transcript;
    std::string log;
    std::string mails;
    std::string present;
    std::string handled;
};

std::string PopLog(const std::string& log) { return WithReasons(log, "-ERR Disconnected: ", "-ERR Timeout: "); }

std::string Ids(const CCheckedMail& list) {
    std::vector<std::string> ids;
    ids.reserve(static_cast<std::size_t>(list.GetSize()));
    for (int i = 0; i < list.GetSize(); ++i) ids.push_back(list.GetAt(i));
    return Lines(ids);
}

void Prepare(CPopProfile& profile, const PopCase& one) {
    profile.setting.popserver = "127.0.0.1";
    profile.setting.popuser = one.user;
    profile.setting.poppassword = one.password;
    profile.setting.apop = one.apop;
    profile.setting.deletemail = one.deletemail;
    profile.setting.timeout = one.timeout;
    profile.log.SetLogMode(1);
}

PopOutcome Converse(const PopCase& one) {
    Conversation server(one.script);
    CPopProfile profile;
    Prepare(profile, one);
    profile.setting.popport = server.Port();

    CArray<CReceiveMail*, CReceiveMail*> mails;
    CCheckedMail handled;
    CCheckedMail present;
    for (const CString& id : one.handled) handled.Add(id);
    for (const CString& id : one.already_present) present.Add(id);

    PopOutcome outcome;
    outcome.result = profile.PopProcess(&mails, &handled, &present);
    outcome.transcript = server.Transcript();
    outcome.log = LogText(profile.log);
    for (const CReceiveMail* mail : mails) {
        EXPECT_TRUE(mail->destinations.empty());
        outcome.mails += Lines({mail->uidl + ": " + mail->text});
        delete mail;
    }
    outcome.present = Ids(present);
    outcome.handled = Ids(handled);
    return outcome;
}

// The ids of a listing by their numbers; those of LIST, which tells sizes, are empty.
std::map<std::string, std::string> IdsByNumber(const std::string& command, const std::string& listing) {
    std::map<std::string, std::string> ids;
    std::istringstream lines(Replaced(listing, "\\r\\n", "\n"));
    for (std::string line; std::getline(lines, line);) {
        if (line == ".") break;
        const std::size_t blank = line.find(' ');
        const std::string number = blank == std::string::npos ? "" : line.substr(0, blank);
        ids[number] = command == "LIST" ? "" : line.substr(blank + 1);
    }
    return ids;
}

// The log of what the script says: each command and its answer, of a message its id. An answer of several lines without
// its end is none.
std::string ImpliedLog(const PopCase& one) {
    std::string log = "Success to create pop socket\nconnecting.. 127.0.0.1\n";
    std::map<std::string, std::string> ids;
    for (const auto& [command, reply] : Exchanges(one.script)) {
        const std::string word = command.substr(0, 4);
        const bool long_answer = word == "UIDL" || word == "LIST" || word == "RETR";
        const bool complete = !reply.empty() && (!long_answer || reply.starts_with('-') || reply.ends_with("\\r\\n."));
        if (word == "PASS") {
            log += "PASS " + std::string(one.password.size(), '*') + "\n";
        } else if (!word.empty()) {
            log += (word == "APOP" ? "APOP " : command) + "\n";
        }
        if (word == "RETR") {
            log += ids[command.substr(5)] + (complete && reply.starts_with('+') ? " received\n" : " receive error\n");
        } else if (complete) {
            log += reply + "\n";
        }
        if (word == "UIDL" || word == "LIST") ids = IdsByNumber(word, reply);
    }
    return log;
}

void Check(const PopCase& one, const PopOutcome& outcome) {
    SCOPED_TRACE(one.name);
    EXPECT_EQ(outcome.transcript, Conversation::Expected(one.script));
    EXPECT_EQ(outcome.log, PopLog(one.log.empty() ? ImpliedLog(one) : one.log));
    EXPECT_EQ(outcome.result, one.result);
    EXPECT_EQ(outcome.mails, Lines(one.mails));
    EXPECT_EQ(outcome.present, Lines(one.present));
    EXPECT_EQ(outcome.handled, Lines(one.handled));
}

void CheckAll(const std::vector<PopCase>& cases) { RunAll(cases, Converse, Check); }

// How most conversations begin.
const std::string kConnected = "S: +OK ready\n";
const std::string kApop = "S: +OK <1@x>\nC: APOP alice 37257aa37904a2ac86c6572e6528a18c\n";
const std::string kLoggedIn = R"(S: +OK ready
C: USER alice
S: +OK name is known
C: PASS secret
S: +OK welcome
)";
const std::string kListed = kLoggedIn + R"(C: UIDL
S: +OK
S: 1 a
S: 2 b
S: .
)";
// A message of one line.
std::string Fetch(int number, const std::string& text) {
    return "C: RETR " + std::to_string(number) + "\nS: +OK\nS: " + text + "\nS: .\n";
}

const std::string kQuit = R"(C: QUIT
S: +OK bye
C: (closed)
)";

// The status line of a listing is known by its "+" alone.
TEST(PopProcess, TakesForASuccessWhateverDoesNotBeginWithAMinus) {
    CheckAll({{.name = "a server of another kind",
               .script = R"(S: 220 ready
C: USER alice
S: 
C: PASS secret
S: 500 what
C: UIDL
S: listing follows
S: 1 a
S: .
C: RETR listing
S: -ERR no such message
C: RETR 1
S: 
S: Subject: one
S: 
S: first
S: .
C: QUIT
S: 500 what
C: (closed)
)",
               .log = R"(Success to create pop socket
connecting.. 127.0.0.1
220 ready
USER alice

PASS ******
500 what
UIDL
listing follows\r\n1 a\r\n.
RETR listing
follows receive error
RETR 1
a received
QUIT
500 what
)",
               .mails = {"a: \r\nSubject: one\r\n\r\nfirst\r\n.\r\n"},
               .present = {"follows", "a"}}});
}

TEST(PopProcess, FetchesEveryMessageThatIsNotHandled) {
    CheckAll({
        {.name = "an empty mailbox", .script = kLoggedIn + R"(C: UIDL
S: +OK
S: .
)" + kQuit},

        {.name = "nothing handled yet",
         .script = kListed + R"(C: RETR 1
S: +OK 24 octets
S: Subject: one
S: 
S: first
S: .
C: RETR 2
S: +OK
S: Subject: two
S: 
S: second
S: .
)" + kQuit,
         .mails = {"a: \r\nSubject: one\r\n\r\nfirst\r\n.\r\n", "b: \r\nSubject: two\r\n\r\nsecond\r\n.\r\n"},
         .present = {"a", "b"}},

        {.name = "one handled, not to be deleted",
         .script = kListed + Fetch(2, "x") + kQuit,
         .mails = {"b: \r\nx\r\n.\r\n"},
         .present = {"a", "b"},
         .handled = {"a"}},

        {.name = "all handled, in another order, with ids that are gone",
         .script = kListed + kQuit,
         .present = {"a", "b"},
         .handled = {"gone", "b", "a"}},

        {.name = "ids are compared byte for byte",
         .script = kListed + Fetch(1, "x") + Fetch(2, "y") + kQuit,
         .mails = {"a: \r\nx\r\n.\r\n", "b: \r\ny\r\n.\r\n"},
         .present = {"a", "b"},
         .handled = {"A", "b ", " a", "bb", ""}},
    });
}

TEST(PopProcess, KeepsTheLineEndOfTheStatusLineTheDotsAndTheTerminator) {
    CheckAll({
        {.name = "dot-stuffed lines",
         .script = kListed + R"(C: RETR 1
S: +OK message follows
S: Subject: dots
S: 
S: ..
S: ...two
S: end.
S: .
C: RETR 2
S: +
S: .
)" + kQuit,
         .mails = {"a: \r\nSubject: dots\r\n\r\n..\r\n...two\r\nend.\r\n.\r\n", "b: \r\n.\r\n"},
         .present = {"a", "b"}},

        {.name = "lines that look like replies",
         .script = kListed + R"(C: RETR 1
S: +OK
S: -ERR
S: +OK
S: .
C: RETR 2
S: +OK Disconnected
S: 
S: .
)" + kQuit,
         .mails = {"a: \r\n-ERR\r\n+OK\r\n.\r\n", "b: \r\n\r\n.\r\n"},
         .present = {"a", "b"}},
    });
}

TEST(PopProcess, AppendsToWhatTheArraysHold) {
    const std::string script = kLoggedIn + R"(C: UIDL
S: +OK
S: 1 a
S: .
)" + Fetch(1, "x") + kQuit;
    Conversation server(script);
    CPopProfile profile;
    Prepare(profile, {});
    profile.setting.popport = server.Port();
    auto earlier = std::make_unique<CReceiveMail>();
    CArray<CReceiveMail*, CReceiveMail*> mails = {earlier.get()};
    CCheckedMail handled;
    CCheckedMail present;
    present.Add("earlier");

    EXPECT_EQ(profile.PopProcess(&mails, &handled, &present), 1);
    EXPECT_EQ(server.Transcript(), Conversation::Expected(script));
    ASSERT_EQ(mails.size(), 2u);
    EXPECT_EQ(mails[0], earlier.get());
    EXPECT_EQ(mails[1]->uidl, "a");
    EXPECT_EQ(Ids(present), Lines({"earlier", "a"}));
    delete mails[1];
}

TEST(PopProcess, ReadsTheListingLineByLine) {
    CheckAll({
        {.name = "a line without a blank is an id without a number",
         .script = kLoggedIn + R"(C: UIDL
S: +OK
S: lonely
S: .
C: RETR 
S: -ERR which?
)" + kQuit,
         .present = {"lonely"}},

        {.name = "the first blank separates, further ones belong to the id",
         .script = kLoggedIn + R"(C: UIDL
S: +OK
S: 1  a
S: 2 b c 
S: 3 
S: .
C: RETR 1
S: +OK
S: .
C: RETR 2
S: +OK
S: .
C: RETR 3
S: +OK
S: .
)" + kQuit,
         .mails = {" a: \r\n.\r\n", "b c : \r\n.\r\n", ": \r\n.\r\n"},
         .present = {" a", "b c ", ""}},

        {.name = "a blank in front is an empty number, a tab is no blank, an empty line is an empty pair",
         .script = kLoggedIn + "C: UIDL\nS: +OK\nS:  1 a\nS: 2\tb\nS: \nS: .\n" + kQuit,
         .present = {"1 a", "2\tb", ""},
         .handled = {"1 a", "2\tb", ""}},

        {.name = "every line that begins with a plus is skipped",
         .script = kLoggedIn + R"(C: UIDL
S: +OK
S: + 1 a
S: 2 b
S: +OK
S: .
)" + kQuit,
         .present = {"b"},
         .handled = {"b"}},

        {.name = "a line that begins with a dot ends the listing",
         .script = kLoggedIn + R"(C: UIDL
S: +OK
S: 1 a
S: .2 b
S: 3 c
S: .
)" + kQuit,
         .present = {"a"},
         .handled = {"a", "c", "b"}},

        {.name = "an id that stands twice is present once and fetched twice",
         .script = kLoggedIn + R"(C: UIDL
S: +OK
S: 1 a
S: 2 a
S: .
)" + Fetch(1, "x") +
                   Fetch(2, "y") + kQuit,
         .mails = {"a: \r\nx\r\n.\r\n", "a: \r\ny\r\n.\r\n"},
         .present = {"a"}},
    });
}

TEST(PopProcess, AsksWithListWhereUidlIsRefused) {
    const std::string refused = kLoggedIn + R"(C: UIDL
S: -ERR what?
C: LIST
S: +OK 2 messages
S: 1 120
S: 2 340
S: .
)";
    const std::string refused_log = ImpliedLog({.script = kLoggedIn}) + R"(UIDL
-ERR what?
LIST
+OK 2 messages\r\n1 120\r\n2 340\r\n.
)";
    CheckAll({
        {.name = "every message has the empty id",
         .script = refused + Fetch(1, "x") + Fetch(2, "y") + kQuit,
         .mails = {": \r\nx\r\n.\r\n", ": \r\ny\r\n.\r\n"},
         .present = {""},
         .handled = {"120", "1"}},

        {.name = "a handled empty id is every message", .script = refused + kQuit, .present = {""}, .handled = {""}},

        {.name = "a handled empty id deletes every message",
         .script = refused + R"(C: DELE 1
S: +OK
C: DELE 2
S: +OK
)" + kQuit,
         .handled = {""},
         .deletemail = 1},

        {.name = "the lines are read as those of UIDL",
         .script = kLoggedIn + R"(C: UIDL
S: -
C: LIST
S: +OK
S: lonely
S: + 1
S: 2  5
S: .3 6
S: 4 7
S: .
C: RETR 
S: -ERR
C: RETR 2
S: +OK
S: .
)" + kQuit,
         .mails = {": \r\n.\r\n"},
         .present = {""}},

        {.name = "a refusal that speaks of a lost connection is a refusal like any other",
         .script = kLoggedIn + R"(C: UIDL
S: -ERR Disconnected
C: LIST
S: +OK
S: .
)" + kQuit},
    });
}

TEST(PopProcess, DeletesWhatIsHandledAndNothingElse) {
    const std::string refused = kLoggedIn + R"(C: UIDL
S: +OK
S: 1 a
S: 2 b
S: 3 c
S: 4 d
S: .
C: DELE 2
S: +OK
C: DELE 3
S: -ERR locked
C: (closed)
)";
    CheckAll(
        {
            {.name = "what is deleted is no longer present",
             .script = kLoggedIn + R"(C: UIDL
S: +OK
S: 1 a
S: 2 b
S: 3 c
S: 4 d
S: .
C: DELE 1
S: +OK
C: DELE 3
S: +OK deleted
C: DELE 4
S: +OK
)" + Fetch(2, "x") + kQuit,
             .mails = {"b: \r\nx\r\n.\r\n"},
             .present = {"b"},
             .handled = {"d", "c", "a"},
             .deletemail = 1},

            {.name = "any setting but 0 deletes",
             .script = kListed + R"(C: DELE 1
S: +OK
C: DELE 2
S: +OK
)" + kQuit,
             .handled = {"a", "b"},
             .deletemail = -1},

            {.name = "for an id that was present already the last element goes",
             .script = kListed + R"(C: DELE 1
S: +OK
)" + Fetch(2, "x") + kQuit,
             .mails = {"b: \r\nx\r\n.\r\n"},
             .present = {"a", "b"},
             .handled = {"a"},
             .already_present = {"a", "other"},
             .deletemail = 1},

            {.name = "an id twice on the server is deleted twice",
             .script = kLoggedIn + R"(C: UIDL
S: +OK
S: 1 b
S: 2 a
S: 3 a
S: .
C: DELE 2
S: +OK
C: DELE 3
S: +OK
C: RETR 1
S: -ERR
)" + kQuit,
             .present = {"b"},
             .handled = {"a"},
             .deletemail = 1},

            {.name = "a refusal ends the conversation",
             .script = refused,
             .log = ImpliedLog({.script = refused}) + "-ERR locked\n-ERR locked\n",
             .result = 0,
             .present = {"a", "c"},
             .handled = {"b", "c", "d"},
             .deletemail = 1},
        });
}

TEST(PopProcess, WorksWithoutAListOfWhatIsPresent) {
    const std::string script = kListed + R"(C: DELE 1
S: +OK
)" + Fetch(2, "x") + kQuit;
    Conversation server(script);
    CPopProfile profile;
    Prepare(profile, {.deletemail = 1});
    profile.setting.popport = server.Port();
    CArray<CReceiveMail*, CReceiveMail*> mails;
    CCheckedMail handled;
    handled.Add("a");

    EXPECT_EQ(profile.PopProcess(&mails, &handled, nullptr), 1);
    EXPECT_EQ(server.Transcript(), Conversation::Expected(script));
    EXPECT_EQ(LogText(profile.log), ImpliedLog({.script = script}));
    ASSERT_EQ(mails.size(), 1u);
    delete mails[0];
}

TEST(PopProcess, LogsInWithApopWhereTheServerOffersIt) {
    const auto with_greeting = [](const std::string& name, const std::string& greeting, const std::string& login) {
        return PopCase{
            .name = name, .script = "S: " + greeting + "\n" + login + "C: UIDL\nS: +OK\nS: .\n" + kQuit, .apop = 1};
    };
    const auto apop = [&](const std::string& greeting, const std::string& digest) {
        return with_greeting("APOP after " + greeting, greeting, "C: APOP alice " + digest + "\nS: +OK welcome\n");
    };
    const auto plain = [&](const std::string& greeting) {
        return with_greeting("USER after " + greeting, greeting,
                             "C: USER alice\nS: +OK\nC: PASS secret\nS: +OK welcome\n");
    };

    // RFC 1939 section 7.
    PopCase example =
        with_greeting("the protocol's own example", "+OK POP3 server ready <1896.697170952@dbc.mtview.ca.us>",
                      "C: APOP mrose c4c9334bac560ecc979e58001b3e22fb\nS: +OK maildrop has 1 message (369 octets)\n");
    example.user = "mrose";
    example.password = "tanstaaf";
    PopCase other_switch = apop("+OK <1@x>", "37257aa37904a2ac86c6572e6528a18c");
    other_switch.apop = -1;
    PopCase switched_off = plain("+OK <1@x>");
    switched_off.apop = 0;

    CheckAll({
        example,
        other_switch,
        switched_off,
        apop("+OK <a@b> or <c@d>", "5875219ef9d1e1ff4d24471ba0f0869c"),
        apop("+OK <a <b@c> d>", "8a4c4018468cc64c20781a9a8deb6fcf"),
        apop("+OK <>", "0d889ba84ec03bc1da45e918f3893f02"),
        plain("+OK ready"),
        plain("+OK <1@x"),
        plain("+OK 1@x>"),
        plain("+OK >1@x<"),
        plain("+OK > <1@x>"),
        plain("+OK"),
    });
}

TEST(PopProcess, LogsApopAndASecondMessageThatFails) {
    CheckAll({{.name = "",
               .script = R"(S: +OK <1@x>
C: APOP alice 37257aa37904a2ac86c6572e6528a18c
S: +OK
C: UIDL
S: +OK
S: 1 a
S: 2 b
S: .
)" + Fetch(1, "x") + R"(C: RETR 2
S: -ERR gone
C: QUIT
S: +OK
C: (closed)
)",
               .mails = {"a: \r\nx\r\n.\r\n"},
               .present = {"a", "b"},
               .apop = 1}});
}

TEST(PopProcess, StarsEveryByteOfThePassword) {
    const std::string double_byte = "\x83\x70\x83\x58";  // two characters
    const std::map<std::string, std::string> passwords = {
        {"eightch8", "********"}, {double_byte, "****"}, {"a b", "***"}, {"", ""}};
    std::vector<PopCase> cases;
    for (const auto& [password, stars] : passwords) {
        PopCase one;
        one.name = password;
        one.password = password;
        one.script = "S: +OK\nC: USER alice\nS: +OK\nC: PASS " + password + "\nS: -ERR\nC: (closed)\n";
        one.log = "Success to create pop socket\nconnecting.. 127.0.0.1\n+OK\nUSER alice\n+OK\nPASS " + stars +
                  "\n-ERR\n-ERR\n";
        one.result = 0;
        cases.push_back(one);
    }
    CheckAll(cases);
}

TEST(PopProcess, JudgesAReplyByItsFirstCharacterAlone) {
    CheckAll({
        {.name = "a lone plus is success", .script = R"(S: +
C: USER alice
S: +
C: PASS secret
S: + -ERR
C: UIDL
S: +
S: .
C: QUIT
S: +
C: (closed)
)"},
    });
}

// Conversations up to a command whose refusal ends them.
std::vector<PopCase> Refusable() {
    return {
        {.name = "APOP", .script = kApop, .apop = 1},
        {.name = "USER", .script = kConnected + "C: USER alice\n"},
        {.name = "PASS", .script = kConnected + "C: USER alice\nS: +OK\nC: PASS secret\n"},
        {.name = "LIST", .script = kLoggedIn + "C: UIDL\nS: -ERR what?\nC: LIST\n"},
        {.name = "DELE", .script = kListed + "C: DELE 1\n", .present = {"a"}, .handled = {"a", "b"}, .deletemail = 1},
    };
}

// At a login the last text is logged once less than later.
bool IsLogin(const PopCase& one) { return one.script.find("UIDL") == std::string::npos; }

TEST(PopProcess, ClosesWithoutQuitAfterARefusal) {
    std::vector<PopCase> cases;
    for (const char* const refusal : {"-ERR no", "-", "-ERR disconnected"}) {
        const std::string reply = std::string(refusal) + "\n";
        for (PopCase one : Refusable()) {
            one.name += " " + reply;
            one.script += "S: " + reply + "C: (closed)\n";
            one.log = ImpliedLog(one) + reply + (IsLogin(one) ? "" : reply);
            one.result = 0;
            cases.push_back(one);
        }
    }
    for (const std::string greeting : {"-ERR too busy", "-ERR Disconnected"}) {
        PopCase one = {.name = greeting, .script = "S: " + greeting + "\nC: (closed)\n", .result = 0};
        one.log = ImpliedLog(one) + "Error..Closing Socket\n";
        cases.push_back(one);
    }
    CheckAll(cases);
}

TEST(PopProcess, QuitsAfterARefusalThatSpeaksOfALostConnection) {
    std::vector<PopCase> cases;
    for (const std::string refusal : {"-ERR user was Disconnected.\n", "-Disconnected\n"}) {
        for (const std::string answer : {"+OK bye\n", "-ERR Disconnected again\n"}) {
            for (PopCase one : Refusable()) {
                one.name += " " + refusal + answer;
                one.script += "S: " + refusal;
                one.log = ImpliedLog(one) + refusal + "QUIT\n" + answer + (IsLogin(one) ? "" : answer);
                one.script += "C: QUIT\nS: " + answer + "C: (closed)\n";
                one.result = 0;
                cases.push_back(one);
            }
        }
    }
    CheckAll(cases);
}

TEST(PopProcess, GoesOnAfterARefusedMessageAndIgnoresARefusedQuit) {
    CheckAll(
        {
            {.name = "the first of two",
             .script = kListed + R"(C: RETR 1
S: -ERR Disconnected
)" + Fetch(2, "x") + kQuit,
             .mails = {"b: \r\nx\r\n.\r\n"},
             .present = {"a", "b"}},

            {.name = "both, and QUIT too",
             .script = kListed + R"(C: RETR 1
S: -
C: RETR 2
S: -ERR
C: QUIT
S: -ERR Disconnected
C: (closed)
)",
             .present = {"a", "b"}},
        });
}

TEST(PopProcess, EndsWithoutAGreeting) {
    std::vector<PopCase> cases;
    for (const char* const stalled : {"", "S- +OK rea\n",
                                      "S~ +OK this greeting is so slow that it would be complete only "
                                      "after several seconds, too late for a line\n"}) {
        cases.push_back({.name = std::string("stalled behind ") + stalled,
                         .script = std::string(stalled) + "C: (closed)\n",
                         .log = ImpliedLog({}) + "{timeout}\nTimeoutError..Closing Socket\n",
                         .result = 0,
                         .timeout = kStallTimeOut_s});
    }
    for (const char* const said : {"", "S- +OK rea\n"}) {
        cases.push_back({.name = std::string("closed behind ") + said,
                         .script = std::string(said) + "S: (closed)\nC: (closed)\n",
                         .log = ImpliedLog({}) + "{closed}\nError..Closing Socket\n",
                         .result = 0});
    }
    CheckAll(cases);
}

// A conversation up to the point at which the server fails, and the end of the log for each way in which it does.
struct Step {
    PopCase begun;
    std::string when_late;
    std::string when_gone;  // "{gone}" stands for the reply that the socket gives in place of the server's
    int result_when_late = 0;
    int result_when_gone = 0;
};

std::vector<Step> Steps() {
    // A server that has gone is told apart from one that refuses: QUIT is logged, though it reaches nobody.
    const std::string late = "{timeout}\nTimeoutError..Closing Socket\n";
    const std::string login_gone = "{gone}\n{gone}\nQUIT\n{gone}\n";
    const std::string final_gone = login_gone + "{gone}\n";
    std::vector<Step> steps;
    for (const PopCase& one : Refusable()) steps.push_back({one, late, IsLogin(one) ? login_gone : final_gone});
    const std::vector<Step> others = {
        {{.name = "half an answer to PASS",
          .script = kConnected + "C: USER alice\nS: +OK\nC: PASS secret\nS- +OK wel\n"},
         late,
         login_gone},
        {{.name = "QUIT after a login refusal that speaks of a lost connection",
          .script = kConnected + "C: USER alice\nS: -ERR Disconnected\nC: QUIT\n",
          .log = ImpliedLog({.script = kConnected + "C: USER alice\nS: -ERR Disconnected\n"}) +
                 "-ERR Disconnected\nQUIT\n"},
         late,
         "{gone}\n"},
        {{.name = "UIDL; LIST is tried where the server has gone", .script = kLoggedIn + "C: UIDL\n"},
         late,
         "{gone}\nLIST\n" + final_gone},
        {{.name = "half an answer to UIDL", .script = kLoggedIn + "C: UIDL\nS: +OK\nS: 1 a\n"},
         late,
         "{gone}\nLIST\n" + final_gone},
        {{.name = "half an answer to LIST", .script = kLoggedIn + "C: UIDL\nS: -ERR\nC: LIST\nS: +OK\nS: 1 5\n"},
         late,
         final_gone},
        {{.name = "QUIT after a LIST that speaks of a lost connection",
          .script = kLoggedIn + "C: UIDL\nS: -ERR\nC: LIST\nS: -ERR Disconnected\nC: QUIT\n",
          .log = ImpliedLog({.script = kLoggedIn}) + "UIDL\n-ERR\nLIST\n-ERR Disconnected\n-ERR Disconnected\nQUIT\n"},
         late + "TimeoutError..Closing Socket\n",
         "{gone}\n{gone}\n"},
        {{.name = "the first RETR; where the server has gone every message fails, and that is no failure",
          .script = kListed + "C: RETR 1\n",
          .present = {"a", "b"}},
         "TimeoutError..Closing Socket\n",
         "RETR 2\nb receive error\nQUIT\n{gone}\n",
         0,
         1},
        {{.name = "half of the second message; the first is kept",
          .script = kListed + "C: RETR 1\nS: +OK\nS: x\nS: .\nC: RETR 2\nS: +OK\nS: Subject: two\n",
          .mails = {"a: \r\nx\r\n.\r\n"},
          .present = {"a", "b"}},
         "TimeoutError..Closing Socket\n",
         "QUIT\n{gone}\n",
         0,
         1},
        {{.name = "QUIT, which changes nothing",
          .script = kListed + "C: QUIT\n",
          .present = {"a", "b"},
          .handled = {"a", "b"}},
         "{timeout}\n",
         "{gone}\n",
         1,
         1},
    };
    steps.insert(steps.end(), others.begin(), others.end());
    for (Step& step : steps) {
        if (step.begun.log.empty()) step.begun.log = ImpliedLog(step.begun);
    }
    return steps;
}

TEST(PopProcess, EndsWhenTheServerStalls) {
    std::vector<PopCase> cases;
    for (const Step& step : Steps()) {
        PopCase& one = cases.emplace_back(step.begun);
        one.script += "C: (closed)\n";
        one.log += step.when_late;
        one.result = step.result_when_late;
        one.timeout = kStallTimeOut_s;
    }
    CheckAll(cases);
}

TEST(PopProcess, EndsWhenTheServerGoes) {
    std::vector<PopCase> cases;
    for (const Step& step : Steps()) {
        PopCase closed = step.begun;
        closed.log += Replaced(step.when_gone, "{gone}", "{closed}");
        closed.result = step.result_when_gone;
        PopCase reset = closed;
        reset.log = Replaced(closed.log, "{closed}", "{reset}");
        closed.script += "S: (closed)\nC: (closed)\n";
        reset.script += "S: (reset)\n";
        cases.insert(cases.end(), {closed, reset});
    }
    CheckAll(cases);
}

TEST(PopProcess, WaitsForASlowListingAndASlowMessageAsLongAsTheyProgress) {
    PopCase slow = {.name = "",
                    .script = kLoggedIn + R"(C: UIDL
S~ +OK
S~ 1 this-unique-id-comes-byte-by-byte-and-needs-more-than-a-second
S~ .
C: RETR 1
S~ +OK
S~ Subject: this comes byte by byte and needs more than a second
S~ 
S~ .
)" + kQuit,
                    .mails = {"this-unique-id-comes-byte-by-byte-and-needs-more-than-a-second: \r\nSubject: this comes "
                              "byte by byte and needs more than a second\r\n\r\n.\r\n"},
                    .present = {"this-unique-id-comes-byte-by-byte-and-needs-more-than-a-second"},
                    .timeout = kStallTimeOut_s};
    CheckAll({slow});
}

// What would smuggle a command of its own past the conversation is never sent; the socket answers for the server.
TEST(PopProcess, SendsNoArgumentThatHoldsALineEnd) {
    const std::string refused = "-ERR an argument with CR, LF or NUL was not sent\n";
    const std::string zero(1, '\0');
    CheckAll(
        {
            {.name = "user name",
             .script = kConnected + "C: (closed)\n",
             .log = ImpliedLog({.script = kConnected}) + "USER alice\\r\\nDELE 1\n" + refused + refused,
             .result = 0,
             .user = "alice\r\nDELE 1"},

            {.name = "password",
             .script = kConnected + "C: USER alice\nS: +OK\nC: (closed)\n",
             .log = ImpliedLog({.script = kConnected}) + "USER alice\n+OK\nPASS ****\n" + refused + refused,
             .result = 0,
             .password = "a\nb" + zero},

            {.name = "message number, which is the server's own doing, so the next message is fetched",
             .script = kLoggedIn + "C: UIDL\nS: +OK\nS: 1" + zero + R"( a
S: 2 b
S: .
)" + Fetch(2, "x") + kQuit,
             .log = ImpliedLog({.script = kLoggedIn}) + R"(UIDL
+OK\r\n1\0 a\r\n2 b\r\n.
RETR 1\0
a receive error
RETR 2
b received
)" + "QUIT\n+OK bye\n",
             .mails = {"b: \r\nx\r\n.\r\n"},
             .present = {"a", "b"}},
        });
}

// Whether the reset comes before or after the end of connecting is chance, and so is the first half of the reason.
TEST(PopProcess, EndsWhenTheConnectionIsResetInPlaceOfAGreeting) {
    Conversation server("S: (reset)\n");
    CPopProfile profile;
    Prepare(profile, {});
    profile.setting.popport = server.Port();
    CArray<CReceiveMail*, CReceiveMail*> mails;
    CCheckedMail handled;
    EXPECT_EQ(profile.PopProcess(&mails, &handled, nullptr), 0);
    const std::string attempt = "could not connect to 127.0.0.1 port " + std::to_string(server.Port());
    EXPECT_EQ(Replaced(LogText(profile.log), attempt, "connection lost"), PopLog(R"(Success to create pop socket
connecting.. 127.0.0.1
{reset}
Error..Closing Socket
)"));
    EXPECT_EQ(server.Transcript(), "S: (reset)\n");
}

TEST(PopProcess, EndsWhereNobodyListens) {
    CPopProfile profile;
    Prepare(profile, {});
    profile.setting.popport = UnusedPort();
    CArray<CReceiveMail*, CReceiveMail*> mails;
    CCheckedMail handled;
    EXPECT_EQ(profile.PopProcess(&mails, &handled, nullptr), 0);
    EXPECT_EQ(LogText(profile.log), R"(Success to create pop socket
connecting.. 127.0.0.1
-ERR Disconnected: could not connect to 127.0.0.1 port )" +
                                        std::to_string(profile.setting.popport) + R"(: Connection refused
Error..Closing Socket
)");
}

TEST(PopProcess, LogsASocketThatCannotBeCreated) {
    CPopProfile profile;
    Prepare(profile, {});
    CArray<CReceiveMail*, CReceiveMail*> mails;
    CCheckedMail handled;
    CCheckedMail present;

    int result = 1;
    {
        const NoDescriptors none;
        result = profile.PopProcess(&mails, &handled, &present);
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(LogText(profile.log), "Fail to create pop socket\n");
}

// The setting for a secure connection has no effect: nothing but plain TCP reaches the server.
TEST(PopProcess, TalksPlainlyWhateverTheSettingForASecureConnection) {
    const std::string script = kConnected + "C: USER alice\nS: -ERR\nC: (closed)\n";
    Conversation server(script);
    CPopProfile profile;
    Prepare(profile, {});
    profile.setting.popport = server.Port();
    profile.setting.sslpop = 1;
    CArray<CReceiveMail*, CReceiveMail*> mails;
    CCheckedMail handled;
    EXPECT_EQ(profile.PopProcess(&mails, &handled, nullptr), 0);
    EXPECT_EQ(server.Transcript(), Conversation::Expected(script));
}

TEST(PopProcess, LogsNothingWhileTheLogIsOff) {
    const std::string script = kListed + kQuit;
    Conversation server(script);
    CPopProfile profile;
    Prepare(profile, {});
    profile.setting.popport = server.Port();
    profile.log.SetLogMode(0);
    CArray<CReceiveMail*, CReceiveMail*> mails;
    CCheckedMail handled;
    handled.Add("a");
    handled.Add("b");
    EXPECT_EQ(profile.PopProcess(&mails, &handled, nullptr), 1);
    EXPECT_EQ(server.Transcript(), Conversation::Expected(script));
    EXPECT_TRUE(profile.log.entries.empty());
}

}  // namespace
}  // namespace tarvex::testing
