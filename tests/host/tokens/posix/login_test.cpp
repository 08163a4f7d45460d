// Logging in at a provider: by a code, by a browser, and as the command does it.

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "host/system/command_error.h"
#include "host/system/posix/descriptor.h"
#include "host/tokens/posix/https.h"
#include "host/tokens/posix/provider.h"
#include "host/tokens/posix/provider_login.h"
#include "testing/child_process.h"
#include "testing/temp_dir.h"
#include "tests/host/tokens/posix/authorization_server.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using host::LoginDialogue;
using host::Provider;
using host::TokenTrouble;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr const char* kDevice =
    R"({"device_code":"dev","user_code":"ABCD-EFGH","verification_uri":"https://example.org/go",)"
    R"("expires_in":60,"interval":3})";
constexpr const char* kToken = R"({"access_token":"access","refresh_token":"refresh","expires_in":60})";

ProviderAnswer Error(const std::string& error) { return {400, R"({"error":")" + error + R"("})"}; }

// What a person is told, and how long the login pauses; nobody waits.
struct Person {
    LoginDialogue Dialogue() {
        return {[this](const std::string& line) { said += line + '\n'; },
                [this](std::chrono::seconds pause) {
                    if (pause > 0s) pauses.push_back(pause.count());
                    return !has_enough;
                },
                open, "me@example.org"};
    }

    std::string said;
    std::vector<long> pauses;
    bool has_enough = false;
    std::function<void(const std::string&)> open = [](const std::string&) {};
};

Provider ProviderAt(const AuthorizationServer& server) {
    const TempDir root;
    std::filesystem::create_directories(root / "providers.d");
    WriteFile(root / "providers.d/example.def", server.ProviderFile());
    return host::ProviderNamed(root.String(), "example");
}

// ---- by a code

struct DeviceCase {
    std::vector<std::optional<ProviderAnswer>> polls;  // the answers to the questions whether it is done
    std::string ends;                                  // the token, or why there is none
    std::vector<long> pauses;
};

TEST(DeviceLogin, AsksAsOftenAsItMayUntilItIsDecided) {
    const ProviderAnswer pending = Error("authorization_pending");
    const ProviderAnswer slow = Error("slow_down");
    const std::vector<DeviceCase> cases = {
        {{{{200, kToken}}}, "access", {3}},
        {{pending, pending, {{200, kToken}}}, "access", {3, 3, 3}},
        {{slow, pending, slow, {{200, kToken}}}, "access", {3, 8, 8, 13}},
        {{{{500, ""}}, {{200, "?"}}, {{200, kToken}}}, "access", {3, 6, 12}},
        {{pending, Error("access_denied")}, "the login was refused", {3, 3}},
        {{Error("expired_token")}, "the code has expired before somebody typed it", {3}},
        {{slow, slow, slow, slow, pending, pending},
         "the code has expired before somebody typed it",
         {3, 8, 13, 18, 23}},
        {{Error("invalid_client")}, "the provider refuses: invalid_client", {3}},
    };
    for (const DeviceCase& one : cases) {
        std::size_t polls = 0;
        const AuthorizationServer server([&](const ProviderRequest& request) -> std::optional<ProviderAnswer> {
            if (request.path == "/device") return ProviderAnswer{200, kDevice};
            EXPECT_EQ(request.form.at("device_code"), "dev");
            EXPECT_EQ(request.form.at("grant_type"), "urn:ietf:params:oauth:grant-type:device_code");
            return one.polls.at(polls++);
        });
        Person person;
        std::string end;
        try {
            end = host::LogInByDevice(ProviderAt(server), person.Dialogue()).access_token;
        } catch (const TokenTrouble& trouble) {
            end = trouble.what();
        }
        EXPECT_EQ(end, one.ends);
        EXPECT_EQ(person.pauses, one.pauses) << one.ends;
        EXPECT_THAT(person.said, HasSubstr("https://example.org/go in a browser"));
        EXPECT_THAT(person.said, HasSubstr("ABCD-EFGH"));
        EXPECT_EQ(server.Requests().front().form.at("scope"), "mail offline_access");
    }
}

TEST(DeviceLogin, EndsWithWordsWhereThereIsNoCode) {
    for (const auto& [answer, words] : std::vector<std::pair<ProviderAnswer, std::string>>{
             {{200, "{}"}, "gives no code"},
             {{200, "[]"}, "gives no code"},
             {{200, R"({"device_code":"a","user_code":7,"verification_uri":"u"})"}, "gives no code"},
             {{404, "<html>"}, "HTTP status 404"},
             {{400, R"({"error":"invalid_scope"})"}, "refuses: invalid_scope"}}) {
        const AuthorizationServer server([&](const ProviderRequest&) { return answer; });
        Person person;
        try {
            host::LogInByDevice(ProviderAt(server), person.Dialogue());
            FAIL() << words;
        } catch (const TokenTrouble& trouble) {
            EXPECT_THAT(trouble.what(), HasSubstr(words));
        }
    }
}

TEST(DeviceLogin, EndsWhenThePersonHasEnough) {
    const AuthorizationServer server([](const ProviderRequest&) { return ProviderAnswer{200, kDevice}; });
    Person person;
    person.has_enough = true;
    EXPECT_THROW(host::LogInByDevice(ProviderAt(server), person.Dialogue()), TokenTrouble);
    EXPECT_EQ(server.Requests().size(), 1U);
}

// ---- by a browser

std::string FieldOf(const std::string& url, const std::string& name) {
    const std::size_t at = url.find(name + '=');
    return at == std::string::npos ? "" : url.substr(at + name.size() + 1, url.find('&', at) - at - name.size() - 1);
}

int PortIn(const std::string& url) {
    const std::string back = FieldOf(url, "redirect_uri");  // http%3A%2F%2F127.0.0.1%3APORT%2F
    return std::stoi(back.substr(back.rfind("%3A") + 3));
}

host::Descriptor Connect(int port) {
    host::Descriptor connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool connected = connect(connection.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    return connected ? std::move(connection) : host::Descriptor();
}

// What a browser gets for a request.
std::string Get(int port, const std::string& path) {
    const host::Descriptor connection = Connect(port);
    if (!connection.IsOpen()) return "no connection";
    const std::string request = "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
    send(connection.Get(), request.data(), request.size(), MSG_NOSIGNAL);
    std::string text;
    std::array<char, 4096> piece{};
    for (ssize_t count = 0; (count = recv(connection.Get(), piece.data(), piece.size(), 0)) > 0;)
        text.append(piece.data(), static_cast<std::size_t>(count));
    return text.substr(0, text.find('\r'));
}

std::string Sha256AsUrlBase64(const std::string& text) {
    std::array<unsigned char, 32> digest{};
    EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
    std::string base64(45, '\0');
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(base64.data()), digest.data(), static_cast<int>(digest.size()));
    for (char& c : base64) c = c == '+' ? '-' : c == '/' ? '_' : c;
    return base64.substr(0, base64.find('='));
}

class BrowserLogin : public ::testing::Test {
protected:
    // The browser visits these pages, in which "STATE" stands for the secret of the login, and then has these answers.
    std::string LogIn(
        const std::vector<std::string>& visits, const std::function<void(int)>& before = [](int) {}) {
        std::thread browser;
        Person person;
        person.open = [&](const std::string& url) {
            url_ = url;
            before(PortIn(url));
            browser = std::thread([this, visits] {
                for (std::string path : visits) {
                    if (const std::size_t at = path.find("STATE"); at != std::string::npos)
                        path.replace(at, 5, FieldOf(url_, "state"));
                    answers_.push_back(Get(PortIn(url_), path));
                }
            });
        };
        std::string end;
        try {
            end = host::LogInByBrowser(ProviderAt(server_), person.Dialogue(), 20s).refresh_token;
        } catch (const TokenTrouble& trouble) {
            end = trouble.what();
        }
        browser.join();
        EXPECT_THAT(person.said, HasSubstr(url_));
        return end;
    }

    std::string url_;
    std::vector<std::string> answers_;
    AuthorizationServer server_{[](const ProviderRequest&) { return ProviderAnswer{200, kToken}; }};
};

TEST_F(BrowserLogin, TakesTheCodeOfWhoKnowsTheStateAlone) {
    EXPECT_EQ(LogIn({"/", "/?code=evil", "/?code=evil&state=x", "/favicon.ico", "/?code=a%2Bb%20&state=STATE"}),
              "refresh");
    EXPECT_THAT(answers_, ElementsAre("HTTP/1.1 404 Not Found", "HTTP/1.1 404 Not Found", "HTTP/1.1 404 Not Found",
                                      "HTTP/1.1 404 Not Found", "HTTP/1.1 200 OK"));
    ASSERT_EQ(server_.Requests().size(), 1U);
    const auto form = server_.Requests().front().form;
    EXPECT_EQ(form.at("grant_type"), "authorization_code");
    EXPECT_EQ(form.at("code"), "a+b ");
    EXPECT_EQ(form.at("redirect_uri"), "http://127.0.0.1:" + std::to_string(PortIn(url_)) + '/');
    EXPECT_EQ(FieldOf(url_, "code_challenge_method"), "S256");
    EXPECT_EQ(FieldOf(url_, "code_challenge"), Sha256AsUrlBase64(form.at("code_verifier")));
    EXPECT_GE(form.at("code_verifier").size(), 43U);
    EXPECT_EQ(FieldOf(url_, "login_hint"), "me%40example.org");
    EXPECT_EQ(Get(PortIn(url_), "/"), "no connection") << "the port is closed behind the login";
}

TEST_F(BrowserLogin, IsHeldUpByNobodyWhoSaysNothing) {
    std::vector<host::Descriptor> silent;
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(LogIn({"/?code=a&state=STATE"},
                    [&](int port) {
                        for (int i = 0; i < 3; ++i) silent.push_back(Connect(port));
                    }),
              "refresh");
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 10s);
}

TEST_F(BrowserLogin, SaysWhenTheProviderRefuses) {
    EXPECT_EQ(LogIn({"/?error=access_denied&state=STATE"}), "the login was refused: access_denied");
    EXPECT_EQ(server_.Requests().size(), 0U);
}

TEST_F(BrowserLogin, EndsWhenNobodyComes) {
    Person person;
    EXPECT_THROW(host::LogInByBrowser(ProviderAt(server_), person.Dialogue(), 0s), TokenTrouble);
}

// ---- providers

TEST(Provider, MustBeDescribedWhole) {
    const TempDir root;
    std::filesystem::create_directories(root / "providers.d");
    const std::string rest = "[client_id]\nme\n[device_endpoint]\nhttps://example.org/d\n[token_endpoint]\n";
    const auto refusal = [&](const std::string& file) -> std::string {
        WriteFile(root / "providers.d/example.def", file);
        try {
            return host::ProviderNamed(root.String(), "example").token_endpoint;
        } catch (const host::CommandError& error) {
            EXPECT_EQ(error.ExitCode(), host::kBadSettings);
            return error.what();
        }
    };
    for (const char* const good : {"https://example.org/t?x=y", "http://127.0.0.1:80/t", "http://127.0.0.1/t"})
        EXPECT_EQ(refusal(rest + good), good);
    for (const char* const bad :
         {"http://example.org/t", "http://127.0.0.1.example.org/t", "ftp://example.org/", "https://",
          "https://a@example.org/", "http://127.0.0.1@example.org/", "x", "https://exam ple.org"})
        EXPECT_THAT(refusal(rest + bad), HasSubstr("wrong token_endpoint")) << bad;
    EXPECT_THAT(refusal("[client_id]\nme\n"), HasSubstr("lacks token_endpoint"));
    EXPECT_THAT(refusal("[client_id]\nme\n[token_endpoint]\nhttps://a/\n"), HasSubstr("lacks both"));
    EXPECT_THAT(refusal(rest + "https://a/\n[clientid]\nx\n"), HasSubstr("not known: [clientid]"));
    EXPECT_THAT(host::ProviderNames(root.String()), ::testing::Contains("example"));
    for (const char* const name : {"", "../example", ".example", "nobody", "a\\b"}) {
        EXPECT_THROW(host::ProviderNamed(root.String(), name), host::CommandError) << name;
    }
}

// ---- the command

class LoginCommand : public ::testing::Test {
protected:
    LoginCommand() {
        profile_ = host_.AddProfile(1, 1, [](CPopProfile& profile) { profile.setting.popuser = "me@example.org"; });
        host_.Tell({"init", "--rules"});
        std::filesystem::create_directories(host_.Root() + "/providers.d");
        WriteFile(host_.Root() + "/providers.d/example.def", server_.ProviderFile());
    }

    std::string KeptTokens() const {
        const std::string path = host_.Root() + "/.tarvex/tokens/user0+from0.json";
        return std::filesystem::exists(path) ? ReadFile(path) : "";
    }

    Host host_;
    std::string profile_;
    std::atomic<int> polls_ = 0;
    std::atomic<const char*> token_ = kToken;
    AuthorizationServer server_{[this](const ProviderRequest& request) -> std::optional<ProviderAnswer> {
        if (request.path == "/device") {
            return ProviderAnswer{200, R"({"device_code":"d","user_code":"CODE","verification_url":"https://x.test/",)"
                                       R"("expires_in":60,"interval":1})"};
        }
        return polls_++ == 0 ? Error("authorization_pending") : ProviderAnswer{200, token_.load()};
    }};
};

TEST_F(LoginCommand, KeepsTheLogin) {
    const std::string printed = host_.Tell({"login", "user0/from0", "--device"});
    EXPECT_THAT(printed,
                HasSubstr("Open https://x.test/ in a browser, on whatever machine, and type the code CODE.\n"));
    EXPECT_THAT(printed, HasSubstr("Logged in at example as me@example.org.\n"));
    EXPECT_THAT(printed, HasSubstr("tarvex rules set user0/from0 --pop_login xoauth2"));
    EXPECT_THAT(KeptTokens(), HasSubstr("\"refresh_token\": \"refresh\""));
    EXPECT_THAT(printed, ::testing::Not(HasSubstr("refresh\n")));
    host_.Tell({"profile", "remove", "user0/from0", "--yes"});
    EXPECT_EQ(KeptTokens(), "");
}

// A provider that gives a refresh token with the first login alone.
TEST_F(LoginCommand, LosesNoRefreshTokenThatIsStillGood) {
    host_.Tell({"login", "user0/from0", "--device"});
    token_ = R"({"access_token":"later","expires_in":60})";
    EXPECT_THAT(host_.Tell({"login", "user0/from0", "--device"}), ::testing::Not(HasSubstr("no refresh token")));
    EXPECT_THAT(KeptTokens(), AllOf(HasSubstr("\"refresh_token\": \"refresh\""), HasSubstr("\"later\"")));
    host_.Tell({"profile", "set", "user0/from0", "--popuser", "you@example.org"});
    EXPECT_THAT(host_.Tell({"login", "user0/from0", "--device"}), HasSubstr("no refresh token"));
}

// What opens the address may be the browser itself, and it may print what it likes.
TEST_F(LoginCommand, LeavesTheBrowserOpen) {
    polls_ = 1;
    const TempDir programs;
    const std::string told = programs / "told";
    WriteFile(programs / "xdg-open", "#!/bin/sh\necho $$ \"$1\" >'" + told + ".new'\nmv '" + told + ".new' '" + told +
                                         "'\nyes | head -c 1000000\nexec sleep 600\n");
    std::filesystem::permissions(std::string(programs / "xdg-open"), std::filesystem::perms::owner_all);
    ChildProcess login = host_.StartCommand({"login", "user0/from0", "--browser"}, ChildProcess::Output::Pipe,
                                            {"DISPLAY=:1", "PATH=" + programs.String() + ":/usr/bin:/bin"});
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (!std::filesystem::exists(told) && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(5ms);
    const std::string line = ReadFile(told);
    const int browser = std::stoi(line);
    EXPECT_EQ(Get(PortIn(line), "/?code=c&state=" + FieldOf(line, "state")), "HTTP/1.1 200 OK");
    login.Wait();
    EXPECT_EQ(login.ExitCode(), 0) << login.Errors();
    EXPECT_EQ(kill(browser, SIGKILL), 0) << "the browser has ended with the login";
}

TEST_F(LoginCommand, SaysWhichProvidersThereAre) {
    const std::string file = host_.Root() + "/providers.d/example.def";
    std::filesystem::rename(file, file + ".off");
    ChildProcess none = host_.StartCommand({"login", "user0/from0"});
    none.Wait();
    EXPECT_EQ(none.ExitCode(), host::kNotFound);
    EXPECT_THAT(none.Errors(), HasSubstr("no provider is described yet"));
    std::filesystem::rename(file + ".off", file);
    ChildProcess unknown = host_.StartCommand({"login", "user0/from0", "--provider", "other"});
    unknown.Wait();
    EXPECT_EQ(unknown.ExitCode(), host::kNotFound);
    EXPECT_THAT(unknown.Errors(), HasSubstr("there is example"));
    WriteFile(host_.Root() + "/providers.d/second.def", server_.ProviderFile());
    ChildProcess two = host_.StartCommand({"login", "user0/from0"});
    two.Wait();
    EXPECT_EQ(two.ExitCode(), host::kBadUsage);
    EXPECT_THAT(two.Errors(), HasSubstr("--provider: example, second"));
}

}  // namespace
}  // namespace tarvex::testing
