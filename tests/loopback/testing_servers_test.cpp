// The loopback servers themselves: what they say they do is what the other tests stand on.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <memory>
#include <string>
#include <thread>

#include "loopback/codec.h"
#include "loopback/mail_servers.h"
#include "testing/scripted_server.h"
#include "testing/temp_dir.h"

namespace tarvex::testing {
namespace {

using loopback::DeliveredMail;
using loopback::FromBase64;
using loopback::HmacMd5;
using loopback::MailboxServer;
using loopback::Md5;
using loopback::SinkServer;
using loopback::ToBase64;

using namespace std::chrono_literals;

struct FreeBio {
    void operator()(BIO* bio) const { BIO_free_all(bio); }
};
using Bio = std::unique_ptr<BIO, FreeBio>;

// A blocking client, plain to begin with.
class Client {
public:
    explicit Client(int port, const std::string& host = "127.0.0.1")
        : bio_(BIO_new_connect((host + ":" + std::to_string(port)).c_str())) {
        connected_ = BIO_do_connect(bio_.get()) == 1;
    }

    bool Connected() const { return connected_; }
    void Send(const std::string& bytes) { BIO_write(bio_.get(), bytes.data(), static_cast<int>(bytes.size())); }

    // Reads to the server's end.
    std::string Rest() {
        std::string text = std::exchange(rest_, {});
        char buffer[4096];
        for (int n; (n = BIO_read(bio_.get(), buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<size_t>(n));
        return text;
    }

    std::string Line() {
        char buffer[4096];
        while (rest_.find('\n') == std::string::npos) {
            const int n = BIO_read(bio_.get(), buffer, sizeof buffer);
            if (n <= 0) return std::exchange(rest_, {});
            rest_.append(buffer, static_cast<size_t>(n));
        }
        const std::string line = rest_.substr(0, rest_.find('\n') + 1);
        rest_.erase(0, line.size());
        return line;
    }

    // Verifies the server against the authority and the name or address, which is "127.0.0.1" or a host name.
    bool StartTls(const TlsIdentity& trusted, const std::string& name) {
        const std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
        const Bio pem(BIO_new_mem_buf(trusted.ca_certificate.data(), static_cast<int>(trusted.ca_certificate.size())));
        const std::shared_ptr<X509> ca(PEM_read_bio_X509(pem.get(), nullptr, nullptr, nullptr), X509_free);
        X509_STORE_add_cert(SSL_CTX_get_cert_store(context.get()), ca.get());
        SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
        BIO* const tls = BIO_new_ssl(context.get(), 1);
        SSL* ssl = nullptr;
        BIO_get_ssl(tls, &ssl);
        if (X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), name.c_str()) != 1) SSL_set1_host(ssl, name.c_str());
        bio_.reset(BIO_push(tls, bio_.release()));
        return BIO_do_handshake(bio_.get()) == 1;
    }

    void Close() { bio_.reset(); }

private:
    Bio bio_;
    std::string rest_;
    bool connected_ = false;
};

TEST(ScriptedServer, TranscriptHoldsEveryLineOfBothSides) {
    ScriptedServer server([](Peer& peer) {
        peer.Send("+OK ready\r\n");
        peer.Expect("USER alice");
        peer.Send("-ERR no\r\n+OK after all\r\n");
        peer.WaitForClose();
    });
    Client client(server.Port());
    EXPECT_EQ(client.Line(), "+OK ready\r\n");
    client.Send("USER alice\r\n");
    EXPECT_EQ(client.Line(), "-ERR no\r\n");
    client.Send("QUIT\r\nmore");
    client.Close();
    EXPECT_EQ(server.Transcript(),
              "S: +OK ready\nC: USER alice\nS: -ERR no\nS: +OK after all\nC: QUIT\nC: more\nC: (closed)\n");
    EXPECT_EQ(server.Connections(), 1);
}

TEST(ScriptedServer, AnotherLineThanExpectedIsRecordedAndEndsTheSession) {
    ScriptedServer server([](Peer& peer) {
        peer.Expect("USER alice");
        peer.Send("never sent\r\n");
    });
    Client client(server.Port());
    client.Send("USER bob\r\n");
    EXPECT_EQ(client.Rest(), "");
    EXPECT_EQ(server.Transcript(), "C: USER bob\n!! expected USER alice\n");
}

TEST(ScriptedServer, AMessageIsReadThroughItsTerminator) {
    std::string first, second;
    ScriptedServer server([&](Peer& peer) {
        first = peer.ReadMessage();
        second = peer.ReadMessage();
        peer.Expect("QUIT");
    });
    Client client(server.Port());
    client.Send("a\r\n.\n.\r");
    client.Send("\n..\r\n.\r\n.\r\nQUIT\r\n");
    EXPECT_EQ(server.Transcript(), "C: (message of 15 bytes)\nC: (message of 3 bytes)\nC: QUIT\n");
    EXPECT_EQ(first, "a\r\n.\n.\r\n..\r\n.\r\n");
    EXPECT_EQ(second, ".\r\n");
}

TEST(ScriptedServer, EveryConnectionHasTheNextSessionAndFurtherOnesAreClosed) {
    ScriptedServer server({[](Peer& peer) { peer.Send("one\r\n"); }, [](Peer& peer) { peer.Send("two\r\n"); }});
    EXPECT_EQ(Client(server.Port()).Rest(), "one\r\n");
    EXPECT_EQ(Client(server.Port()).Rest(), "two\r\n");
    EXPECT_EQ(Client(server.Port()).Rest(), "");
    EXPECT_EQ(server.Transcript(), "S: one\nS: two\n");
    EXPECT_EQ(server.Connections(), 3);
}

TEST(ScriptedServer, ADripArrivesWholeAndEndsQuietlyWhenTheClientGoes) {
    ScriptedServer server([](Peer& peer) { peer.Drip("+OK slow\r\n", 1ms); });
    EXPECT_EQ(Client(server.Port()).Rest(), "+OK slow\r\n");
    EXPECT_EQ(server.Transcript(), "S: +OK slow\n");

    ScriptedServer impatient([](Peer& peer) { peer.Drip(std::string(100'000, 'x'), 1ms); });
    Client(impatient.Port()).Close();
    EXPECT_THAT(impatient.Transcript(), ::testing::EndsWith("x\nC: (closed)\n"));
}

TEST(ScriptedServer, WhatWasSentBeforeTheEndArrivesThoughTheClientKeptTalking) {
    ScriptedServer server([](Peer& peer) {
        peer.ReadLine();
        peer.Send("-ERR go away\r\n");
        peer.Close();
    });
    Client client(server.Port());
    client.Send("USER alice\r\nunread\r\nlines\r\n");
    EXPECT_EQ(client.Rest(), "-ERR go away\r\n");
    EXPECT_EQ(server.Transcript(), "C: USER alice\nS: -ERR go away\nS: (closed)\n");
}

TEST(ScriptedServer, AResetIsRecorded) {
    ScriptedServer server([](Peer& peer) {
        peer.ReadLine();
        peer.Reset();
    });
    Client client(server.Port());
    client.Send("QUIT\r\n");
    EXPECT_EQ(client.Rest(), "");
    EXPECT_EQ(server.Transcript(), "C: QUIT\nS: (reset)\n");
}

TEST(ScriptedServer, ItsDestructionEndsSessionsThatWait) {
    const auto start = std::chrono::steady_clock::now();
    std::unique_ptr<Client> reader, slow;
    {
        ScriptedServer waiting([](Peer& peer) { peer.WaitForClose(); });
        ScriptedServer dripping([](Peer& peer) { peer.Drip("abc", 1h); });
        reader = std::make_unique<Client>(waiting.Port());
        slow = std::make_unique<Client>(dripping.Port());
        while (waiting.Connections() + dripping.Connections() < 2) std::this_thread::yield();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
}

TEST(ScriptedServer, AThousandConnectionsAtOnce) {
    ScriptedServer server([](Peer& peer) { peer.Expect("hello"); });
    for (int i = 0; i < 1000; ++i) Client(server.Port()).Send("hello\r\n");
    std::string expected;
    for (int i = 0; i < 1000; ++i) expected += "C: hello\n";
    EXPECT_TRUE(server.Transcript() == expected);
}

TEST(ScriptedServer, TlsBeginsWhereTheScriptSays) {
    const TlsIdentity identity = MakeTlsIdentity();
    ScriptedServer server([&](Peer& peer) {
        peer.Send("220 plain\r\n");
        peer.Expect("STARTTLS");
        peer.Send("220 go\r\n");
        if (!peer.StartTls(identity)) return;
        peer.Expect("EHLO me");
        peer.Send("250 secret\r\n");
        peer.Close();
        peer.WaitForClose();
    });
    Client client(server.Port());
    client.Line();
    client.Send("STARTTLS\r\n");
    EXPECT_EQ(client.Line(), "220 go\r\n");
    ASSERT_TRUE(client.StartTls(identity, "127.0.0.1"));
    client.Send("EHLO me\r\n");
    EXPECT_EQ(client.Rest(), "250 secret\r\n");
    client.Close();
    EXPECT_EQ(server.Transcript(),
              "S: 220 plain\nC: STARTTLS\nS: 220 go\n-- TLS\nC: EHLO me\nS: 250 secret\nS: (closed)\nC: (closed)\n");
}

TEST(ScriptedServer, ACarefulClientRefusesWrongCertificates) {
    struct Case {
        TlsOptions options;
        bool other_authority;
        std::string name;
        bool accepted;
    };
    TlsOptions expired;
    expired.expired = true;
    TlsOptions named;
    named.names = {"mail.example.org"};
    named.addresses = {};
    for (const Case& c : {Case{{}, false, "localhost", true}, Case{{}, true, "localhost", false},
                          Case{expired, false, "localhost", false}, Case{named, false, "mail.example.org", true},
                          Case{named, false, "localhost", false}, Case{named, false, "127.0.0.1", false}}) {
        const TlsIdentity identity = MakeTlsIdentity(c.options);
        const TlsIdentity trusted = c.other_authority ? MakeTlsIdentity() : identity;
        ScriptedServer server([&](Peer& peer) { peer.StartTls(identity); });
        Client client(server.Port());
        EXPECT_EQ(client.StartTls(trusted, c.name), c.accepted) << c.name;
        client.Close();
        EXPECT_EQ(server.Transcript(), c.accepted ? "-- TLS\n" : "-- TLS failed\n");
    }
}

TEST(ScriptedServer, NobodyListensOnAnUnusedPort) {
    const int port = UnusedPort();
    EXPECT_FALSE(Client(port).Connected());
    EXPECT_NE(UnusedPort(), port);
}

// Sends each line and returns what the server answered to all of them, the greeting first.
std::string Talk(int port, const std::vector<std::string>& lines) {
    Client client(port);
    for (const std::string& line : lines) client.Send(line + "\r\n");
    return client.Rest();
}

TEST(MailboxServer, ListsFetchesAndDeletesAtQuit) {
    MailboxServer server("alice", "secret");
    server.OfferApop(false);
    server.Add({"a", ".dots\r\n\r\n..\r\nend\r\n"});
    server.Add({"b", "no line end"});
    EXPECT_EQ(Talk(server.Port(), {"USER alice", "PASS secret", "STAT", "UIDL", "LIST", "UIDL 2", "RETR 1", "RETR 2",
                                   "DELE 1", "RETR 1", "UIDL", "QUIT"}),
              "+OK mailbox ready\r\n+OK\r\n+OK 2 messages\r\n+OK 2 29\r\n+OK\r\n1 a\r\n2 b\r\n.\r\n"
              "+OK\r\n1 18\r\n2 11\r\n.\r\n+OK 2 b\r\n"
              "+OK 18 octets\r\n..dots\r\n\r\n...\r\nend\r\n.\r\n+OK 11 octets\r\nno line end\r\n.\r\n"
              "+OK deleted\r\n-ERR no such message\r\n+OK\r\n2 b\r\n.\r\n+OK bye\r\n");
    ASSERT_EQ(server.Mails().size(), 1u);
    EXPECT_EQ(server.Mails()[0].uidl, "b");
    EXPECT_EQ(server.Received("RETR"), 3);
    server.Remove("b");
    EXPECT_TRUE(server.Mails().empty());
}

TEST(MailboxServer, WhatWasDeletedStaysWithoutAQuit) {
    MailboxServer server("alice", "secret");
    server.Add({"a", "text\r\n"});
    Client client(server.Port());
    client.Send("USER alice\r\nPASS secret\r\nDELE 1\r\n");
    for (int i = 0; i < 4; ++i) client.Line();
    client.Close();
    EXPECT_EQ(server.Mails().size(), 1u);
}

TEST(MailboxServer, TellsWhatItIsAboutToDelete) {
    MailboxServer server("alice", "secret");
    for (const char* const uidl : {"a", "b", "c"}) server.Add({uidl, "text\r\n"});
    std::vector<std::string> deleted;
    server.SetOnDelete([&](const std::string& uidl) {
        EXPECT_EQ(server.Mails().size(), 3 - deleted.size());
        deleted.push_back(uidl);
    });
    Talk(server.Port(), {"USER alice", "PASS secret", "DELE 1", "RSET", "DELE 3", "DELE 2", "QUIT"});
    EXPECT_THAT(deleted, ::testing::ElementsAre("b", "c"));
}

TEST(MailboxServer, LetsInWhoKnowsThePassword) {
    MailboxServer server("alice", "secret");
    Client client(server.Port());
    const std::string greeting = client.Line();
    const std::size_t open = greeting.find('<');
    const std::string timestamp = greeting.substr(open, greeting.find('>') - open + 1);
    client.Send("APOP alice " + Md5(timestamp + "wrong") + "\r\n");
    EXPECT_EQ(client.Line(), "-ERR wrong user or password\r\n");
    client.Send("LIST\r\n");
    EXPECT_EQ(client.Line(), "-ERR log in first\r\n");
    client.Send("APOP alice " + Md5(timestamp + "secret") + "\r\n");
    EXPECT_EQ(client.Line(), "+OK 0 messages\r\n");

    server.OfferApop(false);
    server.OfferUidl(false);
    EXPECT_EQ(Talk(server.Port(), {"USER alice", "PASS Secret", "USER alice", "PASS secret", "UIDL", "QUIT"}),
              "+OK mailbox ready\r\n+OK\r\n-ERR wrong user or password\r\n+OK\r\n+OK 0 messages\r\n"
              "-ERR unknown command\r\n+OK bye\r\n");
}

TEST(MailboxServer, FailsAsItIsTold) {
    MailboxServer server("alice", "secret");
    server.OfferApop(false);
    server.Add({"a", "text\r\n"});
    server.SetFault([](const std::string& command) {
        if (command == "PASS secret") return "-ERR not today";
        if (command == "NOOP") return "close";
        if (command == "QUIT") return "lose";
        return command == "STAT" ? "stall" : "";
    });
    EXPECT_EQ(Talk(server.Port(), {"USER alice", "PASS secret", "NOOP", "QUIT"}),
              "+OK mailbox ready\r\n+OK\r\n-ERR not today\r\n");
    server.SetFault([](const std::string& command) { return command == "QUIT" ? "lose" : ""; });
    EXPECT_EQ(Talk(server.Port(), {"USER alice", "PASS secret", "DELE 1", "QUIT"}),
              "+OK mailbox ready\r\n+OK\r\n+OK 1 messages\r\n+OK deleted\r\n");
    EXPECT_TRUE(server.Mails().empty());
}

TEST(SinkServer, KeepsWhatItTakesUnstuffed) {
    SinkServer server;
    EXPECT_EQ(Talk(server.Port(), {"EHLO me", "MAIL FROM:<a@example.org>", "RCPT TO:<b@example.org>", "RCPT TO:<c@d>",
                                   "DATA", "..dot", "\n.", "...", ".", "QUIT"}),
              "220 localhost ESMTP sink\r\n250-localhost\r\n250-SIZE 268435456\r\n250 8BITMIME\r\n250 2.1.0 ok\r\n"
              "250 2.1.5 ok\r\n250 2.1.5 ok\r\n354 go ahead\r\n250 2.0.0 taken\r\n221 2.0.0 bye\r\n");
    ASSERT_EQ(server.Delivered().size(), 1u);
    const DeliveredMail mail = server.Delivered()[0];
    EXPECT_EQ(mail.sender, "a@example.org");
    EXPECT_THAT(mail.recipients, ::testing::ElementsAre("b@example.org", "c@d"));
    EXPECT_EQ(mail.text, ".dot\r\n\n.\r\n..\r\n");
    EXPECT_TRUE(server.Delivered(1).empty());
    EXPECT_TRUE(server.Delivered(2).empty());
}

TEST(SinkServer, KeepsTheOrderOfATransaction) {
    SinkServer server;
    EXPECT_EQ(Talk(server.Port(), {"MAIL FROM:<a@b>", "HELO me", "RCPT TO:<c@d>", "DATA", "MAIL FROM:<a@b>",
                                   "MAIL FROM:<a@b>", "DATA", "RSET", "RCPT TO:<c@d>", "VRFY x", "QUIT"}),
              "220 localhost ESMTP sink\r\n503 5.5.1 greet first\r\n250 localhost\r\n503 5.5.1 MAIL first\r\n"
              "503 5.5.1 RCPT first\r\n250 2.1.0 ok\r\n503 5.5.1 nested MAIL command\r\n503 5.5.1 RCPT first\r\n"
              "250 2.0.0 ok\r\n503 5.5.1 MAIL first\r\n500 5.5.2 unknown command\r\n221 2.0.0 bye\r\n");
}

TEST(SinkServer, ARefusedMessageIsForgotten) {
    SinkServer server;
    server.SetFault([n = 0](const std::string& command) mutable {
        return command == "." && n++ == 0 ? "452 full\r\n" : std::string();
    });
    const std::vector<std::string> transaction = {"MAIL FROM:<a@b>", "RCPT TO:<c@d>", "DATA", "text", "."};
    std::vector<std::string> lines = {"HELO me"};
    lines.insert(lines.end(), transaction.begin(), transaction.end());
    lines.insert(lines.end(), transaction.begin(), transaction.end());
    lines.push_back("QUIT");
    EXPECT_THAT(Talk(server.Port(), lines), ::testing::HasSubstr("354 go ahead\r\n452 full\r\n250 2.1.0 ok\r\n"));
    ASSERT_EQ(server.Delivered().size(), 1u);
    EXPECT_EQ(server.Delivered()[0].text, "text\r\n");
    EXPECT_EQ(server.Received("."), 2);
}

TEST(SinkServer, AsksForALoginInThreeWays) {
    SinkServer server("alice", "secret");
    const std::string greeting =
        "220 localhost ESMTP sink\r\n250-localhost\r\n250-AUTH CRAM-MD5 LOGIN PLAIN\r\n250-SIZE 268435456\r\n"
        "250 8BITMIME\r\n";
    const auto plain = [](const std::string& password) { return ToBase64(std::string("\0alice\0", 7) + password); };
    EXPECT_EQ(Talk(server.Port(), {"EHLO me", "MAIL FROM:<a@b>", "AUTH PLAIN", plain("wrong"), "AUTH PLAIN",
                                   plain("secret"), "MAIL FROM:<a@b>", "QUIT"}),
              greeting +
                  "530 5.7.0 authentication required\r\n334 \r\n535 5.7.8 wrong user or password\r\n334 \r\n"
                  "235 2.7.0 welcome\r\n250 2.1.0 ok\r\n221 2.0.0 bye\r\n");
    EXPECT_EQ(Talk(server.Port(), {"EHLO me", "AUTH LOGIN", ToBase64("alice"), ToBase64("secret"), "QUIT"}),
              greeting + "334 VXNlcm5hbWU6\r\n334 UGFzc3dvcmQ6\r\n235 2.7.0 welcome\r\n221 2.0.0 bye\r\n");

    Client client(server.Port());
    client.Send("EHLO me\r\nAUTH CRAM-MD5\r\n");
    for (int i = 0; i < 5; ++i) client.Line();
    const std::string challenge = FromBase64(client.Line().substr(4, 36));
    client.Send(ToBase64("alice " + HmacMd5("secret", challenge)) + "\r\n");
    EXPECT_EQ(client.Line(), "235 2.7.0 welcome\r\n");
}

TEST(TestingCodec, AgreesWithPublishedExamples) {
    EXPECT_EQ(Md5("<1896.697170952@dbc.mtview.ca.us>tanstaaf"), "c4c9334bac560ecc979e58001b3e22fb");  // RFC 1939
    EXPECT_EQ(HmacMd5("tanstaaftanstaaf", "<1896.697170952@postoffice.reston.mci.net>"),
              "b913a602c7eda7a495b4e6e7334d3890");  // RFC 2195
    EXPECT_EQ(ToBase64("ab"), "YWI=");
    EXPECT_EQ(FromBase64("YWI="), "ab");
    EXPECT_EQ(FromBase64("YWJj"), "abc");
    EXPECT_EQ(FromBase64("?"), "");
}

TEST(TempDir, LivesAsLongAsItsObjectAndGoesWithItsContent) {
    std::filesystem::path path;
    {
        const TempDir dir;
        path = dir.Path();
        std::filesystem::create_directory(path / "locked");
        WriteFile(path / "locked" / "file", "a\r\nb\n");
        EXPECT_EQ(ReadFile(path / "locked" / "file"), "a\r\nb\n");
        EXPECT_EQ(ReadFile(dir / "missing"), "");
        std::filesystem::permissions(path / "locked", std::filesystem::perms::none);
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
}  // namespace tarvex::testing
