// The demo in the browser: `tarvex demo --console`.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "testing/child_process.h"
#include "testing/temp_dir.h"
#include "tests/console/support/posix/raw_client.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::HasSubstr;
using ::testing::SizeIs;
using Output = ChildProcess::Output;

constexpr auto kLong = 60s;

std::vector<pid_t> ChildrenOf(int process) {
    const std::string number = std::to_string(process);
    std::ifstream file("/proc/" + number + "/task/" + number + "/children");
    return {std::istream_iterator<pid_t>(file), {}};
}

std::string Behind(const std::string& text, const std::string& what) {
    const std::size_t start = text.find(what) + what.size();
    return text.substr(start, text.find('\n', start) - start);
}

// The page behind an answer's cookie, asked for until it has the text.
std::string PageWith(int port, const std::string& path, const std::string& cookie, const std::string& text) {
    std::string page;
    for (const auto deadline = std::chrono::steady_clock::now() + kLong;
         page.find(text) == std::string::npos && std::chrono::steady_clock::now() < deadline;
         std::this_thread::sleep_for(100ms)) {
        RawClient client(port);
        client.Send(GetRequest(path, "Cookie: " + cookie + "\r\n"));
        page = client.ReadAnswer();
    }
    return page;
}

TEST(DemoInBrowser, ForwardsForWhoLogsInAndLeavesNothingBehind) {
    const TempDir folder;
    ChildProcess demo({TARVEX_HOST, "demo", "--console"}, Output::Together, {"TMPDIR=" + folder.String()});
    ASSERT_TRUE(demo.WaitForOutput("Ctrl+C", kLong)) << demo.Printed();
    const int port = std::stoi(Behind(demo.Printed(), "http://localhost:"));
    const std::string password = Behind(demo.Printed(), "password of both:            ");
    const std::vector<pid_t> programs = ChildrenOf(demo.Number());
    EXPECT_THAT(programs, SizeIs(2));

    for (const char* const name : {"admin", "demo"}) {
        RawClient client(port);
        client.Send(PostRequest("/login", std::string("name=") + name + "&password=" + password));
        const std::string answer = client.ReadAnswer();
        ASSERT_EQ(StatusIn(answer), 303) << answer;
        const std::string cookie = Behind(answer, "Set-Cookie: ");
        const std::string session = cookie.substr(0, cookie.find(';'));
        EXPECT_THAT(PageWith(port, "/held", session, "554 5.7.1"), HasSubstr("554 5.7.1 we do not want this"));
        EXPECT_THAT(PageWith(port, "/mails", session, "Lunch on Friday?"), HasSubstr("会議の資料"));
    }

    demo.Signal(SIGINT);
    ASSERT_TRUE(demo.WaitFor(kLong));
    EXPECT_EQ(demo.ExitCode(), 0) << demo.Printed();
    for (const pid_t program : programs) EXPECT_NE(kill(program, 0), 0);
    EXPECT_TRUE(fs::is_empty(folder.Path()));
}

TEST(DemoInBrowser, SaysThatTheConsoleIsMissing) {
    const TempDir folder;
    fs::copy_file(TARVEX_HOST, folder.Path() / "copy");
    ChildProcess demo({folder / "copy", "demo", "--console"}, Output::Together,
                      {"LD_LIBRARY_PATH=" + (fs::path(TARVEX_HOST).parent_path().parent_path() / "lib").string()});
    demo.Wait();
    EXPECT_EQ(demo.ExitCode(), 69);
    EXPECT_THAT(demo.Printed(), HasSubstr("tarvex-console is not installed"));
}

}  // namespace
}  // namespace tarvex::testing
