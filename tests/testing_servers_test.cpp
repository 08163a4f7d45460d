// The loopback servers themselves: what they say they do is what the other tests stand on.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <memory>
#include <string>
#include <thread>

#include "testing/scripted_server.h"
#include "testing/temp_dir.h"

namespace tarvex::testing {
namespace {

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
