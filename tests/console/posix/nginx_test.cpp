// The console behind Debian's nginx, by the file that we ship for it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <mutex>

#include "testing/child_process.h"
#include "testing/scripted_server.h"
#include "tests/console/support/posix/raw_client.h"
#include "tests/console/support/posix/running_console.h"
#include "tests/console/support/posix/scripted_desk.h"
#include "tests/console/support/posix/tls_client.h"

namespace tarvex::testing {
namespace {

using ::testing::HasSubstr;

constexpr const char* kNginx = "/usr/sbin/nginx";

void Replace(std::string& text, const std::string& old, const std::string& by) {
    const std::size_t at = text.find(old);
    ASSERT_NE(at, std::string::npos) << old;
    text.replace(at, old.size(), by);
}

// nginx cannot choose one by itself and say which.
int FreePort() {
    const ScriptedServer server([](Peer&) {});
    return server.Port();
}

class BehindNginx : public ::testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(kNginx)) GTEST_SKIP() << "nginx is not installed";
        std::string site = ReadFile(TARVEX_NGINX_SITE);
        const TlsIdentity identity = MakeTlsIdentity();
        WriteFile(folder_ / "c.pem", identity.certificate);
        WriteFile(folder_ / "k.pem", identity.key);
        Replace(site, "/run/tarvex-console/http.sock", console_->Socket());
        Replace(site, "listen 443 ssl", "listen 127.0.0.1:" + std::to_string(port_) + " ssl");
        Replace(site, "    listen [::]:443 ssl;\n", "");
        Replace(site, "/etc/ssl/certs/console.example.org.pem", folder_ / "c.pem");
        Replace(site, "/etc/ssl/private/console.example.org.pem", folder_ / "k.pem");
        Replace(site, "console.example.org", "localhost");
        std::string places;
        for (const char* const what : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
            places += std::string(what) + "_temp_path " + (folder_ / what) + ";\n";
        const char* const user = geteuid() == 0 ? "user root;\n" : "";  // else nginx gives up what opens our folders
        WriteFile(folder_ / "nginx.conf",
                  user + ("pid " + (folder_ / "pid")) +
                      ";\ndaemon off;\nmaster_process off;\nerror_log stderr;\nevents {}\nhttp {\n"
                      "access_log off;\n" +
                      places + site + "}\n");
        nginx_ = std::make_unique<ChildProcess>(
            std::vector<std::string>{kNginx, "-p", folder_.String(), "-e", "stderr", "-c", folder_ / "nginx.conf"},
            ChildProcess::Output::Together);
        const auto deadline = std::chrono::steady_clock::now() + kClientPatience;
        while (ReadFile(folder_ / "pid").empty() && std::chrono::steady_clock::now() < deadline)
            ASSERT_FALSE(nginx_->WaitFor(std::chrono::milliseconds(20))) << nginx_->Printed();
    }

    TlsPage Ask(const std::string& path, const std::string& more_headers = {}) const {
        return AskOverTls(port_, GetRequest(path, "Connection: close\r\n" + more_headers));
    }

    // A form of a page that this browser has from https://localhost:PORT.
    std::string Send(const std::string& form, const std::string& origin_port) const {
        std::string request = PostRequest("/login", form);
        Replace(request, "Host: localhost\r\nSec-Fetch-Site: same-origin\r\n",
                "Host: localhost:" + std::to_string(port_) + "\r\nOrigin: https://localhost:" + origin_port +
                    "\r\nX-Forwarded-For: 203.0.113.9\r\nConnection: close\r\n");
        return AskOverTls(port_, request).answer;
    }

    const int port_ = FreePort();
    TempDir folder_;
    std::unique_ptr<RunningConsole> console_ =
        std::make_unique<RunningConsole>(std::vector<std::string>{"--listen", "SOCKET"});
    std::unique_ptr<ChildProcess> nginx_;
};

TEST_F(BehindNginx, PagesArriveWithAllTheirHeaders) {
    const std::string answer = Ask("/login").answer;
    EXPECT_EQ(StatusIn(answer), 200);
    EXPECT_THAT(answer, HasSubstr("\r\nStrict-Transport-Security: "));
    EXPECT_THAT(answer, HasSubstr("\r\nContent-Security-Policy: default-src 'none'; "));
    EXPECT_THAT(answer, HasSubstr("</html>"));
}

TEST_F(BehindNginx, FormsArriveWithTheAddressThatNginxSaw) {
    std::mutex mutex;
    std::string question;
    const ScriptedDesk desk(console_->Desk(), [&](const DeskTalk& talk) {
        const std::lock_guard lock(mutex);
        question = talk.ReadQuestion();
        talk.Answer(R"({"status": "refused", "message": "no"})");
    });
    EXPECT_EQ(StatusIn(Send("name=x", std::to_string(port_))), 422);
    EXPECT_THAT(question, HasSubstr(R"("address":"127.0.0.1")"));
    EXPECT_EQ(StatusIn(Send("name=x", "1")), 403);
    EXPECT_EQ(StatusIn(Send("name=" + std::string((1 << 20) - 5, 'a'), std::to_string(port_))), 422);
    EXPECT_EQ(StatusIn(Send("name=" + std::string(1 << 20, 'a'), std::to_string(port_))), 413);
}

TEST_F(BehindNginx, WithoutTheConsoleNginxSaysSo) {
    ASSERT_EQ(console_->End(), 0);
    EXPECT_EQ(StatusIn(Ask("/login").answer), 502);
}

}  // namespace
}  // namespace tarvex::testing
