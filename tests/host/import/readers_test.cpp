// The configuration files of other mail clients, and what is made of them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "host/import/imported.h"
#include "host/system/command_error.h"

namespace tarvex::testing {
namespace {

using host::ImportKind;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

// A mailbox in a line: "popserver=... popuser=...", in the order of the keys; of passwords "poppassword:secret".
std::string Told(const host::ImportedMailbox& mailbox) {
    std::string text = std::to_string(mailbox.line) + ':';
    for (const auto* const values : {&mailbox.values, &mailbox.rules}) {
        for (const auto& [key, value] : *values) text += ' ' + key + '=' + value;
    }
    for (const auto& [key, secret] : mailbox.secrets) text += ' ' + key + ':' + secret;
    for (const std::string& address : mailbox.forwards) text += " -> " + address;
    return text + (mailbox.tls_if_offered ? " (TLS if offered)" : "");
}

std::vector<std::string> Read(ImportKind kind, const std::string& text) {
    std::vector<std::string> told;
    const host::Imported imported = host::ReadImport(kind, text);
    for (const auto& mailbox : imported.mailboxes) told.push_back(Told(mailbox));
    for (const auto& note : imported.notes) told.push_back(std::to_string(note.line) + "? " + note.text);
    return told;
}

std::string WhyNot(ImportKind kind, const std::string& text) {
    try {
        Read(kind, text);
        return "it was read";
    } catch (const host::CommandError& error) {
        EXPECT_EQ(error.ExitCode(), host::kBadData);
        return error.what();
    }
}

TEST(Fetchmailrc, EntriesBecomeMailboxes) {
    const std::string text = R"(# of a home
set daemon 300
set logfile "/var/log/fetchmail"
defaults proto pop3 timeout 60, keep
poll pop.example.org with options interval 2:
    user "alice" there with password "s\"e c#ret\n\0101\x42" is alice@example.net here and wants ssl
    user bob there with pass 'x' is bob here no keep fetchlimit 10
skip work via 10.0.0.1 port 1110 user carol pass c sslproto "TLS1.2+" smtphost relay.example.net/587 smtpname me@example.com
     esmtpname relayuser esmtppassword relaypass sslcertfile /etc/ca.pem
poll imap.example.org proto imap user dave pass d
)";
    EXPECT_THAT(
        Read(ImportKind::Fetchmailrc, text),
        ElementsAre(
            "6: deletemail=off popserver=pop.example.org popuser=alice smtpserver=localhost timeout=60 timer=10 "
            "pop_tls=tls poppassword:s\"e c#ret\nAB -> alice@example.net",
            "7: deletemail=on popserver=pop.example.org popuser=bob smtpserver=localhost timeout=60 timer=10 "
            "poppassword:x -> bob@localhost (TLS if offered)",
            "8: deletemail=off popport=1110 popserver=10.0.0.1 popuser=carol smtpauth=on smtpport=587 "
            "smtpserver=relay.example.net smtpuser=relayuser status=off timeout=60 timer=5 pop_tls=starttls "
            "tls_authority=/etc/ca.pem poppassword:c smtppassword:relaypass -> me@example.com",
            "3? set logfile", "7? fetchlimit", "10? left out: a mailbox that is not fetched by POP3"));
}

TEST(Fetchmailrc, NamesMayStandInBothOrders) {
    const std::string expected =
        "1: deletemail=on popserver=s popuser=eric smtpserver=localhost -> esr@localhost "
        "(TLS if offered)";
    for (const char* const text :
         {"poll s user eric there is esr here", "poll s user esr here is eric there", "poll s user eric is esr",
          "server s username \"eric\" to 'esr' here", "defaults user eric is esr poll s"}) {
        EXPECT_THAT(Read(ImportKind::Fetchmailrc, text), ElementsAre(expected)) << text;
    }
    EXPECT_THAT(Read(ImportKind::Fetchmailrc, "poll s proto pop3 user eric is esr ann here"),
                ElementsAre("1: deletemail=on popserver=s popuser=eric smtpserver=localhost (TLS if offered)",
                            "1? mail is sorted to several names"));
}

TEST(Fetchmailrc, NoteNothingThatMayBeAPassword) {
    const auto told = Read(ImportKind::Fetchmailrc, "poll s user eric pass my secret word mda \"run hidden\"");
    EXPECT_THAT(told, ElementsAre(StartsWith("1: "), "1? a word that has no meaning there",
                                  "1? a word that has no meaning there", "1? mda"));
}

TEST(Fetchmailrc, WhatIsNoneIsRefusedWithItsLine) {
    const std::pair<std::string, const char*> cases[] = {
        {"poll s\nuser \"x", "line 2: a quote is not closed"},
        {"poll s user x pass 'a\\'", "line 1: a quote is not closed"},
        {"poll s\nuser x\npass", "line 3: pass has no value"},
        {"poll s user", "line 1: user has no value"},
        {"poll s user x is", "line 1: is has no value"},
        {"\npoll", "line 2: poll has no server"},
        {"user x", "line 1: user stands outside of an entry"},
        {"set", "line 1: set what?"},
        {"set daemon", "line 1: daemon has no value"},
        {"set daemon many", "line 1: daemon takes a number"},
        {"set daemon 99999999999999999999", "line 1: daemon takes a number"},
        {"poll s interval x", "line 1: interval takes a number"},
        {std::string("poll s\n\0user x", 14), "line 2: there is a NUL"},
        {std::string("poll s user '\n\0'", 16), "line 2: there is a NUL"},
        {"", "line 1: there is no mailbox"},
        {"# nothing\n\n", "line 1: there is no mailbox"},
    };
    for (const auto& [text, why] : cases) EXPECT_THAT(WhyNot(ImportKind::Fetchmailrc, text), StartsWith(why)) << text;
}

TEST(Getmailrc, TheRetrieverBecomesAMailbox) {
    const std::string text = R"([retriever]
type = SimplePOP3SSLRetriever
server: pop.example.org
port = 1995
username = me@example.org
password = pa ss = word
use_apop = True
timeout = 90
ca_certs = /etc/ca.pem
password_command = ("/bin/pass",
    "-p")
[destination]
type = Maildir
path = ~/Maildir/
; a comment
[options]
delete = true
read_all = false
delete_after = 30
)";
    EXPECT_THAT(Read(ImportKind::Getmailrc, text),
                ElementsAre("2: apop=on deletemail=on popport=1995 popserver=pop.example.org popuser=me@example.org "
                            "timeout=90 pop_tls=tls tls_authority=/etc/ca.pem poppassword:pa ss = word",
                            "10? password_command", "13? [destination]", "19? delete_after"));
    EXPECT_THAT(Read(ImportKind::Getmailrc, "[retriever]\ntype=SimpleIMAPRetriever\nserver=s\n"),
                ElementsAre("2? left out: a mailbox that is not fetched by POP3"));
    const std::pair<const char*, const char*> cases[] = {
        {"[retriever", "line 1: a section is not closed"},
        {"[retriever]\nnonsense", "line 2: this is neither"},
        {"type = x", "line 1: a setting stands before"},
        {"[retriever]\nuse_apop = perhaps", "line 2: use_apop is neither"},
        {"[options]\n", "line 1: there is no [retriever]"},
    };
    for (const auto& [bad, why] : cases) EXPECT_THAT(WhyNot(ImportKind::Getmailrc, bad), StartsWith(why)) << bad;
}

TEST(Mpoprc, AccountsBecomeMailboxes) {
    const std::string text = R"(# all accounts
defaults
tls on
timeout 60
delivery maildir ~/Mail

account home
host pop.example.org
user "me@example.org"
password "a b"
tls_starttls off

account work : home
  host pop.example.com
  auth xoauth2
  passwordeval "get-token --for me"
  keep on

account old
host 127.0.0.1
port 1110
tls off
passwordeval pass show
account default : home
)";
    EXPECT_THAT(
        Read(ImportKind::Mpoprc, text),
        ElementsAre("7: deletemail=on popserver=pop.example.org popuser=me@example.org timeout=60 pop_tls=tls "
                    "poppassword:a b",
                    "13: deletemail=off popserver=pop.example.com popuser=me@example.org timeout=60 pop_login=xoauth2 "
                    "pop_tls=tls token_command=get-token --for me",
                    "19: deletemail=on popport=1110 popserver=127.0.0.1 timeout=60 pop_tls=off", "5? delivery",
                    "23? passwordeval"));
    const std::pair<const char*, const char*> cases[] = {
        {"host x", "line 1: host stands before the first account"},
        {"account a\nuser \"x", "line 2: a quote is not closed"},
        {"account a\nuser \"", "line 2: a quote is not closed"},
        {"account", "line 1: an account has no name"},
        {"account a\naccount a", "line 2: there is an account of this name"},
        {"account a : b", "line 1: the account behind the colon"},
        {"account a\nhost x\nkeep perhaps", "line 3: keep is neither"},
        {"account a", "line 1: there is no account with a host"},
    };
    for (const auto& [bad, why] : cases) EXPECT_THAT(WhyNot(ImportKind::Mpoprc, bad), StartsWith(why)) << bad;
}

TEST(OldIds, AreThoseOfTheMailbox) {
    host::ImportedMailbox mailbox;
    mailbox.values = {{"popserver", "pop.example.org"}, {"popuser", "me@example.org"}};
    const auto ids = [&](ImportKind kind, const std::string& text) { return host::ReadOldIds(kind, text, mailbox); };
    EXPECT_THAT(
        ids(ImportKind::Fetchmailrc,
            "me@example.org@pop.example.org UID1\nme@pop.example.org UID2\nme@example.org@pop.example.org UID3\n"),
        ElementsAre("UID1", "UID3"));
    EXPECT_THAT(ids(ImportKind::Getmailrc, std::string("UID2\0001795341550\nUID1\0001795341550\n", 32)),
                ElementsAre("UID2", "UID1"));
    EXPECT_THAT(ids(ImportKind::Mpoprc,
                    "# a comment\n 2 pop.example.org me@example.org\nUID1\nUID2\n 1 pop.example.org me\n"
                    "UID3\n \n"),
                ElementsAre("UID1", "UID2"));
    EXPECT_THAT(ids(ImportKind::Fetchmailrc, ""), IsEmpty());
    EXPECT_THROW(ids(ImportKind::Fetchmailrc, "UID1\n"), host::CommandError);
    EXPECT_THROW(ids(ImportKind::Getmailrc, "UID1\n"), host::CommandError);
}

}  // namespace
}  // namespace tarvex::testing
