// The commands of `tarvex` that look and change nothing: check, plan, status, log; and what run can be told.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <future>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "testing/dns_server.h"
#include "testing/scripted_server.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using Output = ChildProcess::Output;
using nlohmann::json;

constexpr int kBadUsage = 64;
constexpr int kNotFound = 66;

// Every file below the folder: its content, and when it was written.
using Snapshot = std::map<std::string, std::pair<std::string, fs::file_time_type>>;

Snapshot SnapshotOf(const std::string& folder) {
    Snapshot snapshot;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file()) continue;
        snapshot[entry.path()] = {ReadFile(entry.path()), entry.last_write_time()};
    }
    return snapshot;
}

// Waits until the program has printed the text.
void WaitUntilPrinted(ChildProcess& program, const std::string& text) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (program.Printed().find(text) == std::string::npos) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << program.Printed();
        ASSERT_FALSE(program.WaitFor(20ms)) << program.Printed() << program.Errors();
    }
}

// ---- check

TEST(HostCheck, ShowsEveryStepWithItsTime) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink("user", "secret");
    mailbox.Add(MailNumber(1));
    Host host;
    host.AddProfile(mailbox.Port(), sink.Port(), [](CPopProfile& profile) { profile.setting.smtpauth = 1; });
    const Snapshot before = SnapshotOf(host.Root());
    const std::string printed = host.Tell({"check", "--no-dns"});
    EXPECT_THAT(printed, StartsWith("user0/from0  me@example.org\n  POP3, 127.0.0.1 port " +
                                    std::to_string(mailbox.Port()) + "\n"));
    for (const char* const step :
         {"connect +[0-9]+ ms\n", "greeting +[0-9]+ ms  .OK", "log in +[0-9]+ ms  .OK 1 messages\n",
          "list +[0-9]+ ms  .OK  .1 message, 46 bytes.\n", "hello +[0-9]+ ms  250-localhost\n",
          "log in +[0-9]+ ms  235 2.7.0 welcome\n", "quit +[0-9]+ ms  221"}) {
        EXPECT_THAT(printed, ContainsRegex(std::string("\n    ") + step));
    }
    EXPECT_THAT(printed, Not(HasSubstr("FAILED")));
    EXPECT_EQ(SnapshotOf(host.Root()), before);
    EXPECT_EQ(mailbox.Received("RETR") + mailbox.Received("DELE") + sink.Received("DATA"), 0);
}

TEST(HostCheck, AFailedStepComesWithAdviceAndCode69) {
    MailboxServer mailbox("user", "other password");
    Host host;
    host.AddProfile(mailbox.Port(), UnusedPort());
    const std::string printed = host.Tell({"check", "--no-dns", "from0"}, kUnavailable);
    EXPECT_THAT(printed, ContainsRegex("\n    log in +[0-9]+ ms  FAILED  -ERR wrong user or password\n"
                                       "      The server refused the login: set --popuser and --password"));
    EXPECT_THAT(printed, ContainsRegex("\n    connect +[0-9]+ ms  FAILED  could not connect .*Connection refused\n"
                                       "      Nothing listens there: smtpport may be wrong"));
    EXPECT_THAT(printed, Not(HasSubstr("secret")));
}

TEST(HostCheck, OneServerThatFailsIsEnough) {
    MailboxServer mailbox("user", "secret");
    MailboxServer closed_mailbox("user", "other password");
    SinkServer sink;
    Host host;
    host.AddProfile(closed_mailbox.Port(), sink.Port());
    host.AddProfile(mailbox.Port(), UnusedPort());
    host.AddProfile(mailbox.Port(), sink.Port());
    host.Tell({"check", "--no-dns", "user0/from0"}, kUnavailable);
    host.Tell({"check", "--no-dns", "user1/from0"}, kUnavailable);
    host.Tell({"check", "--no-dns", "user2/from0"});
    host.Tell({"check", "--no-dns"}, kUnavailable);
}

TEST(HostCheck, SaysWhatIsStrangeThoughNothingFailed) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    mailbox.OfferUidl(false);
    Host host;
    host.AddProfile(mailbox.Port(), sink.Port(), [](CPopProfile& profile) {
        profile.setting.smtpauth = 1;
        profile.setting.status = 0;
        profile.DeleteForwardAddress(profile.forward_addresses[0].get());
    });
    const std::string printed = host.Tell({"check", "--no-dns"});
    for (const char* const note :
         {"no unique ids", "mail goes out without a login", "switched off (status 0)", "no forwarding address yet"}) {
        EXPECT_THAT(printed, HasSubstr(note));
    }
}

TEST(HostCheck, WhatAServerSaysReachesTheTerminalHarmlessly) {
    ScriptedServer server([](Peer& peer) { peer.Send("-ERR \x1B]0;owned\x07 \x9B\r\n"); });
    Host host;
    host.AddProfile(server.Port(), UnusedPort());
    EXPECT_THAT(host.Tell({"check", "--no-dns"}, kUnavailable),
                AllOf(HasSubstr("\\x1b]0;owned\\x07 ?\n"), Not(HasSubstr("\x1B"))));
}

TEST(HostCheck, TellsTheSameAsJson) {
    MailboxServer mailbox("user", "secret");
    mailbox.Add(MailNumber(1));
    const int closed = UnusedPort();
    Host host;
    host.AddProfile(mailbox.Port(), closed);
    const json list = json::parse(host.Tell({"check", "--no-dns", "--json"}, kUnavailable));
    ASSERT_EQ(list.size(), 1u);
    const json& pop = list[0]["pop3"];
    EXPECT_EQ(pop["good"], true);
    EXPECT_EQ(pop["messages"], 1);
    EXPECT_EQ(pop["bytes"], 46);
    EXPECT_EQ(pop["steps"].size(), 6u);
    EXPECT_EQ(pop["steps"][3]["step"], "log in");
    EXPECT_EQ(pop["steps"][3]["text"], "+OK 1 messages");
    EXPECT_EQ(pop["steps"][3]["advice"], nullptr);
    const json& smtp = list[0]["smtp"];
    EXPECT_EQ(smtp["good"], false);
    EXPECT_EQ(smtp["port"], closed);
    EXPECT_EQ(smtp["login"], nullptr);
    EXPECT_EQ(smtp["steps"][1]["success"], false);
    EXPECT_THAT(smtp["steps"][1]["advice"].get<std::string>(), StartsWith("Nothing listens there"));
}

// ---- check: what receivers will think

// A profile of me@example.org between servers that take everything, with one address that gets text mail.
struct Checked {
    Checked() {
        host.AddProfile(mailbox.Port(), sink.Port(),
                        [](CPopProfile& profile) { profile.forward_addresses[0]->setting.textonly = 120; });
    }
    MailboxServer mailbox{"user", "secret"};
    SinkServer sink;
    DnsServer dns;
    Host host;
};

TEST(HostCheck, SaysWhatReceiversWillThinkOfTextMail) {
    Checked checked;
    checked.dns.Add("example.org", "v=spf1 mx -all");
    checked.dns.Add("_dmarc.example.org", "v=DMARC1; p=reject");
    const std::string printed = checked.host.Tell({"check", "--dns", checked.dns.Address()});
    EXPECT_THAT(printed, AllOf(ContainsRegex("\n  Receivers, example.org\n    SPF +v=spf1 mx -all\n"
                                             "    DMARC +reject \\(_dmarc.example.org\\)\n      Note: text mail"),
                               HasSubstr("example.org has one (reject)"), HasSubstr("--replacefrom on")));
    const json list = json::parse(checked.host.Tell({"check", "--json", "--dns", checked.dns.Address()}));
    const json& receivers = list[0]["receivers"];
    EXPECT_EQ(receivers["domain"], "example.org");
    EXPECT_EQ(receivers["spf"], json::array({"v=spf1 mx -all"}));
    EXPECT_EQ(receivers["dmarc"], json({{"name", "_dmarc.example.org"}, {"policy", "reject"}}));
    EXPECT_EQ(receivers["error"], nullptr);
    EXPECT_EQ(receivers["notes"].size(), 1u);
}

TEST(HostCheck, AsksAboutADomainOnceAndNotAtAllWhenToldSo) {
    Checked checked;
    checked.host.AddProfile(checked.mailbox.Port(), checked.sink.Port());
    checked.host.Tell({"check", "--dns", checked.dns.Address()});
    EXPECT_THAT(checked.dns.Asked(), ::testing::ElementsAre("example.org", "_dmarc.example.org"));
    EXPECT_THAT(checked.host.Tell({"check", "--no-dns"}), Not(HasSubstr("Receivers")));
    EXPECT_THAT(checked.host.Tell({"check", "--no-dns", "--json"}), HasSubstr(R"("receivers": null)"));
}

TEST(HostCheck, TroubleWithTheDnsIsANoteInGoodTime) {
    Checked checked;
    checked.dns.Replies([](const std::string&, bool) { return std::vector<std::string>(); });
    const auto start = std::chrono::steady_clock::now();
    const std::string printed = checked.host.Tell({"check", "--dns", checked.dns.Address()});
    EXPECT_LT(std::chrono::steady_clock::now() - start, 20s);
    EXPECT_THAT(printed, ContainsRegex("\n    SPF +not known: no answer from the DNS in time\n    DMARC +not known: "));
    checked.dns.Replies([](const std::string&, bool) { return std::vector{std::string(30, '\xFF')}; });
    checked.host.Tell({"check", "--dns", checked.dns.Address()});
    checked.dns.Replies(nullptr);
    checked.dns.Add("example.org", "v=spf1 \x1B]0;owned\x07 \x9B -all");
    EXPECT_THAT(checked.host.Tell({"check", "--dns", checked.dns.Address()}),
                AllOf(HasSubstr("\\x1b]0;owned\\x07"), Not(HasSubstr("\x1B"))));
}

// ---- what could not be read

TEST(HostLooks, SayWhatCouldNotBeReadAndEndWith74) {
    const std::string profile = "user0/from0/popprofile.def";
    const std::string forward = "user0/from0/forwardto0/forwardaddress.def";
    const std::string schedule = "user0/from0/forwardto0/schedule.def";
    struct {
        std::string file;
        std::vector<std::string> command;
        std::string beside;  // what is printed all the same
    } const cases[] = {
        {"user0/userset.def", {"user", "list"}, "listed with defaults"},
        {"user0/userset.def", {"user", "show", "user0"}, ""},
        {profile, {"profile", "list"}, "user0/from0 is listed with defaults"},
        {profile, {"profile", "list", "user0", "--json"}, R"("path": "user0/from0")"},
        {profile, {"profile", "show", "user0/from0"}, ""},
        {profile, {"check", "--no-dns"}, "A run leaves it out"},
        {profile, {"check", "--no-dns", "--json"}, R"("pop3": null)"},
        {forward, {"forward", "list"}, "forwardto0 is listed with defaults"},
        {forward, {"forward", "show", "user0/from0/forwardto0", "--json"}, ""},
        {forward, {"check", "--no-dns"}, "POP3, 127.0.0.1"},
        {schedule, {"forward", "list", "user0/from0"}, "forwardto0 is listed with defaults"},
        {schedule, {"forward", "show", kPhone}, ""},
        {schedule, {"schedule", "list", kPhone}, ""},
        {"user0/from0/forwardto0", {"forward", "list"}, "the list may not be whole"},
        {"user0/from0", {"profile", "list"}, "the list may not be whole"},
        {"user0/from0", {"profile", "list", "user0"}, "the list may not be whole"},
        {"user0/from0", {"forward", "list"}, "the list may not be whole"},
        {"user0", {"user", "list"}, "the list may not be whole"},
        {"user0/from0", {"check", "--no-dns"}, "its profiles are not known"},
        {"user0", {"plan"}, "its profiles are not known"},
    };
    for (const auto& [file, command, beside] : cases) {
        SCOPED_TRACE(file + ", " + command[0] + ' ' + command.back());
        Host host;
        host.AddProfile(UnusedPort(), 1);
        const std::string path = host.Root() + '/' + file;
        fs::remove_all(path);
        // Not even the superuser can read a directory as a file, or follow a link to itself.
        file.ends_with(".def") ? static_cast<void>(fs::create_directory(path)) : fs::create_symlink(path, path);
        ChildProcess program = host.StartCommand(command);
        program.Wait();
        EXPECT_EQ(program.ExitCode(), 74);
        EXPECT_THAT(program.Printed() + program.Errors(), AllOf(HasSubstr("cannot read "), HasSubstr(beside)));
    }
}

// ---- plan

TEST(HostPlan, SaysWhatTheRunThenDoesAndChangesNothing) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    mailbox.Add(MailNumber(1));
    mailbox.Add(MailNumber(2));
    Host host;
    host.AddProfile(mailbox.Port(), sink.Port(), [](CPopProfile& profile) {
        profile.CreateNewForwardAddress("pager", "pager@example.net")->setting.textonly = 120;
        profile.CreateNewForwardAddress("off", "off@example.net")->setting.status = 0;
    });
    const Snapshot before = SnapshotOf(host.Root());
    const std::string printed = host.Tell({"plan"});
    EXPECT_THAT(printed, StartsWith("user0/from0  me@example.org  (due now)\n"));
    EXPECT_THAT(printed, HasSubstr("\n  phone@example.net: takes part\n"));
    EXPECT_THAT(printed, HasSubstr("\n  off@example.net: switched off\n"));
    EXPECT_THAT(printed, HasSubstr("\n  2 messages in the mailbox, 2 to fetch\n"));
    EXPECT_THAT(printed, ContainsRegex("\n +fetch 2  mail-2  46 bytes  -> .*phone@example.net"));
    EXPECT_THAT(printed, HasSubstr("pager@example.net as text of at most 120 bytes"));
    EXPECT_EQ(SnapshotOf(host.Root()), before);
    EXPECT_EQ(mailbox.Received("RETR") + mailbox.Received("DELE"), 0);

    host.Run();
    EXPECT_EQ(sink.Delivered().size(), 4u);
    mailbox.Add(MailNumber(3));
    const std::string after = host.Tell({"plan", "me@example.org"});
    EXPECT_THAT(after, HasSubstr("\n  3 messages in the mailbox, 1 to fetch, 2 handled already\n"));
    EXPECT_THAT(after, AllOf(HasSubstr("fetch 3  mail-3"), Not(HasSubstr("mail-1"))));
}

TEST(HostPlan, ShowsFromAndSubjectWhereSomebodyAsks) {
    MailboxServer mailbox("user", "secret");
    mailbox.Add({"a", "From: =?UTF-8?B?5bGx55Sw?= <y@mail.test>\r\nSubject: =?UTF-8?B?5Lya6K2w?=\r\n\r\n"});
    mailbox.Add({"b", "Subject: \x1b[31mred\r\n\r\n"});
    Host host;
    host.AddProfile(mailbox.Port(), 1);
    EXPECT_THAT(host.Tell({"plan"}), Not(HasSubstr("会議")));
    EXPECT_EQ(mailbox.Received("TOP"), 0);
    EXPECT_THAT(host.Tell({"plan", "--subjects"}),
                AllOf(ContainsRegex("fetch 1  山田 <y@mail.test>  会議 +a  [0-9]+ bytes  -> phone@example.net\n"),
                      HasSubstr("red"), Not(HasSubstr("\x1b")), Not(HasSubstr("not known"))));
    const json told = json::parse(host.Tell({"plan", "--subjects", "--json"}))[0]["messages"];
    EXPECT_EQ(told[0]["from"], "山田 <y@mail.test>");
    EXPECT_EQ(told[0]["subject"], "会議");
    EXPECT_EQ(mailbox.Received("RETR"), 0);
    mailbox.SetFault([](const std::string& command) { return command.starts_with("TOP") ? "-ERR what?" : ""; });
    EXPECT_THAT(host.Tell({"plan", "--subjects"}), AllOf(HasSubstr("the server has no TOP"), HasSubstr("fetch 2")));
}

TEST(HostPlan, SaysWhenAProfileIsDueAndWhatIsDeleted) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    mailbox.Add(MailNumber(1));
    Host host;
    host.AddProfile(mailbox.Port(), sink.Port(), [](CPopProfile& profile) {
        profile.setting.timer = 60;
        profile.setting.deletemail = 1;
    });
    host.Tell({"run", "--now"});
    const std::string printed = host.Tell({"plan"});
    EXPECT_THAT(printed, ContainsRegex("  .due in (59|60) min, at [-0-9]+ [:0-9]+; as if it ran now.\n"));
    EXPECT_THAT(printed,
                EndsWith("\n  1 message in the mailbox, 0 to fetch, 1 handled already and to be deleted on the "
                         "server\n"));
    EXPECT_EQ(mailbox.Mails().size(), 1u);
}

TEST(HostPlan, WithoutAnAddressThatTakesPartNoConnectionIsMade) {
    ScriptedServer server([](Peer& peer) { peer.WaitForClose(); });
    Host host;
    host.AddProfile(server.Port(), 1, [](CPopProfile& profile) {
        CTerm term;
        term.status = 1;
        term.kind = TERM_DEFINED_TERM;
        term.start = "2000,1,1,0,0,0";
        term.end = "2000,1,2,0,0,0";
        profile.forward_addresses[0]->schedule.AddNewTerm(&term);
        profile.forward_addresses[0]->SaveScheduleSetting();
    });
    const std::string printed = host.Tell({"plan"});
    EXPECT_THAT(printed, HasSubstr("phone@example.net: outside its schedule now\n  No address takes part"));
    EXPECT_EQ(server.Connections(), 0);
}

TEST(HostPlan, AMailboxThatCannotBeListedEndsWithAdviceAndCode69) {
    Host host;
    host.AddProfile(UnusedPort(), 1);
    EXPECT_THAT(host.Tell({"plan"}, kUnavailable),
                AllOf(HasSubstr("The mailbox cannot be listed: connect: could not connect"), HasSubstr("popport")));
}

TEST(HostPlan, TellsTheSameAsJson) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    mailbox.Add(MailNumber(1));
    Host host;
    host.AddProfile(mailbox.Port(), sink.Port());
    host.Run();
    mailbox.Add(MailNumber(2));
    host.AddProfile(UnusedPort(), 1);
    host.AddProfile(1, 1, [](CPopProfile& profile) { profile.forward_addresses[0]->setting.status = 0; });
    const json list = json::parse(host.Tell({"plan", "--json"}, kUnavailable));
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0]["path"], "user0/from0");
    EXPECT_EQ(list[0]["due"], true);
    EXPECT_EQ(list[0]["error"], nullptr);
    EXPECT_EQ(list[0]["addresses"][0]["takes_part"], true);
    ASSERT_EQ(list[0]["messages"].size(), 2u);
    EXPECT_EQ(list[0]["messages"][0]["fetch"], false);
    EXPECT_EQ(list[0]["messages"][1]["fetch"], true);
    EXPECT_EQ(list[0]["messages"][1]["uidl"], "mail-2");
    EXPECT_EQ(list[0]["messages"][1]["bytes"], 46);
    EXPECT_EQ(list[0]["messages"][1]["destinations"][0]["address"], kPhone);
    EXPECT_THAT(list[1]["error"].get<std::string>(), StartsWith("could not connect"));
    EXPECT_EQ(list[2]["addresses"][0]["takes_part"], false);
    EXPECT_EQ(list[2]["error"], nullptr);
}

TEST(HostPlan, SaysThatAProfileIsLeftOut) {
    Host host;
    host.AddProfile(UnusedPort(), 1);
    testing::WriteFile(host.Root() + "/user0/from0/forwardto0/forwardaddress.def", "");
    EXPECT_THAT(host.Tell({"plan"}, 74), HasSubstr("A run leaves it out: cannot read \""));
    const json list = json::parse(host.Tell({"plan", "--json"}, 74));
    EXPECT_THAT(list[0]["error"].get<std::string>(), HasSubstr("forwardaddress.def\": it is empty"));
    EXPECT_EQ(list[0]["messages"].size(), 0u);
}

// ---- status

TEST(HostStatus, TellsWhatTheRunsDid) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    mailbox.Add(MailNumber(1));
    mailbox.Add(MailNumber(2));
    Host host;
    const int closed = UnusedPort();
    host.AddProfile(mailbox.Port(), sink.Port());
    host.AddProfile(closed, 1, [](CPopProfile& profile) { profile.setting.timer = 600; });
    host.AddProfile(1, 1, [](CPopProfile& profile) { profile.setting.status = 0; });
    const std::time_t begun = std::time(nullptr);
    for (int i = 0; i < 2; ++i) host.Run(kUnavailable, {"user0/from0", "user1/from0", "--now"});

    const std::string printed = host.Tell({"status"}, 1);
    EXPECT_THAT(printed, StartsWith("PROFILE  "));
    EXPECT_THAT(printed,
                ContainsRegex("\nuser0/from0 +me@example.org +[-0-9]+ [:0-9]+ +now +2 +0 +2 +2 +nothing new\n"));
    EXPECT_THAT(printed,
                ContainsRegex("\nuser1/from0 .* in (9|10) h +2 +2 +0 +0 +failed .2 in a row.: could not connect"));
    EXPECT_THAT(printed, ContainsRegex("\nuser2/from0 +me@example.org +never +switched off +0 +0 +0 +0\n"));
    EXPECT_EQ(host.Tell({"status", "user2/from0"}).find("user0"), std::string::npos);

    const json list = json::parse(host.Tell({"status", "--json"}, 1));
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0]["path"], "user0/from0");
    EXPECT_EQ(list[0]["due"], true);
    EXPECT_EQ(list[0]["ended"], "nothing new");
    EXPECT_EQ(list[0]["reason"], nullptr);
    EXPECT_EQ(list[0]["fetched"], 2);
    EXPECT_EQ(list[0]["delivered"], 2);
    EXPECT_EQ(list[0]["copies"], 2);
    EXPECT_EQ(list[0]["failure"], nullptr);
    std::tm moment{};
    ASSERT_NE(strptime(list[0]["last_run"].get<std::string>().c_str(), "%Y-%m-%dT%H:%M:%S%z", &moment), nullptr);
    moment.tm_isdst = -1;
    EXPECT_GE(std::mktime(&moment), begun);
    EXPECT_EQ(list[1]["ended"], "mailbox failed");
    EXPECT_EQ(list[1]["failed_in_a_row"], 2);
    EXPECT_EQ(list[1]["due"], false);
    EXPECT_THAT(list[1]["reason"].get<std::string>(),
                HasSubstr("could not connect to 127.0.0.1 port " + std::to_string(closed)));
    EXPECT_EQ(list[1]["failure"]["conversation"], "mailbox");
    EXPECT_EQ(list[1]["failure"]["stage"], "connect");
    EXPECT_EQ(list[1]["failure"]["class"], "connection");
    EXPECT_EQ(list[1]["last_good_run"], nullptr);
    EXPECT_EQ(list[2]["last_run"], nullptr);
    EXPECT_EQ(list[2]["switched_on"], false);
}

TEST(HostStatus, AProfileThatWaitsForAMomentLongAwayIsPointedOut) {
    Host host;
    const auto add = [&](CTime last_due) {
        host.AddProfile(1, 1, [&](CPopProfile& profile) {
            profile.setting.timer = 10;
            profile.setting.lasttime = last_due;
        });
    };
    add(std::time(nullptr));
    EXPECT_EQ(host.Tell({"status"}).find("clock"), std::string::npos);
    add(std::time(nullptr) + 3600);
    EXPECT_THAT(host.Tell({"status"}), ContainsRegex("\nuser1/from0 was last due at .* was the clock wrong"));
}

TEST(HostStatus, AnEmptyTreeIsNoErrorAndNeitherIsALogThatIsOff) {
    MailboxServer mailbox("user", "secret");
    Host host;
    host.Run();
    EXPECT_THAT(host.Tell({"status"}), StartsWith("There is no profile yet"));
    EXPECT_EQ(json::parse(host.Tell({"status", "--json"})), json::array());
    host.AddProfile(mailbox.Port(), 1, [](CPopProfile& profile) { profile.setting.logmode = 0; });
    host.Run();
    EXPECT_THAT(host.Tell({"status"}), HasSubstr(" 1     0       0          0       nothing new\n"));
}

// The log would have lost the start of the run.
TEST(HostStatus, CountsCopiesAndOutlivesTheLog) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    for (int mail = 1; mail <= 3; ++mail) mailbox.Add(MailNumber(mail));
    Host host;
    const std::string profile = host.AddProfile(mailbox.Port(), sink.Port(), [](CPopProfile& changed) {
        changed.setting.logsize = 1;
        changed.CreateNewForwardAddress("pager", "pager@example.net");
    });
    EXPECT_THAT(host.Run(), StartsWith("== " + profile + ": forwarded 3 messages (6 copies)\n"));
    EXPECT_THAT(host.Tell({"status"}), ContainsRegex(" 1 +0 +3 +6 +forwarded 3 messages .6 copies.\n"));
}

// As after an upgrade.
TEST(HostStatus, AProfileWithoutARecordSaysSoWhereItHasRun) {
    Host host;
    WriteFile(host.AddProfile(1, 1) + "/profile.log", "a run\r\n");
    EXPECT_THAT(host.Tell({"status"}), ContainsRegex("example.org +[-0-9]+ [:0-9]+ +now +0 +0 +0 +0 +no record yet\n"));
}

TEST(HostStatus, SaysWhatTheServerRefused) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    mailbox.Add(MailNumber(1));
    sink.SetFault([](const std::string& command) { return command.starts_with("RCPT") ? "550 no such user" : ""; });
    Host host;
    host.AddProfile(mailbox.Port(), sink.Port());
    const std::string told = "failed: 550 no such user (phone@example.net)";
    ChildProcess run = host.StartCommand({"run", "--quiet"});
    run.Wait();
    EXPECT_EQ(run.ExitCode(), kUnavailable);
    EXPECT_EQ(run.Printed(), "");
    EXPECT_EQ(run.Errors(), "tarvex: user0/from0: " + told + "\n");
    EXPECT_THAT(host.Tell({"status"}, 1), HasSubstr(told + '\n'));
    const json failure = json::parse(host.Tell({"status", "--json"}, 1))[0]["failure"];
    EXPECT_EQ(failure["conversation"], "delivery");
    EXPECT_EQ(failure["stage"], "RCPT TO");
    EXPECT_EQ(failure["class"], "permanent");
    EXPECT_EQ(failure["id"], "mail-1");
    EXPECT_EQ(failure["sender"], "me@example.org");
    EXPECT_EQ(failure["recipient"], "phone@example.net");
}

// Servers without ids, and ids that do not come back from the file as they were: the disk is fine.
TEST(HostRun, WhatTheListCannotHoldIsNoTroubleOfTheDisk) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    StoredMail mail = MailNumber(1);
    mail.uidl = " blank";
    mailbox.Add(mail);
    Host host;
    host.AddProfile(mailbox.Port(), sink.Port());
    host.Run();
    EXPECT_EQ(sink.Delivered().size(), 1u);
}

// ---- log

TEST(HostLog, ShowsTheLogOrItsEndAsUtf8) {
    Host host;
    const std::string profile = host.AddProfile(UnusedPort(), 1);
    WriteFile(profile + "/profile.log", "one\r\n\r\n\x8C\x67\x91\xD1\r\nlast \x1B[31m\r\n");
    EXPECT_EQ(host.Tell({"log", "from0"}), "one\n\n携帯\nlast \\x1b[31m\n");
    EXPECT_EQ(host.Tell({"log", "from0", "-n", "2"}), "携帯\nlast \\x1b[31m\n");
    EXPECT_EQ(host.Tell({"log", "-n", "0", "from0"}), "");
    EXPECT_EQ(host.Tell({"log", "-n9", "from0"}), "one\n\n携帯\nlast \\x1b[31m\n");
}

TEST(HostLog, WhatIsShownOfARunStarsTheLoginAndTellsLinesOfServersApart) {
    const std::string login = "dXNlcgB1c2VyAHNlY3JldA==";  // user, NUL, user, NUL, secret
    const std::string stars(login.size(), '*');
    MailboxServer mailbox("user", "secret");
    SinkServer sink("user", "secret");
    mailbox.Add(MailNumber(1));
    mailbox.SetFault([](const std::string& command) { return command == "QUIT" ? "---- End Operation at noon" : ""; });
    sink.SetFault([&](const std::string& command) {
        return command.starts_with("RCPT") ? "550-" + login + "\r\n* SMTP Process - success : " : "";
    });
    Host host;
    const std::string profile = host.AddProfile(mailbox.Port(), sink.Port(), [](CPopProfile& changed) {
        changed.setting.smtpauth = changed.setting.smtpauth_mode = 1;
    });
    const std::string run = host.Run(kUnavailable);
    const std::string log = host.Tell({"log", "from0"});
    EXPECT_THAT(Log(profile), HasSubstr("\n" + login + "\n"));
    for (const std::string& shown : {run, log, host.Tell({"status"}, 1), host.Tell({"status", "--json"}, 1)}) {
        EXPECT_THAT(shown, Not(HasSubstr(login)));
    }
    for (const std::string& shown : {run, log}) {
        EXPECT_THAT(shown, AllOf(HasSubstr("\n" + stars + "\n235"), HasSubstr("\n? ---- End Operation at noon\n")));
    }
    EXPECT_THAT(run, HasSubstr("\n550-" + stars + "\n  * SMTP Process - success : \n"));
}

TEST(HostLog, WithoutALogOrAProfileThereIsAReason) {
    Host host;
    host.AddProfile(UnusedPort(), 1);
    for (const auto& [name, reason] :
         {std::pair("from0", "tarvex: user0/from0 has no log yet: a run writes it at its end\n"),
          std::pair("from7",
                    "tarvex: there is no profile \"from7\"; there are:\n"
                    "  user0/from0  (me@example.org)\n")}) {
        ChildProcess log = host.StartCommand({"log", name});
        log.Wait();
        EXPECT_EQ(log.ExitCode(), kNotFound);
        EXPECT_EQ(log.Errors(), reason);
        EXPECT_EQ(log.Printed(), "");
    }
}

// ---- run

TEST(HostRun, RunsTheNamedProfilesAlone) {
    MailboxServer first("user", "secret"), second("user", "secret");
    SinkServer sink;
    Host host;
    const std::string profile = host.AddProfile(first.Port(), sink.Port());
    host.AddProfile(second.Port(), sink.Port());
    EXPECT_THAT(host.Tell({"run", "user0/from0"}), StartsWith("== " + profile + ": nothing new\n----"));
    EXPECT_EQ(first.Received("QUIT"), 1);
    EXPECT_EQ(second.Received("QUIT"), 0);
    EXPECT_EQ(host.Tell({"run", "user1/from0", "user0/from0", "user1/from0", "--quiet"}), "");
    EXPECT_EQ(first.Received("QUIT"), 2);
    EXPECT_EQ(second.Received("QUIT"), 1);

    ChildProcess ambiguous = host.StartCommand({"run", "from0"});
    ambiguous.Wait();
    EXPECT_EQ(ambiguous.ExitCode(), kBadUsage);
    EXPECT_THAT(ambiguous.Errors(), AllOf(HasSubstr("user0/from0"), HasSubstr("user1/from0")));
    ChildProcess unknown = host.StartCommand({"run", "user0/from0", "user2/from0"});
    unknown.Wait();
    EXPECT_EQ(unknown.ExitCode(), kNotFound);
    EXPECT_EQ(first.Received("QUIT"), 2);
}

TEST(HostRun, NowRunsWhatIsNotDueAndSaysWhyElseItDoesNot) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    Host host;
    host.AddProfile(mailbox.Port(), sink.Port(), [](CPopProfile& profile) { profile.setting.timer = 60; });
    host.AddProfile(1, 1, [](CPopProfile& profile) { profile.setting.status = 0; });
    EXPECT_THAT(host.Tell({"run", "user0/from0"}),
                ContainsRegex("^user0/from0 is not due before [-0-9]+ [:0-9]+; --now runs it all the same.\n$"));
    EXPECT_EQ(mailbox.Received("QUIT"), 0);
    host.Tell({"run", "user0/from0", "--now"});
    EXPECT_EQ(mailbox.Received("QUIT"), 1);
    EXPECT_EQ(host.Tell({"run"}), "No profile was due.\n");  // it counts as having just run
    EXPECT_EQ(host.Tell({"run", "--now", "user1/from0"}), "user1/from0 is switched off (status 0).\n");
}

TEST(HostRun, ATerminalShowsHowFarEachRunIs) {
    MailboxServer mailbox("user", "secret");
    SinkServer sink;
    for (int mail = 1; mail <= 2; ++mail) mailbox.Add(MailNumber(mail));
    std::promise<void> go_on;
    sink.SetFault([&, gone_on = go_on.get_future().share()](const std::string& command) {
        if (command == "QUIT") gone_on.wait_for(20s);
        return "";
    });
    Host host;
    host.AddProfile(mailbox.Port(), sink.Port());
    ChildProcess run = host.StartCommand({"run"}, Output::Terminal, {"TERM=xterm"});
    WaitUntilPrinted(run, "user0/from0  fetched 2 of 2, delivered 2  (");
    WaitUntilPrinted(run, "\x1b[1A\r\x1b[J");  // drawn anew
    go_on.set_value();
    run.Wait();
    EXPECT_EQ(run.ExitCode(), 0);
    // What is left on the terminal at the end is the run's log, behind the wiping of the progress.
    const std::string printed = Unix(run.Printed());
    EXPECT_THAT(printed.substr(printed.rfind('\x1b')), StartsWith("\x1b[J== "));
    EXPECT_THAT(printed, EndsWith("* SMTP Process - success : \n" + printed.substr(printed.rfind("---- End"))));
}

TEST(HostRun, ATerminalThatCannotRedrawOrAQuietRunShowsNoProgress) {
    for (const auto& [words, terminal] :
         {std::pair<std::vector<std::string>, std::string>{{"run"}, "TERM=dumb"}, {{"run", "--quiet"}, "TERM=xterm"}}) {
        MailboxServer mailbox("user", "secret");
        std::promise<void> stalls;
        mailbox.SetFault([&stalls](const std::string& command) {
            if (command != "UIDL") return "";
            stalls.set_value();
            return "stall";
        });
        Host host;
        host.AddProfile(mailbox.Port(), 1);
        ChildProcess run = host.StartCommand(words, Output::Terminal, {terminal});
        ASSERT_EQ(stalls.get_future().wait_for(20s), std::future_status::ready);
        EXPECT_FALSE(run.WaitFor(300ms));  // time enough to draw something
        run.Signal(SIGTERM);
        run.Wait();
        EXPECT_EQ(run.Printed(), "");
    }
}

}  // namespace
}  // namespace tarvex::testing
