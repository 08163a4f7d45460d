// Tokens from a provider: asked for when there is none, and never lost.

#include "host/tokens/provider_tokens.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <ctime>
#include <filesystem>
#include <future>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "host/tokens/posix/token_file.h"
#include "testing/temp_dir.h"
#include "tests/host/tokens/posix/authorization_server.h"
#include "tests/support/posix/system_calls.h"

namespace tarvex::testing {
namespace {

using host::ProviderTokens;
using host::StoredToken;
using host::TokenFile;
using host::TokenTrouble;
using host::TokenTroubleKind;
using ::testing::HasSubstr;
using ::testing::Not;

const host::Stops kNever = [] { return false; };

// A provider that gives a new refresh token with each access token, and takes the old one until the new one is used.
class RotatingProvider {
public:
    ProviderAnswer Answer(const ProviderRequest& request) {
        const std::scoped_lock lock(mutex_);
        const std::string token = request.form.at("refresh_token");
        if (token != newest_ && token != before_) return {400, R"({"error":"invalid_grant"})"};
        if (token == newest_) before_ = newest_;
        newest_ = "refresh-" + std::to_string(++given_);
        return {200, R"({"access_token":"access-)" + std::to_string(given_) + R"(","refresh_token":")" + newest_ +
                         R"(","token_type":"Bearer","expires_in":)" + std::to_string(life_s) + "}"};
    }

    long life_s = 3600;

private:
    std::mutex mutex_;
    std::string newest_ = "refresh-0";
    std::string before_;
    int given_ = 0;
};

// A tree in which a profile has logged in, and the server of its provider.
class Tokens : public ::testing::Test {
protected:
    explicit Tokens(std::optional<TlsIdentity> identity = std::nullopt)
        : server_(
              [this](const ProviderRequest& request) {
                  return special_ ? special_(request) : provider_.Answer(request);
              },
              std::move(identity)) {
        std::filesystem::create_directories(Root() + "/providers.d");
        WriteFile(Root() + "/providers.d/example.def", server_.ProviderFile());
        LogIn("refresh-0");
    }

    std::string Root() const { return folder_.String(); }
    host::TokenOwner Owner() const { return {Root() + "\\user0\\from0", "me@example.org"}; }
    TokenFile File() const { return {Root(), Owner().profile}; }
    StoredToken Stored() const { return File().Read().value(); }

    void LogIn(const std::string& refresh_token) {
        StoredToken token;
        token.provider = "example";
        token.login = "me@example.org";
        token.refresh_token = refresh_token;
        File().Write(token);
    }

    void Expire() {
        StoredToken token = Stored();
        token.expires = std::time(nullptr) - 1;
        File().Write(token);
    }

    // What asking ends with: the token, or the kind of the trouble and its words.
    std::string Ask(ProviderTokens& tokens, const host::Stops& stops = kNever) const {
        try {
            return tokens.Of(Owner(), stops);
        } catch (const TokenTrouble& trouble) {
            constexpr const char* kKinds[] = {"for now: ", "for good: ", "needs login: "};
            return kKinds[static_cast<int>(trouble.Kind())] + std::string(trouble.what());
        }
    }
    std::string Ask() const {
        ProviderTokens tokens(Root());
        return Ask(tokens);
    }

    TempDir folder_;
    RotatingProvider provider_;
    AuthorizationServer::Handler special_;  // in the place of the provider
    AuthorizationServer server_;
};

TEST_F(Tokens, AreAskedForWhenThereIsNoneAndKeptUntilTheyExpire) {
    EXPECT_EQ(Ask(), "access-1");
    EXPECT_EQ(Ask(), "access-1") << "another process has the file";
    ASSERT_EQ(server_.Requests().size(), 1U);
    const std::map<std::string, std::string> expected = {{"grant_type", "refresh_token"},
                                                         {"refresh_token", "refresh-0"},
                                                         {"client_id", "the-client"},
                                                         {"client_secret", "the-secret"}};
    EXPECT_EQ(server_.Requests().front().form, expected);
    EXPECT_EQ(Stored().refresh_token, "refresh-1");
    EXPECT_NEAR(static_cast<double>(Stored().expires - std::time(nullptr)), 3540, 5);
    Expire();
    EXPECT_EQ(Ask(), "access-2");
    EXPECT_EQ(Stored().refresh_token, "refresh-2");
}

TEST_F(Tokens, AreTheOwnersAlone) {
    EXPECT_EQ(Ask(), "access-1");
    struct stat status {};
    ASSERT_EQ(stat((Root() + "/.tarvex/tokens/user0+from0.json").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    ASSERT_EQ(stat((Root() + "/.tarvex/tokens").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST_F(Tokens, AreNewAfterTheMailServerHasRefusedOne) {
    ProviderTokens tokens(Root());
    EXPECT_EQ(Ask(tokens), "access-1");
    tokens.Refused(Owner(), "another");
    EXPECT_EQ(Ask(tokens), "access-1");
    tokens.Refused(Owner(), "access-1");
    EXPECT_EQ(Ask(tokens), "access-2");
}

struct BadAnswer {
    int status;
    std::string body;
    std::string expected;  // what asking ends with begins so
};

TEST_F(Tokens, StayWhateverTheProviderAnswers) {
    const std::string huge(1 << 20, ' ');
    const std::string deep(60'000, '[');
    const std::vector<BadAnswer> answers = {
        {500, R"({"error":"invalid_grant"})", "for now: the provider answers with HTTP status 500"},
        {503, "<html>", "for now: the provider answers with HTTP status 503"},
        {429, R"({"error":"slow_down"})", "for now: the provider answers with HTTP status 429"},
        {302, "", "for now: the provider answers with HTTP status 302"},
        {200, "", "for now: the provider's answer holds no token"},
        {200, "{", "for now: the provider's answer holds no token"},
        {200, deep, "for now: the provider's answer holds no token"},
        {200, R"({"access_token":7})", "for now: the provider's answer holds no token"},
        {200, R"({"access_token":"two words"})", "for now: the provider's answer holds no token"},
        {200, huge, "for now: the provider's answer is too long"},
        {400, R"({"error":"temporarily_unavailable"})", "for now: the provider refuses: temporarily_unavailable"},
        {400, R"({"access_token":"a"})", "for now: the provider answers with HTTP status 400"},
        {401, R"({"error":"invalid_client","error_description":"no \u001b[31m"})",
         "for good: the provider refuses: invalid_client (no  [31m)"},
        {400, R"({"error":"invalid_scope","error_description":"is refresh-0 the-secret"})",
         "for good: the provider refuses: invalid_scope (is ... ...)"},
    };
    for (const BadAnswer& bad : answers) {
        special_ = [&bad](const ProviderRequest&) {
            return ProviderAnswer{bad.status, bad.body, "Location: http://127.0.0.1:1/\r\n"};
        };
        const std::size_t before = server_.Requests().size();
        EXPECT_EQ(Ask(), bad.expected);
        EXPECT_EQ(Stored().refresh_token, "refresh-0");
        EXPECT_EQ(ProviderTokens(Root()).WhyWaiting(Owner()), "");
        Ask();
        EXPECT_EQ(server_.Requests().size(), before + 2) << "the next run asks again";
    }
    special_ = nullptr;
    EXPECT_EQ(Ask(), "access-1");
}

TEST_F(Tokens, StayWithoutNetwork) {
    WriteFile(Root() + "/providers.d/example.def",
              "[client_id]\nc\n[device_endpoint]\nhttp://127.0.0.1:1/\n"
              "[token_endpoint]\nhttp://127.0.0.1:" +
                  std::to_string(UnusedPort()) + "/\n");
    EXPECT_THAT(Ask(), ::testing::StartsWith("for now: the provider cannot be asked: "));
    EXPECT_EQ(Stored().refresh_token, "refresh-0");
}

TEST_F(Tokens, ThatTheProviderRefusesWaitForALoginAndAskNoMore) {
    special_ = [](const ProviderRequest&) {
        return ProviderAnswer{400, R"({"error":"invalid_grant","error_description":"Token has been revoked."})"};
    };
    const std::string why = "the provider refuses: invalid_grant (Token has been revoked.)";
    EXPECT_EQ(Ask(), "needs login: " + why);
    EXPECT_EQ(Ask(), "needs login: " + why);
    EXPECT_EQ(ProviderTokens(Root()).WhyWaiting(Owner()), why);
    EXPECT_EQ(server_.Requests().size(), 1U);
    EXPECT_EQ(Stored().refresh_token, "refresh-0") << "it is kept";

    special_ = nullptr;
    LogIn("refresh-0");
    EXPECT_EQ(ProviderTokens(Root()).WhyWaiting(Owner()), "");
    EXPECT_EQ(Ask(), "access-1");
}

TEST_F(Tokens, WithoutARefreshTokenAreGoodUntilTheyExpireOrAreRefused) {
    const std::string why = "needs login: the login has expired, and the provider gave no refresh token";
    for (const bool refused : {false, true}) {
        StoredToken token;
        token.provider = "example";
        token.login = "me@example.org";
        token.access_token = "access";
        token.expires = std::time(nullptr) + 60;
        File().Write(token);
        EXPECT_EQ(Ask(), "access");
        refused ? ProviderTokens(Root()).Refused(Owner(), "access") : Expire();
        EXPECT_EQ(Ask(), why);
    }
    EXPECT_EQ(server_.Requests().size(), 0U);
}

TEST_F(Tokens, AreNobodyElses) {
    ProviderTokens tokens(Root());
    const host::TokenOwner other{Owner().profile, "you@example.org"};
    EXPECT_EQ(tokens.WhyWaiting(other), "the login at the provider was for another user name");
    EXPECT_THROW(tokens.Of(other, kNever), TokenTrouble);
    const host::TokenOwner new_one{Root() + "\\user0\\from1", "me@example.org"};
    EXPECT_EQ(tokens.WhyWaiting(new_one), "nobody has logged in at the provider yet");
    EXPECT_EQ(server_.Requests().size(), 0U);
}

TEST_F(Tokens, ADamagedFileWantsALogin) {
    WriteFile(Root() + "/.tarvex/tokens/user0+from0.json", "{");
    EXPECT_EQ(Ask(), "needs login: the file of tokens is damaged");
    EXPECT_EQ(ProviderTokens(Root()).WhyWaiting(Owner()), "the file of tokens is damaged");
}

TEST_F(Tokens, AreForgottenWithTheirProfile) {
    EXPECT_TRUE(host::ForgetLogin(Root(), Owner().profile));
    EXPECT_EQ(File().Read(), std::nullopt);
    EXPECT_TRUE(host::ForgetLogin(Root(), Owner().profile));
}

TEST_F(Tokens, AreAskedForOnceByManyThreadsAndProcesses) {
    std::vector<pid_t> children;
    for (int i = 0; i < 3; ++i) {
        children.push_back(fork());
        if (children.back() == 0) _exit(Ask() == "access-1" ? 0 : 1);
    }
    ProviderTokens tokens(Root());
    std::vector<std::future<std::string>> answers;
    for (int i = 0; i < 8; ++i) answers.push_back(std::async(std::launch::async, [&] { return Ask(tokens); }));
    for (auto& answer : answers) EXPECT_EQ(answer.get(), "access-1");
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(server_.Requests().size(), 1U);
}

TEST_F(Tokens, WaitNoLongerThanTheyMay) {
    std::promise<void> asked;
    special_ = [&asked](const ProviderRequest&) {
        asked.set_value();
        return std::optional<ProviderAnswer>();
    };
    std::atomic<bool> stopped = false;
    ProviderTokens tokens(Root());
    auto first = std::async(std::launch::async, [&] { return Ask(tokens, [&] { return stopped.load(); }); });
    asked.get_future().wait();
    auto second = std::async(std::launch::async, [&] { return Ask(tokens, [&] { return stopped.load(); }); });
    stopped = true;
    EXPECT_EQ(first.get(), "for now: interrupted");
    EXPECT_THAT(second.get(), ::testing::AnyOf("for now: interrupted", HasSubstr("another process")));
    EXPECT_EQ(Stored().refresh_token, "refresh-0");
}

// ---- the disk

TEST_F(Tokens, AreNotLostWhenTheProcessIsKilledAtAnyStep) {
    bool survived = false;
    for (std::size_t step = 1; !survived; ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        Expire();
        const pid_t child = fork();
        if (child == 0) {
            system_calls = {true, {}, {}, {}, step, nullptr, true};
            _exit(Ask().starts_with("access-") ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        survived = WIFEXITED(status);
        ASSERT_TRUE(survived ? WEXITSTATUS(status) == 0 : WIFSIGNALED(status));
        // The next process goes on with what is there.
        Expire();
        ASSERT_THAT(Ask(), ::testing::StartsWith("access-"));
        ASSERT_TRUE(!survived || step > 8) << "nothing was killed";
    }
}

TEST_F(Tokens, AreNotLostWhenTheDiskFailsAtAnyStep) {
    for (std::size_t failing = 1;; ++failing) {
        SCOPED_TRACE("call " + std::to_string(failing));
        Expire();
        ProviderTokens tokens(Root());
        const std::size_t before = server_.Requests().size();
        system_calls = {true, {}, {}, {}, 0, nullptr, true, failing};
        const std::string first = Ask(tokens);
        const std::size_t calls = system_calls.calls.size();
        system_calls = {};
        if (first.starts_with("access-") && calls < failing) {
            EXPECT_GT(failing, 8U);
            return;
        }
        // A failure of the disk is found before the provider is asked, or what it gave is written with the next call.
        ASSERT_THAT(first, ::testing::AnyOf(::testing::StartsWith("for now: the file of tokens cannot be "),
                                            ::testing::StartsWith("access-")));
        const std::string second = Ask(tokens);
        ASSERT_THAT(second, ::testing::StartsWith("access-"));
        EXPECT_LE(server_.Requests().size(), before + 1) << "what the provider gave is not thrown away";
        EXPECT_EQ("access-" + Stored().refresh_token.substr(8), second);
    }
}

// ---- TLS

class TokensOverTls : public Tokens {
protected:
    explicit TokensOverTls(const TlsOptions& options = {}) : TokensOverTls(MakeTlsIdentity(options)) {}
    explicit TokensOverTls(const TlsIdentity& identity) : Tokens(identity) {
        WriteFile(Root() + "/ca.pem", identity.ca_certificate);
    }

    void Trust() {
        WriteFile(Root() + "/providers.d/example.def", server_.ProviderFile() + "[authority]\n" + Root() + "/ca.pem\n");
    }
};

class TokensOfAnotherHost : public TokensOverTls {
protected:
    TokensOfAnotherHost() : TokensOverTls(TlsOptions{{"mail.example.org"}, {}, false}) {}
};

TEST_F(TokensOverTls, ComeFromAProviderThatIsTrusted) {
    EXPECT_THAT(Ask(), HasSubstr("certificate"));
    EXPECT_EQ(server_.Requests().size(), 0U) << "no secret went out";
    Trust();
    EXPECT_EQ(Ask(), "access-1");
}

TEST_F(TokensOfAnotherHost, DoNotCome) {
    Trust();
    EXPECT_THAT(Ask(), HasSubstr("no alternative certificate subject name matches"));
    EXPECT_EQ(server_.Requests().size(), 0U);
}

}  // namespace
}  // namespace tarvex::testing
