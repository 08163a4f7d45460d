// One profile's run: its whole log, what it leaves on disk, and which messages go where.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "platform/os/system.h"
#include "testing/scripted_server.h"
#include "tests/support/forwarding.h"

namespace tarvex::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr const char* kStart = "\n---- Operation starting at Sunday, March 15, 2009 10:20:05\n";
constexpr const char* kEnd = "---- End Operation at (now)\n";

// The address lines of an address without a schedule.
std::string Enabled(const std::string& address) {
    return "* enabled : " + address + "\n* disable schedule : " + address + "\n";
}

// Two servers that say as little as they may, so that a log can be told word for word.

// The answer to UIDL, and what is to be said to RETR and DELE.
ScriptedServer::Session Pop(std::string listing) {
    return [listing = std::move(listing)](Peer& peer) {
        peer.Send("+OK ready\r\n");
        peer.Expect("USER alice");
        peer.Send("+OK user\r\n");
        peer.Expect("PASS secret");
        peer.Send("+OK pass\r\n");
        peer.Expect("UIDL");
        peer.Send("+OK\r\n" + listing + ".\r\n");
        for (;;) {
            const std::string line = peer.ReadLine();
            if (line == "QUIT") break;
            if (line.starts_with("RETR ")) {
                peer.SendUnrecorded("+OK\r\n" + Message("message " + line.substr(5)) + ".\r\n");
            } else {
                peer.Send("+OK deleted\r\n");
            }
        }
        peer.Send("+OK bye\r\n");
        peer.WaitForClose();
    };
}

void Smtp(Peer& peer) {
    peer.Send("220 sink\r\n");
    for (;;) {
        const std::string line = peer.ReadLine();
        if (line == "QUIT") break;
        if (line != "DATA") {
            peer.Send("250 fine\r\n");
            continue;
        }
        peer.Send("354 go on\r\n");
        peer.ReadMessage();
        peer.Send("250 taken\r\n");
    }
    peer.Send("221 bye\r\n");
    peer.WaitForClose();
}

// What the retrieval logs up to the answer to UIDL.
std::string LoggedListing(const std::string& listing) {
    return "Success to create pop socket\nconnecting.. 127.0.0.1\n+OK ready\nUSER alice\n+OK user\nPASS ******\n"
           "+OK pass\nUIDL\n+OK\n" +
           listing + ".\n";
}
constexpr const char* kPopQuit = "QUIT\n+OK bye\n* POP Process - success : me@example.org\n";

std::string LoggedSmtpOpening() {
    return "Success to create smtp socket\nconnecting.. 127.0.0.1\n220 sink\nEHLO " + HostName() + "\n250 fine\n";
}
constexpr const char* kSmtpQuit = "QUIT\n221 bye\n* SMTP Process - success : \n";

std::string LoggedTransaction(const std::vector<std::string>& recipients) {
    std::string text = "MAIL FROM: <me@example.org>\n250 fine\n";
    for (const std::string& recipient : recipients) text += "RCPT TO:<" + recipient + ">\n250 fine\n";
    return text + "DATA\n250 taken\n";
}

// A profile between a mailbox and a sink on loopback.
class RunTest : public ::testing::Test {
protected:
    MailboxServer mailbox{"alice", "secret"};
    SinkServer sink;
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(mailbox.Port(), sink.Port());
};

// No address takes part.

TEST(RunLog, ProfileWithoutAddressesConnectsNowhere) {
    DataTree tree;
    const ScriptedServer nobody([](Peer&) {});
    const CPopProfile& profile = tree.AddProfile(nobody.Port(), nobody.Port());
    EXPECT_EQ(RunOnce(profile), std::string(kStart) + kEnd);
    EXPECT_EQ(nobody.Connections(), 0);
}

TEST(RunLog, ProfileWhoseAddressesAreAllDisabledConnectsNowhere) {
    DataTree tree;
    const ScriptedServer nobody([](Peer&) {});
    CPopProfile& profile = tree.AddProfile(nobody.Port(), nobody.Port());
    for (const char* address : {"a@example.org", "b@example.org"}) {
        CForwardAddress& disabled = AddAddress(profile, address);
        disabled.setting.status = 0;
        disabled.schedule.AddNewTerm(std::make_unique<CTerm>().get());
        WriteUidls(disabled, {"old"});
    }
    EXPECT_EQ(RunOnce(profile),
              std::string(kStart) + "* disabled : a@example.org\n* disabled : b@example.org\n" + kEnd);
    EXPECT_EQ(nobody.Connections(), 0);
    for (const auto& address : profile.forward_addresses) EXPECT_THAT(UidlsOnDisk(*address), ElementsAre("old"));
}

TEST(Run, WritesLogAndSettingsAlsoWhenNoAddressTakesPart) {
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(UnusedPort(), UnusedPort());
    profile.setting.lasttime = LocalMoment(2024, 2, 29, 23, 59, 58);
    RunOnce(profile);
    EXPECT_TRUE(std::filesystem::exists(OnDisk(profile.path) + "/profile.log"));
    EXPECT_THAT(ReadFile(ProfileFile(profile)), HasSubstr("[lasttime]\r\n2024,2,29,23,59,58\r\n"));
}

// The schedule.

struct ScheduleCase {
    const char* name;
    std::vector<CTerm> terms;
    bool takes_part;
};

CTerm Term(int status, int kind, const char* start, const char* end) {
    CTerm term;
    term.status = status;
    term.kind = kind;
    term.start = start;
    term.end = end;
    return term;
}

// The profiles of these tests were judged due on 15 March 2009.
CTerm Open(int status) { return Term(status, TERM_DEFINED_TERM, "2009,3,15,10,0,0", "2009,3,15,11,0,0"); }
CTerm Shut(int status) { return Term(status, TERM_DEFINED_TERM, "2001,1,1,0,0,0", "2002,1,1,0,0,0"); }

std::ostream& operator<<(std::ostream& out, const ScheduleCase& shown) { return out << shown.name; }

class RunSchedule : public ::testing::TestWithParam<ScheduleCase> {};

TEST_P(RunSchedule, DecidesWhetherAnAddressTakesPart) {
    DataTree tree;
    ScriptedServer pop(Pop(""));
    CPopProfile& profile = tree.AddProfile(pop.Port(), UnusedPort());
    CForwardAddress& address = AddAddress(profile, "a@example.org");
    for (const CTerm& term : GetParam().terms) address.schedule.AddNewTerm(&term);

    const std::string judged = std::string(kStart) + "* enabled : a@example.org\n* enable schedule : a@example.org\n";
    EXPECT_EQ(RunOnce(profile), GetParam().takes_part
                                    ? judged + " - operation continued by schedule setting\n" + LoggedListing("") +
                                          kPopQuit + "You have no mail to Forward\n" + kEnd
                                    : judged + " - operation ignored by schedule setting\n" + kEnd);
    EXPECT_EQ(pop.Connections(), GetParam().takes_part ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(
    Terms, RunSchedule,
    ::testing::Values(
        ScheduleCase{"OnlySwitchedOffTerms", {Open(0), Open(0)}, false}, ScheduleCase{"MatchingTerm", {Open(1)}, true},
        ScheduleCase{"AnyStatusButZeroIsOn", {Open(-7)}, true}, ScheduleCase{"TermThatDoesNotMatch", {Shut(1)}, false},
        ScheduleCase{"LastOfSeveralMatches", {Shut(1), Open(0), Shut(1), Open(1)}, true},
        ScheduleCase{"LaterTermNeverClearsTheFlag", {Open(1), Shut(1), Open(0)}, true},
        ScheduleCase{"MatchingTermIsOffAndTheOtherShut", {Open(0), Shut(1)}, false},
        ScheduleCase{"UnknownKind", {Term(1, 9, "2009,3,15,10,0,0", "2009,3,15,11,0,0")}, false},
        ScheduleCase{"Weekday", {Term(1, TERM_EVERY_SUN, "2009,3,15,10,0,0", "2009,3,15,11,0,0")}, true},
        ScheduleCase{"OtherWeekday", {Term(1, TERM_EVERY_MON, "2009,3,15,10,0,0", "2009,3,15,11,0,0")}, false}),
    [](const auto& test) { return test.param.name; });

TEST_F(RunTest, AddressWithAnyStatusButZeroTakesPart) {
    for (const int status : {1, 2, -1}) {
        AddAddress(profile, std::to_string(status) + "@example.org").setting.status = status;
    }
    AddAddress(profile, "0@example.org").setting.status = 0;
    mailbox.Add(Mail("u1"));
    RunOnce(profile);
    EXPECT_EQ(Arrived(sink),
              (Arrivals{{"u1 -> 1@example.org", 1}, {"u1 -> 2@example.org", 1}, {"u1 -> -1@example.org", 1}}));
}

TEST(RunLog, DisabledEnabledAndScheduledAddressesEachHaveTheirLines) {
    DataTree tree;
    ScriptedServer pop(Pop(""));
    CPopProfile& profile = tree.AddProfile(pop.Port(), UnusedPort());
    AddAddress(profile, "off@example.org").setting.status = 0;
    AddAddress(profile, "always@example.org");
    const CTerm open = Open(1);
    const CTerm shut = Shut(1);
    AddAddress(profile, "open@example.org").schedule.AddNewTerm(&open);
    AddAddress(profile, "shut@example.org").schedule.AddNewTerm(&shut);
    EXPECT_EQ(RunOnce(profile), std::string(kStart) +
                                    "* disabled : off@example.org\n"
                                    "* enabled : always@example.org\n* disable schedule : always@example.org\n"
                                    "* enabled : open@example.org\n* enable schedule : open@example.org\n"
                                    " - operation continued by schedule setting\n"
                                    "* enabled : shut@example.org\n* enable schedule : shut@example.org\n"
                                    " - operation ignored by schedule setting\n" +
                                    LoggedListing("") + kPopQuit + "You have no mail to Forward\n" + kEnd);
}

TEST_F(RunTest, AddressShutByItsScheduleGetsTheMessageWhenItIsOpenAgain) {
    AddAddress(profile, "a@example.org");
    CForwardAddress& scheduled = AddAddress(profile, "b@example.org");
    const CTerm shut = Shut(1);
    scheduled.schedule.AddNewTerm(&shut);
    mailbox.Add(Mail("u1"));
    RunOnce(profile);
    EXPECT_EQ(Arrived(sink), (Arrivals{{"u1 -> a@example.org", 1}}));
    EXPECT_THAT(UidlsOnDisk(scheduled), IsEmpty());
    scheduled.schedule.Reset();
    RunOnce(profile);
    EXPECT_EQ(Arrived(sink), (Arrivals{{"u1 -> a@example.org", 1}, {"u1 -> b@example.org", 1}}));
}

// Nothing new, and what is new.

TEST(RunLog, NothingOnTheServer) {
    DataTree tree;
    ScriptedServer pop(Pop(""));
    const ScriptedServer smtp(Smtp);
    CPopProfile& profile = tree.AddProfile(pop.Port(), smtp.Port());
    const CForwardAddress& address = AddAddress(profile, "a@example.org");
    EXPECT_EQ(RunOnce(profile), kStart + Enabled("a@example.org") + LoggedListing("") + kPopQuit +
                                    "You have no mail to Forward\n" + kEnd);
    EXPECT_EQ(smtp.Connections(), 0);
    EXPECT_TRUE(std::filesystem::exists(UidlFile(address)));
    EXPECT_EQ(ReadFile(UidlFile(address)), "");
}

TEST(RunLog, NothingNewOnTheServer) {
    DataTree tree;
    ScriptedServer pop(Pop("1 u1\r\n2 u2\r\n"));
    const ScriptedServer smtp(Smtp);
    CPopProfile& profile = tree.AddProfile(pop.Port(), smtp.Port());
    const CForwardAddress& address = AddAddress(profile, "a@example.org");
    WriteUidls(address, {"gone", "u2", "u1"});
    EXPECT_EQ(RunOnce(profile), kStart + Enabled("a@example.org") + LoggedListing("1 u1\n2 u2\n") + kPopQuit +
                                    "You have no mail to Forward\n" + kEnd);
    EXPECT_EQ(smtp.Connections(), 0);
    EXPECT_THAT(UidlsOnDisk(address), ElementsAre("u2", "u1"));
}

TEST(RunLog, OneNewMessage) {
    DataTree tree;
    ScriptedServer pop(Pop("1 u1\r\n2 u2\r\n"));
    ScriptedServer smtp(Smtp);
    CPopProfile& profile = tree.AddProfile(pop.Port(), smtp.Port());
    const CForwardAddress& address = AddAddress(profile, "a@example.org");
    WriteUidls(address, {"u1"});
    EXPECT_EQ(RunOnce(profile), kStart + Enabled("a@example.org") + LoggedListing("1 u1\n2 u2\n") +
                                    "RETR 2\nu2 received\n" + kPopQuit + LoggedSmtpOpening() +
                                    LoggedTransaction({"a@example.org"}) + kSmtpQuit + kEnd);
    EXPECT_THAT(UidlsOnDisk(address), ElementsAre("u1", "u2"));
    EXPECT_EQ(pop.Transcript(),
              "S: +OK ready\nC: USER alice\nS: +OK user\nC: PASS secret\nS: +OK pass\nC: UIDL\n"
              "S: +OK\nS: 1 u1\nS: 2 u2\nS: .\nC: RETR 2\nC: QUIT\nS: +OK bye\nC: (closed)\n");
    const std::string size = std::to_string(Message("message 2").size() + 3);
    EXPECT_EQ(smtp.Transcript(), "S: 220 sink\nC: EHLO " + HostName() +
                                     "\nS: 250 fine\nC: MAIL FROM:<me@example.org>\nS: 250 fine\n"
                                     "C: RCPT TO:<a@example.org>\nS: 250 fine\nC: DATA\nS: 354 go on\n"
                                     "C: (message of " +
                                     size + " bytes)\nS: 250 taken\nC: QUIT\nS: 221 bye\nC: (closed)\n");
}

TEST(RunLog, MessageThatOneOfTwoAddressesHasAlreadyGoesToTheOther) {
    DataTree tree;
    ScriptedServer pop(Pop("1 u1\r\n2 u2\r\n"));
    ScriptedServer smtp(Smtp);
    CPopProfile& profile = tree.AddProfile(pop.Port(), smtp.Port());
    const CForwardAddress& first = AddAddress(profile, "a@example.org");
    const CForwardAddress& second = AddAddress(profile, "b@example.org");
    WriteUidls(first, {"u2", "u1"});
    WriteUidls(second, {"u2"});
    EXPECT_EQ(RunOnce(profile), kStart + Enabled("a@example.org") + Enabled("b@example.org") +
                                    LoggedListing("1 u1\n2 u2\n") + "RETR 1\nu1 received\n" + kPopQuit +
                                    LoggedSmtpOpening() + LoggedTransaction({"b@example.org"}) + kSmtpQuit + kEnd);
    EXPECT_THAT(UidlsOnDisk(first), ElementsAre("u2", "u1"));
    EXPECT_THAT(UidlsOnDisk(second), ElementsAre("u2", "u1"));
}

TEST(RunLog, AddressesWithoutTextLimitShareOneTransaction) {
    DataTree tree;
    ScriptedServer pop(Pop("1 u1\r\n"));
    ScriptedServer smtp(Smtp);
    CPopProfile& profile = tree.AddProfile(pop.Port(), smtp.Port());
    AddAddress(profile, "a@example.org").setting.textonly = 0;
    AddAddress(profile, "b@example.org").setting.textonly = 0;
    EXPECT_EQ(RunOnce(profile), kStart + Enabled("a@example.org") + Enabled("b@example.org") + LoggedListing("1 u1\n") +
                                    "RETR 1\nu1 received\n" + kPopQuit + LoggedSmtpOpening() +
                                    LoggedTransaction({"a@example.org", "b@example.org"}) + kSmtpQuit + kEnd);
}

TEST(RunLog, SmtpServerThatCannotBeReached) {
    DataTree tree;
    ScriptedServer pop(Pop("1 u1\r\n"));
    ScriptedServer smtp([](Peer& peer) {
        peer.Send("554 not today\r\n");
        peer.WaitForClose();
    });
    CPopProfile& profile = tree.AddProfile(pop.Port(), smtp.Port());
    const CForwardAddress& address = AddAddress(profile, "a@example.org");
    WriteUidls(address, {"gone"});
    EXPECT_EQ(RunOnce(profile), kStart + Enabled("a@example.org") + LoggedListing("1 u1\n") + "RETR 1\nu1 received\n" +
                                    kPopQuit +
                                    "Success to create smtp socket\nconnecting.. 127.0.0.1\n554 not today\n"
                                    "\t!!Connect error\n* SMTP Process - error to create socket : \n" +
                                    kEnd);
    EXPECT_THAT(UidlsOnDisk(address), IsEmpty());
}

TEST(RunLog, RefusedDelivery) {
    DataTree tree;
    ScriptedServer pop(Pop("1 u1\r\n"));
    ScriptedServer smtp([](Peer& peer) {
        peer.Send("220 sink\r\n");
        peer.ReadLine();
        peer.Send("250 fine\r\n");
        peer.Expect("MAIL FROM:<me@example.org>");
        peer.Send("250 fine\r\n");
        peer.Expect("RCPT TO:<a@example.org>");
        peer.Send("550 unknown\r\n");
        peer.Expect("QUIT");
        peer.Send("221 bye\r\n");
        peer.WaitForClose();
    });
    CPopProfile& profile = tree.AddProfile(pop.Port(), smtp.Port());
    AddAddress(profile, "a@example.org");
    EXPECT_EQ(RunOnce(profile),
              kStart + Enabled("a@example.org") + LoggedListing("1 u1\n") + "RETR 1\nu1 received\n" + kPopQuit +
                  LoggedSmtpOpening() +
                  "MAIL FROM: <me@example.org>\n250 fine\nRCPT TO:<a@example.org>\n550 unknown\nQUIT\n"
                  "SomethingError..Closing Socket\n* SMTP Process - error : \n" +
                  kEnd);
    EXPECT_THAT(smtp.Transcript(), Not(HasSubstr("!!")));
}

TEST(RunLog, DeletionInALaterRun) {
    DataTree tree;
    ScriptedServer pop({Pop("1 u1\r\n2 u2\r\n"), Pop("1 u1\r\n2 u2\r\n"), Pop("")});
    ScriptedServer smtp(Smtp);
    CPopProfile& profile = tree.AddProfile(pop.Port(), smtp.Port());
    profile.setting.deletemail = 1;
    const CForwardAddress& address = AddAddress(profile, "a@example.org");
    const std::string first = kStart + Enabled("a@example.org") + LoggedListing("1 u1\n2 u2\n") +
                              "RETR 1\nu1 received\nRETR 2\nu2 received\n" + kPopQuit + LoggedSmtpOpening() +
                              LoggedTransaction({"a@example.org"}) + LoggedTransaction({"a@example.org"}) + kSmtpQuit +
                              kEnd;
    EXPECT_EQ(RunOnce(profile), first);
    EXPECT_THAT(UidlsOnDisk(address), ElementsAre("u1", "u2"));

    const std::string second = kStart + Enabled("a@example.org") + LoggedListing("1 u1\n2 u2\n") +
                               "DELE 1\n+OK deleted\nDELE 2\n+OK deleted\n" + kPopQuit +
                               "You have no mail to Forward\n" + kEnd;
    EXPECT_EQ(RunOnce(profile), first + second);
    EXPECT_THAT(UidlsOnDisk(address), IsEmpty());
    EXPECT_EQ(smtp.Connections(), 1);
}

// Retrieval that fails.

struct PopFailure {
    const char* name;
    const char* verb;   // the command that is answered otherwise; empty: nobody listens
    const char* reply;  // "close", "stall", or what is said instead
};

std::ostream& operator<<(std::ostream& out, const PopFailure& shown) { return out << shown.name; }

class RunPopFailure : public ::testing::TestWithParam<PopFailure> {};

TEST_P(RunPopFailure, LeavesTheListsAloneAndSavesLogAndSettings) {
    MailboxServer mailbox("alice", "secret");
    const SinkServer sink;
    mailbox.OfferApop(false);
    mailbox.Add(Mail("u1"));
    mailbox.Add(Mail("u2"));
    mailbox.SetFault([](const std::string& command) -> std::string {
        const PopFailure& failure = GetParam();
        if (*failure.verb == '\0' || !command.starts_with(failure.verb)) return "";
        return failure.reply;
    });
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(*GetParam().verb == '\0' ? UnusedPort() : mailbox.Port(), sink.Port());
    profile.setting.timeout = 1;
    profile.setting.deletemail = 1;
    profile.setting.lasttime = LocalMoment(2011, 1, 2, 3, 4, 5);
    const CForwardAddress& known = AddAddress(profile, "a@example.org");
    CForwardAddress& disabled = AddAddress(profile, "off@example.org");
    disabled.setting.status = 0;
    WriteUidls(known, {"gone", "u1"});
    WriteUidls(disabled, {"gone"});
    const bool first_time = std::string_view(GetParam().verb) != "DELE";
    const CForwardAddress* fresh = first_time ? &AddAddress(profile, "b@example.org") : nullptr;

    const std::string log = RunOnce(profile);
    const std::string tail = std::string("* POP Process error : me@example.org\n") + kEnd;
    EXPECT_TRUE(log.ends_with(tail)) << log;
    EXPECT_THAT(log, Not(HasSubstr("success : ")));
    EXPECT_THAT(log, Not(HasSubstr("smtp")));
    EXPECT_THAT(UidlsOnDisk(known), ElementsAre("gone", "u1"));
    EXPECT_THAT(UidlsOnDisk(disabled), ElementsAre("gone"));
    EXPECT_FALSE(fresh && std::filesystem::exists(UidlFile(*fresh)));
    EXPECT_THAT(ReadFile(ProfileFile(profile)), HasSubstr("[lasttime]\r\n2011,1,2,3,4,5\r\n"));
    EXPECT_THAT(sink.Delivered(), IsEmpty());
    EXPECT_EQ(mailbox.Mails().size(), 2U);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, RunPopFailure,
    ::testing::Values(PopFailure{"NobodyListens", "", ""}, PopFailure{"UserRefused", "USER", "-ERR who"},
                      PopFailure{"PasswordRefused", "PASS", "-ERR wrong"},
                      PopFailure{"PasswordDropped", "PASS", "close"}, PopFailure{"UidlStalled", "UIDL", "stall"},
                      PopFailure{"UidlDropped", "UIDL", "close"}, PopFailure{"DeleteRefused", "DELE", "-ERR locked"},
                      PopFailure{"DeleteDropped", "DELE", "close"}, PopFailure{"RetrieveStalled", "RETR", "stall"},
                      PopFailure{"SecondRetrieveStalled", "RETR 2", "stall"}),
    [](const auto& test) { return test.param.name; });

TEST_F(RunTest, MessageThatCannotBeFetchedIsOfferedAgain) {
    const CForwardAddress& address = AddAddress(profile, "a@example.org");
    for (const char* id : {"u1", "u2", "u3"}) mailbox.Add(Mail(id));
    mailbox.SetFault([](const std::string& command) { return command == "RETR 2" ? "-ERR locked" : ""; });
    EXPECT_THAT(RunOnce(profile), HasSubstr("RETR 2\nu2 receive error\nRETR 3\nu3 received\n"));
    EXPECT_THAT(UidlsOnDisk(address), ElementsAre("u1", "u3"));
    mailbox.SetFault(nullptr);
    RunOnce(profile);
    EXPECT_THAT(UidlsOnDisk(address), ElementsAre("u1", "u3", "u2"));
    EXPECT_EQ(Arrived(sink),
              (Arrivals{{"u1 -> a@example.org", 1}, {"u2 -> a@example.org", 1}, {"u3 -> a@example.org", 1}}));
}

// Delivery that fails, at every step, and the run after it.

struct DeliveryFailure {
    bool batch;        // one transaction for both addresses
    const char* verb;  // "." is the end of a message
    int occurrence;    // from 1
    std::string reply;
};

// What has arrived when the failed run has ended, of three messages for two addresses.
struct ExpectedDelivery {
    std::size_t complete = 0;  // messages that both addresses have and whose answers came
    bool first_has_next = false;
    bool second_has_next = false;
};

ExpectedDelivery Expect(const DeliveryFailure& failure) {
    const auto before = static_cast<std::size_t>(failure.occurrence - 1);
    const bool taken = failure.reply == "lose" && std::string_view(failure.verb) == ".";
    if (failure.batch) {
        const std::size_t per_message = std::string_view(failure.verb) == "RCPT" ? 2 : 1;
        return {before / per_message, taken, taken};
    }
    const bool second_copy = before % 2 == 1;
    return {before / 2, second_copy || taken, second_copy && taken};
}

void CheckDeliveryFailure(const DeliveryFailure& failure) {
    SCOPED_TRACE((failure.batch ? "batch " : "single ") + std::string(failure.verb) + " " +
                 std::to_string(failure.occurrence) + " " + failure.reply);
    const std::vector<std::string> ids{"u1", "u2", "u3"};
    MailboxServer mailbox("alice", "secret");
    for (const std::string& id : ids) mailbox.Add(Mail(id));
    SinkServer sink;
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(mailbox.Port(), sink.Port());
    profile.setting.timeout = 1;
    profile.setting.deletemail = 1;
    const CForwardAddress& first = AddAddress(profile, "a@example.org");
    const CForwardAddress& second = AddAddress(profile, "b@example.org");
    for (const auto& address : profile.forward_addresses) {
        if (failure.batch) address->setting.textonly = 0;
        WriteUidls(*address, {"gone"});
    }

    int seen = 0;
    sink.SetFault([&failure, &seen](const std::string& command) -> std::string {
        if (!command.starts_with(failure.verb)) return "";
        return ++seen == failure.occurrence ? failure.reply : "";
    });
    const std::string log = RunOnce(profile);
    EXPECT_TRUE(log.ends_with(std::string("* SMTP Process - error : \n") + kEnd)) << log;

    const ExpectedDelivery expected = Expect(failure);
    const Ids kept(ids.begin(), ids.begin() + static_cast<std::ptrdiff_t>(expected.complete));
    EXPECT_EQ(UidlsOnDisk(first), kept);
    EXPECT_EQ(UidlsOnDisk(second), kept);
    Arrivals arrivals;
    for (const std::string& id : kept) arrivals[id + " -> a@example.org"] = arrivals[id + " -> b@example.org"] = 1;
    if (expected.first_has_next) arrivals[ids[expected.complete] + " -> a@example.org"] = 1;
    if (expected.second_has_next) arrivals[ids[expected.complete] + " -> b@example.org"] = 1;
    EXPECT_EQ(Arrived(sink), arrivals);
    EXPECT_EQ(mailbox.Mails().size(), 3U);

    // The next run: what was complete is deleted on the server and not sent again; all else goes to both addresses.
    sink.SetFault(nullptr);
    RunOnce(profile);
    for (std::size_t i = expected.complete; i < ids.size(); ++i) {
        ++arrivals[ids[i] + " -> a@example.org"];
        ++arrivals[ids[i] + " -> b@example.org"];
    }
    EXPECT_EQ(Arrived(sink), arrivals);
    EXPECT_EQ(mailbox.Mails().size(), 3 - expected.complete);
    RunOnce(profile);
    EXPECT_EQ(Arrived(sink), arrivals);
    EXPECT_THAT(mailbox.Mails(), IsEmpty());
}

void CheckDeliveryFailures(bool batch, const std::string& reply) {
    for (const char* verb : {"MAIL", "RCPT", "DATA", "."}) {
        const int occurrences = batch && std::string_view(verb) != "RCPT" ? 3 : 6;
        for (int occurrence = 1; occurrence <= occurrences; ++occurrence) {
            CheckDeliveryFailure({batch, verb, occurrence, reply});
        }
    }
}

TEST(RunDelivery, RefusedAtAnyStepOfABatchIsRetried) { CheckDeliveryFailures(true, "550 no"); }
TEST(RunDelivery, RefusedAtAnyStepOfSingleCopiesIsRetried) { CheckDeliveryFailures(false, "451 later"); }
TEST(RunDelivery, DroppedAtAnyStepOfABatchIsRetried) { CheckDeliveryFailures(true, "close"); }
TEST(RunDelivery, DroppedAtAnyStepOfSingleCopiesIsRetried) { CheckDeliveryFailures(false, "close"); }

TEST(RunDelivery, StalledServerIsLeftAfterTheTimeOutAndTheRestRetried) {
    CheckDeliveryFailure({true, ".", 2, "stall"});
    CheckDeliveryFailure({false, "MAIL", 1, "stall"});
    CheckDeliveryFailure({false, "RCPT", 4, "stall"});
    CheckDeliveryFailure({false, "DATA", 6, "stall"});
}

// The server has taken the message and its answer is lost: the message is sent again rather than lost.
TEST(RunDelivery, LostAnswerAtAnyStepOfABatchMeansAnotherTry) { CheckDeliveryFailures(true, "lose"); }
TEST(RunDelivery, LostAnswerAtAnyStepOfSingleCopiesMeansAnotherTry) { CheckDeliveryFailures(false, "lose"); }

TEST_F(RunTest, SmtpServerThatCannotBeReachedTakesEveryIdBack) {
    const CForwardAddress& first = AddAddress(profile, "a@example.org");
    const CForwardAddress& second = AddAddress(profile, "b@example.org");
    for (const char* id : {"u1", "u2", "u3"}) mailbox.Add(Mail(id));
    WriteUidls(first, {"u2", "u1"});
    WriteUidls(second, {"u2"});
    profile.setting.smtpport = UnusedPort();
    EXPECT_THAT(RunOnce(profile), HasSubstr("* SMTP Process - error to create socket : \n"));
    EXPECT_THAT(UidlsOnDisk(first), ElementsAre("u2", "u1"));
    EXPECT_THAT(UidlsOnDisk(second), ElementsAre("u2"));
    profile.setting.smtpport = sink.Port();
    RunOnce(profile);
    EXPECT_EQ(Arrived(sink),
              (Arrivals{{"u1 -> b@example.org", 1}, {"u3 -> a@example.org", 1}, {"u3 -> b@example.org", 1}}));
}

// The lists.

TEST_F(RunTest, IdsThatAreNoLongerOnTheServerAreDroppedFromEveryAddress) {
    const CForwardAddress& enabled = AddAddress(profile, "a@example.org");
    CForwardAddress& disabled = AddAddress(profile, "off@example.org");
    CForwardAddress& shut = AddAddress(profile, "shut@example.org");
    disabled.setting.status = 0;
    const CTerm term = Shut(1);
    shut.schedule.AddNewTerm(&term);
    for (const char* id : {"u1", "u2"}) mailbox.Add(Mail(id));
    WriteUidls(enabled, {"gone", "u2", "gone too", "u1"});
    WriteUidls(disabled, {"u1", "gone", "u1"});
    WriteUidls(shut, {"gone", "U1"});
    EXPECT_THAT(RunOnce(profile), HasSubstr("You have no mail to Forward\n"));
    EXPECT_THAT(UidlsOnDisk(enabled), ElementsAre("u2", "u1"));
    EXPECT_THAT(UidlsOnDisk(disabled), ElementsAre("u1", "u1"));
    EXPECT_THAT(UidlsOnDisk(shut), IsEmpty());
    EXPECT_THAT(sink.Delivered(), IsEmpty());
}

TEST_F(RunTest, IdsOfMessagesDeletedOnTheServerAreDroppedToo) {
    profile.setting.deletemail = 1;
    const CForwardAddress& enabled = AddAddress(profile, "a@example.org");
    CForwardAddress& disabled = AddAddress(profile, "off@example.org");
    disabled.setting.status = 0;
    for (const char* id : {"u1", "u2"}) mailbox.Add(Mail(id));
    WriteUidls(enabled, {"u1"});
    WriteUidls(disabled, {"u1", "u2"});
    RunOnce(profile);
    EXPECT_THAT(UidlsOnDisk(enabled), ElementsAre("u2"));
    EXPECT_THAT(UidlsOnDisk(disabled), ElementsAre("u2"));
    ASSERT_EQ(mailbox.Mails().size(), 1U);
    EXPECT_EQ(mailbox.Mails()[0].uidl, "u2");
}

TEST_F(RunTest, MessageIsNotDeletedBeforeEveryTakingPartAddressHasIt) {
    profile.setting.deletemail = 1;
    const CForwardAddress& has = AddAddress(profile, "a@example.org");
    AddAddress(profile, "b@example.org");
    mailbox.Add(Mail("u1"));
    WriteUidls(has, {"u1"});
    profile.setting.smtpport = UnusedPort();
    RunOnce(profile);
    RunOnce(profile);
    EXPECT_EQ(mailbox.Mails().size(), 1U);
    profile.setting.smtpport = sink.Port();
    RunOnce(profile);
    EXPECT_EQ(mailbox.Mails().size(), 1U);
    RunOnce(profile);
    EXPECT_THAT(mailbox.Mails(), IsEmpty());
    EXPECT_EQ(Arrived(sink), (Arrivals{{"u1 -> b@example.org", 1}}));
}

TEST_F(RunTest, WithoutDeletionMessagesStayOnTheServerAndAreSentOnce) {
    AddAddress(profile, "a@example.org");
    mailbox.Add(Mail("u1"));
    for (int run = 0; run < 3; ++run) RunOnce(profile);
    EXPECT_EQ(mailbox.Mails().size(), 1U);
    EXPECT_EQ(mailbox.Received("DELE"), 0);
    EXPECT_EQ(mailbox.Received("RETR"), 1);
    EXPECT_EQ(Arrived(sink), (Arrivals{{"u1 -> a@example.org", 1}}));
}

TEST_F(RunTest, ReadsTheListsOfTakingPartAddressesAfreshAndTakesTheOthersAsTheCopyHasThem) {
    const CForwardAddress& enabled = AddAddress(profile, "a@example.org");
    CForwardAddress& disabled = AddAddress(profile, "off@example.org");
    disabled.setting.status = 0;
    for (const char* id : {"u1", "u2"}) mailbox.Add(Mail(id));
    for (const CForwardAddress* address : {&enabled, &std::as_const(disabled)}) WriteUidls(*address, {"u1"});
    CPopProfile copy;
    copy = profile;
    for (const CForwardAddress* address : {&enabled, &std::as_const(disabled)}) WriteUidls(*address, {"u2"});
    copy.DoOperation();
    EXPECT_EQ(Arrived(sink), (Arrivals{{"u1 -> a@example.org", 1}}));
    EXPECT_THAT(UidlsOnDisk(enabled), ElementsAre("u2", "u1"));
    EXPECT_THAT(UidlsOnDisk(disabled), ElementsAre("u1"));
}

TEST_F(RunTest, ListWhoseFileIsGoneCountsAsEmpty) {
    const CForwardAddress& address = AddAddress(profile, "a@example.org");
    mailbox.Add(Mail("u1"));
    WriteUidls(address, {"u1"});
    CPopProfile copy;
    copy = profile;
    std::filesystem::remove(UidlFile(address));
    copy.DoOperation();
    EXPECT_EQ(Arrived(sink), (Arrivals{{"u1 -> a@example.org", 1}}));
    EXPECT_THAT(UidlsOnDisk(address), ElementsAre("u1"));
}

// An id twice in the only list: not handled, so the message is fetched, but the address lacks nothing. Without
// destinations it goes out in the batch, before all others, and the server's refusal of a message to nobody ends the
// delivery.
TEST_F(RunTest, IdTwiceInTheOnlyListMakesAMessageToNobody) {
    const CForwardAddress& address = AddAddress(profile, "a@example.org");
    for (const char* id : {"u1", "u2"}) mailbox.Add(Mail(id));
    WriteUidls(address, {"u1", "u1"});
    const std::string log = RunOnce(profile);
    EXPECT_THAT(log, HasSubstr("RETR 1\nu1 received\nRETR 2\nu2 received\n"));
    EXPECT_THAT(log, HasSubstr("* SMTP Process - error : \n"));
    EXPECT_THAT(log, Not(HasSubstr("RCPT TO:")));
    EXPECT_THAT(UidlsOnDisk(address), ElementsAre("u1", "u1"));
    EXPECT_THAT(sink.Delivered(), IsEmpty());
}

TEST_F(RunTest, IdTwiceInOneOfTwoListsIsNotFetchedForTheOther) {
    const CForwardAddress& twice = AddAddress(profile, "a@example.org");
    const CForwardAddress& never = AddAddress(profile, "b@example.org");
    mailbox.Add(Mail("u1"));
    WriteUidls(twice, {"u1", "u1"});
    EXPECT_THAT(RunOnce(profile), HasSubstr("You have no mail to Forward\n"));
    EXPECT_EQ(mailbox.Received("RETR"), 0);
    EXPECT_THAT(UidlsOnDisk(twice), ElementsAre("u1", "u1"));
    EXPECT_THAT(UidlsOnDisk(never), IsEmpty());
}

// A mailbox that lists one id for two messages.

TEST_F(RunTest, SecondMessageWithTheSameIdHasNoDestinationsAndHoldsUpTheBatch) {
    const CForwardAddress& address = AddAddress(profile, "a@example.org");
    mailbox.Add({"same", Message("first")});
    mailbox.Add({"same", Message("second")});
    EXPECT_THAT(RunOnce(profile), HasSubstr("* SMTP Process - error : \n"));
    EXPECT_THAT(sink.Delivered(), IsEmpty());
    EXPECT_THAT(UidlsOnDisk(address), IsEmpty());
}

TEST_F(RunTest, SecondMessageWithTheSameIdIsDroppedBySingleCopies) {
    profile.setting.replaceto = 1;
    const CForwardAddress& address = AddAddress(profile, "a@example.org");
    mailbox.Add({"same", Message("first")});
    mailbox.Add({"same", Message("second")});
    EXPECT_THAT(RunOnce(profile), HasSubstr("* SMTP Process - success : \n"));
    EXPECT_EQ(Arrived(sink), (Arrivals{{"first -> a@example.org", 1}}));
    EXPECT_THAT(UidlsOnDisk(address), ElementsAre("same"));
    EXPECT_THAT(RunOnce(profile), HasSubstr("You have no mail to Forward\n"));
}

// A server without unique ids: every message has the empty id, which is written as an empty line and skipped on
// loading, so the only message is sent in every run and never deleted, and several never pass the batch.

TEST_F(RunTest, ServerWithoutUidlHasItsOnlyMessageSentInEveryRun) {
    mailbox.OfferUidl(false);
    profile.setting.deletemail = 1;
    const CForwardAddress& address = AddAddress(profile, "a@example.org");
    mailbox.Add({"", Message("only")});
    for (int run = 1; run <= 3; ++run) {
        const std::string log = RunOnce(profile);
        EXPECT_THAT(log, HasSubstr("LIST\n"));
        EXPECT_THAT(log, HasSubstr("RETR 1\n received\n"));
        EXPECT_EQ(Arrived(sink), (Arrivals{{"only -> a@example.org", run}}));
        EXPECT_EQ(ReadFile(UidlFile(address)), "\r\n");
    }
    EXPECT_EQ(mailbox.Mails().size(), 1U);
}

TEST_F(RunTest, ServerWithoutUidlHasSeveralMessagesHeldUpByTheOnesToNobody) {
    mailbox.OfferUidl(false);
    const CForwardAddress& address = AddAddress(profile, "a@example.org");
    for (const char* subject : {"first", "second", "third"}) mailbox.Add({"", Message(subject)});
    EXPECT_THAT(RunOnce(profile), HasSubstr("* SMTP Process - error : \n"));
    EXPECT_THAT(sink.Delivered(), IsEmpty());
    EXPECT_EQ(ReadFile(UidlFile(address)), "");
    EXPECT_EQ(mailbox.Mails().size(), 3U);
}

TEST_F(RunTest, ServerWithoutUidlHasOnlyTheFirstOfSeveralSentAsSingleCopies) {
    mailbox.OfferUidl(false);
    profile.setting.replaceto = 1;
    const CForwardAddress& address = AddAddress(profile, "a@example.org");
    for (const char* subject : {"first", "second", "third"}) mailbox.Add({"", Message(subject)});
    for (int run = 1; run <= 2; ++run) {
        EXPECT_THAT(RunOnce(profile), HasSubstr("* SMTP Process - success : \n"));
        EXPECT_EQ(Arrived(sink), (Arrivals{{"first -> a@example.org", run}}));
        EXPECT_EQ(ReadFile(UidlFile(address)), "\r\n");
    }
    EXPECT_EQ(mailbox.Mails().size(), 3U);
}

// The rest of the settings.

TEST_F(RunTest, MessageArrivesAsItWasFetched) {
    AddAddress(profile, "a@example.org");
    const std::string text = Message("dots") + ".\r\n..\r\n.hidden\r\n\x1b$B4A;z\x1b(B\r\n\xff\xfe\r\n";
    mailbox.Add({"u1", text});
    RunOnce(profile);
    ASSERT_EQ(sink.Delivered().size(), 1U);
    EXPECT_EQ(sink.Delivered()[0].text, text);
    EXPECT_EQ(sink.Delivered()[0].sender, "me@example.org");
    EXPECT_THAT(sink.Delivered()[0].recipients, ElementsAre("a@example.org"));
}

TEST_F(RunTest, ReplaceFromPutsTheProfilesAddressIntoEveryMessage) {
    AddAddress(profile, "a@example.org");
    for (const char* id : {"u1", "u2"}) mailbox.Add(Mail(id));
    profile.setting.replacefrom = -5;  // any setting but 0
    RunOnce(profile);
    ASSERT_EQ(sink.Delivered().size(), 2U);
    for (const DeliveredMail& mail : sink.Delivered()) {
        EXPECT_THAT(mail.text, HasSubstr("\r\nFrom: me@example.org\r\n"));
        EXPECT_THAT(mail.text, Not(HasSubstr("somebody@example.net")));
        EXPECT_THAT(mail.text, HasSubstr("\r\nTo: me@example.org\r\n"));
    }
}

TEST_F(RunTest, ReplaceToPutsEachAddressIntoItsCopy) {
    AddAddress(profile, "a@example.org");
    AddAddress(profile, "Bee <b@example.org>");
    mailbox.Add(Mail("u1"));
    profile.setting.replaceto = 1;
    RunOnce(profile);
    ASSERT_EQ(sink.Delivered().size(), 2U);
    EXPECT_THAT(sink.Delivered()[0].text, HasSubstr("\r\nTo: a@example.org\r\n"));
    EXPECT_THAT(sink.Delivered()[1].text, HasSubstr("\r\nTo: b@example.org\r\n"));
    EXPECT_THAT(sink.Delivered()[1].text, HasSubstr("\r\nFrom: somebody@example.net\r\n"));
}

// The text mail, as the address asks for it in its file. Run through a tree that was read from disk.

struct TextMailCase {
    const char* name;
    std::string settings;
    std::string mail;
    std::string arrives;
};

void PrintTo(const TextMailCase& shown, std::ostream* out) { *out << shown.name; }

class RunTextMail : public ::testing::TestWithParam<TextMailCase> {};

TEST_P(RunTextMail, IsMadeByTheSettingsOfTheAddress) {
    MailboxServer mailbox("alice", "secret");
    const SinkServer sink;
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(mailbox.Port(), sink.Port());
    CForwardAddress& address = AddAddress(profile, "a@example.org");
    WriteFile(OnDisk(address.path) + "/forwardaddress.def", "[address]\r\na@example.org\r\n" + GetParam().settings);
    CRootPath root;
    ASSERT_EQ(root.SetRootPath(tree.root.path), 1);
    mailbox.Add({"u1", GetParam().mail});
    RunOnce(*root.users.front()->profiles.front());
    ASSERT_EQ(sink.Delivered().size(), 1U);
    EXPECT_EQ(sink.Delivered()[0].text, GetParam().arrives);
}

const std::string kPlainMail = "From: f@x\r\nSubject: s\r\n\r\none  two\r\n\r\n.three--xyxxy\x82\x9F\x82\x9F\r\n";
const std::string kHtmlMail = "From: f@x\r\nSubject: s\r\nContent-Type: text/html\r\n\r\n<p>one</p>\r\n<b>two</b>\r\n";
const std::string kMailWithoutBlankLine = "From: f@x\r\n.\r\n..two\r\nthree\r\n";

std::string TextMailOf(const std::string& body, const std::string& charset = "US-ASCII") {
    return "Date: \r\nFrom: f@x\r\nSubject: s\r\nMIME-Version: \r\nContent-Type: text/plain; charset=\"" + charset +
           "\"\r\n\r\n" + body + "\r\n";
}

std::string JapaneseTextMailOf(const std::string& body) { return TextMailOf(body, "ISO-2022-JP"); }

INSTANTIATE_TEST_SUITE_P(
    Settings, RunTextMail,
    ::testing::Values(
        TextMailCase{"WholeByDefault", "", kPlainMail, kPlainMail},
        TextMailCase{"WholeBelowZero", "[textonly]\r\n-1\r\n", kPlainMail, kPlainMail},
        TextMailCase{"WholeForOneAddressWithZero", "[textonly]\r\n0\r\n", kPlainMail, kPlainMail},
        TextMailCase{"Textonly", "[textonly]\r\n500\r\n", kPlainMail,
                     JapaneseTextMailOf("one  two\r\n\r\n.three--xyxxy\x1B$B$!$!\x1B(B")},
        TextMailCase{"TextonlyLimit", "[textonly]\r\n15\r\n", kPlainMail, TextMailOf("one  two\r\n\r\n.th")},
        TextMailCase{"CutwhiteCompresses", "[textonly]\r\n500\r\n[cutwhite]\r\n1\r\n", kPlainMail,
                     JapaneseTextMailOf("one two\r\n.three-xyxxy\x1B$B$!$!\x1B(B")},
        TextMailCase{"CutwhiteCuts", "[textonly]\r\n500\r\n[cutwhite]\r\n-1\r\n", kPlainMail,
                     JapaneseTextMailOf("onetwo.threexyxxy\x1B$B$!$!\x1B(B")},
        TextMailCase{"CompressWords", "[textonly]\r\n500\r\n[cutwhite]\r\n1\r\n[compress_words]\r\nx \x82\x9F\r\n",
                     kPlainMail, JapaneseTextMailOf("one two\r\n.three--xyxy\x1B$B$!\x1B(B")},
        TextMailCase{"CompressWordsCut", "[textonly]\r\n500\r\n[cutwhite]\r\n-1\r\n[compress_words]\r\nx \x82\x9F\r\n",
                     kPlainMail, TextMailOf("onetwo.three--yy")},
        TextMailCase{"HtmlByDefault", "[textonly]\r\n500\r\n", kHtmlMail, TextMailOf("one\r\ntwo.")},
        TextMailCase{"HtmlSwitchedOff", "[textonly]\r\n500\r\n[htmltotext]\r\n0\r\n", kHtmlMail, TextMailOf("")},
        // It cannot be reduced, so it is sent as it was fetched.
        TextMailCase{"WholeWithoutBlankLine", "[textonly]\r\n5\r\n[cutwhite]\r\n-1\r\n", kMailWithoutBlankLine,
                     kMailWithoutBlankLine}),
    [](const auto& test) { return test.param.name; });

TEST_F(RunTest, WithoutLogNothingIsReadOrWrittenButTheRestIsSaved) {
    profile.setting.logmode = 0;
    const CForwardAddress& address = AddAddress(profile, "a@example.org");
    mailbox.Add(Mail("u1"));
    const std::string log_file = OnDisk(profile.path) + "/profile.log";
    RunOnce(profile);
    EXPECT_FALSE(std::filesystem::exists(log_file));
    EXPECT_THAT(UidlsOnDisk(address), ElementsAre("u1"));

    WriteFile(log_file, "old\nlog");
    RunOnce(profile);
    EXPECT_EQ(ReadFile(log_file), "old\nlog");
}

TEST(RunLog, IsBoundedInEntriesOldestFirst) {
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(UnusedPort(), UnusedPort());
    AddAddress(profile, "off@example.org").setting.status = 0;
    WriteFile(OnDisk(profile.path) + "/profile.log", "one\r\ntwo\r\nthree\r\n");
    profile.setting.logsize = 5;
    // Six entries, of which the start line is one though it takes two lines in the file.
    EXPECT_EQ(RunOnce(profile), std::string("two\nthree\n") + kStart + "* disabled : off@example.org\n" + kEnd);
    // Six lines and three entries more.
    EXPECT_EQ(RunOnce(profile),
              std::string("* disabled : off@example.org\n") + kEnd + kStart + "* disabled : off@example.org\n" + kEnd);
    profile.setting.logsize = 1;
    EXPECT_EQ(RunOnce(profile), kEnd);
    profile.setting.logsize = 0;
    EXPECT_EQ(RunOnce(profile), std::string(kEnd) + kStart + "* disabled : off@example.org\n" + kEnd);
}

TEST(RunLog, LaterRunsAreAppended) {
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(UnusedPort(), UnusedPort());
    const std::string first = std::string(kStart) + kEnd;
    EXPECT_EQ(RunOnce(profile), first);
    profile.setting.lasttime = LocalMoment(2026, 12, 5, 0, 0, 9);
    EXPECT_EQ(RunOnce(profile), first + "\n---- Operation starting at Saturday, December 05, 2026 00:00:09\n" + kEnd);
}

TEST(Run, SavesItsSettingsWithVersionZeroAndTheJudgedLasttime) {
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(UnusedPort(), UnusedPort());
    profile.setting.version = 7;
    profile.setting.timer = 90;
    ASSERT_EQ(profile.SaveSetting(), 1);
    const std::string saved = ReadFile(ProfileFile(profile));
    ASSERT_THAT(saved, HasSubstr("[version]\r\n7\r\n"));

    CPopProfile loaded;
    loaded.SetPath(profile.path);
    ASSERT_EQ(loaded.setting.version, 7);
    loaded.setting.lasttime = LocalMoment(2026, 12, 5, 0, 0, 9);
    RunOnce(loaded);

    std::string expected = saved;
    expected.replace(expected.find("[version]\r\n7"), 12, "[version]\r\n0");
    const std::string old_time = "[lasttime]\r\n2009,3,15,10,20,5\r\n";
    ASSERT_THAT(expected, HasSubstr(old_time));
    expected.replace(expected.find(old_time), old_time.size(), "[lasttime]\r\n2026,12,5,0,0,9\r\n");
    EXPECT_EQ(ReadFile(ProfileFile(profile)), expected);
}

TEST_F(RunTest, PasswordsNeverReachTheLog) {
    AddAddress(profile, "a@example.org");
    mailbox.Add(Mail("u1"));
    EXPECT_THAT(RunOnce(profile), Not(HasSubstr("secret")));
}

TEST_F(RunTest, FreesEverythingOfTheRunButTheFlags) {
    AddAddress(profile, "a@example.org");
    CForwardAddress& disabled = AddAddress(profile, "off@example.org");
    disabled.setting.status = 0;
    CPopProfile copy;
    copy = profile;
    EXPECT_EQ(copy.DoOperation(), 1);
    EXPECT_EQ(copy.forward_addresses[0]->takes_part, 1);
    EXPECT_EQ(copy.forward_addresses[1]->takes_part, 0);
    EXPECT_EQ(profile.forward_addresses[0]->takes_part, 0) << "the tree is not touched by a run";
}

}  // namespace
}  // namespace tarvex::testing
