// The console with a certificate of its own, and what it tells the service manager.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <csignal>

#include "testing/scripted_server.h"
#include "tests/console/support/posix/raw_client.h"
#include "tests/console/support/posix/running_console.h"
#include "tests/console/support/posix/tls_client.h"

namespace tarvex::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

const std::string kRequest = GetRequest("/login", "Connection: close\r\n");

// The socket of a service manager.
class Manager {
public:
    explicit Manager(const std::string& path) : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::ranges::copy(path, address.sun_path);
        EXPECT_EQ(bind(socket_.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        const timeval limit{30, 0};
        setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }

    std::string Next() const {
        std::array<char, 256> text;
        const ssize_t length = recv(socket_.Get(), text.data(), text.size(), 0);
        return length < 0 ? "" : std::string(text.data(), static_cast<std::size_t>(length));
    }

private:
    host::Descriptor socket_;
};

TEST(ConsoleTls, ServesItsCertificateAndLoadsItAgain) {
    const TempDir folder;
    const auto store = [&](const TlsIdentity& identity) {
        WriteFile(folder / "c.pem", identity.certificate);
        WriteFile(folder / "k.pem", identity.key);
    };
    const TlsIdentity first = MakeTlsIdentity();
    const TlsIdentity second = MakeTlsIdentity();
    store(first);
    const Manager manager(folder / "notify");
    RunningConsole console({"--certificate", folder / "c.pem", "--key", folder / "k.pem"},
                           {"NOTIFY_SOCKET=" + (folder / "notify")});
    EXPECT_EQ(manager.Next(), "READY=1");
    EXPECT_THAT(console.Process().Printed(), StartsWith("The console is at https://localhost:"));

    const TlsPage page = AskOverTls(console.Port(), kRequest);
    EXPECT_EQ(page.certificate, first.certificate);
    EXPECT_EQ(StatusIn(page.answer), 200);
    EXPECT_THAT(page.answer, HasSubstr("\r\nStrict-Transport-Security: "));
    EXPECT_EQ(AskOverTls(console.Port(), kRequest, TLS1_1_VERSION).certificate, "");

    // In clear there is no answer, and the console goes on.
    RawClient clear(console.Port());
    clear.Send(GetRequest("/login"));
    EXPECT_THAT(clear.ReadToEnd(), ::testing::Not(HasSubstr("HTTP/")));

    store(second);
    console.Process().Signal(SIGHUP);
    EXPECT_THAT(manager.Next(), StartsWith("RELOADING=1\nMONOTONIC_USEC="));
    EXPECT_EQ(manager.Next(), "READY=1");
    EXPECT_EQ(AskOverTls(console.Port(), kRequest).certificate, second.certificate);

    // A key that does not fit changes nothing.
    WriteFile(folder / "k.pem", first.key);
    console.Process().Signal(SIGHUP);
    manager.Next();
    EXPECT_EQ(manager.Next(), "READY=1");
    EXPECT_EQ(AskOverTls(console.Port(), kRequest).certificate, second.certificate);

    EXPECT_EQ(console.End(), 0);
    EXPECT_EQ(manager.Next(), "STOPPING=1");
    EXPECT_THAT(console.Process().Printed(), HasSubstr("keeps the old certificate: "));
}

TEST(ConsoleTls, DoesNotStartWithoutAUsableCertificate) {
    const TempDir folder;
    WriteFile(folder / "c.pem", "no certificate");
    ChildProcess console(
        {TARVEX_CONSOLE, "--listen", "127.0.0.1:0", "--certificate", folder / "c.pem", "--key", folder / "none"});
    console.Wait();
    EXPECT_EQ(console.ExitCode(), 78);
    EXPECT_THAT(console.Errors(), HasSubstr("cannot use certificate"));
}

}  // namespace
}  // namespace tarvex::testing
