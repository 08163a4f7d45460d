// Asks a provider's token endpoint (RFC 6749), and understands what it answers.

#include "host/tokens/posix/token_request.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <string_view>
#include <utility>

namespace tarvex::host {
namespace {

constexpr long kOk = 200;
constexpr long kTooMany = 429;
constexpr long kServerFailed = 500;
constexpr long long kUsualLife_s = 300;     // of a token whose answer does not say
constexpr std::size_t kShortestSecret = 8;  // what is shorter stands in other words, too
constexpr long long kSpare_s = 60;          // so that it does not expire between here and the mail server

TokenTrouble Unusable(const HttpAnswer& http) {
    return {TokenTroubleKind::ForNow, http.status == kOk
                                          ? "the provider's answer holds no token"
                                          : "the provider answers with HTTP status " + std::to_string(http.status)};
}

std::string WordsOf(const TokenAnswer& answer) {
    return "the provider refuses: " + answer.error +
           (answer.description.empty() ? "" : " (" + answer.description + ')');
}

// No answer of a stranger brings what was asked with into a log.
void HideSecrets(std::string& words, const Form& form) {
    constexpr std::array kSecrets = {"client_secret", "refresh_token", "code", "code_verifier", "device_code"};
    for (const auto& [name, value] : form) {
        if (value.size() < kShortestSecret || std::ranges::find(kSecrets, std::string_view(name)) == kSecrets.end())
            continue;
        for (std::size_t at = 0; (at = words.find(value)) != std::string::npos;) words.replace(at, value.size(), "...");
    }
}

}  // namespace

TokenAnswer AskForToken(const Provider& provider, Form form, const Stops& stops) {
    form.emplace_back("client_id", provider.client_id);
    if (!provider.client_secret.empty()) form.emplace_back("client_secret", provider.client_secret);
    const HttpAnswer http = Post(provider.token_endpoint, form, provider.authority, stops);
    TokenAnswer answer;
    const bool failed = http.status >= kServerFailed || http.status == kTooMany;
    if (failed || !ReadTokenAnswer(http.body, answer)) throw Unusable(http);
    if (http.status != kOk) answer.access_token.clear();
    if (answer.access_token.empty() && answer.error.empty()) throw Unusable(http);
    HideSecrets(answer.error, form);
    HideSecrets(answer.description, form);
    return answer;
}

void RequireToken(const TokenAnswer& answer) {
    if (!answer.access_token.empty()) return;
    constexpr std::array kPassing = {"temporarily_unavailable", "server_error", "slow_down"};
    const bool passes = std::ranges::find(kPassing, answer.error) != kPassing.end();
    const bool needs_login = answer.error == "invalid_grant";
    throw TokenTrouble(passes        ? TokenTroubleKind::ForNow
                       : needs_login ? TokenTroubleKind::NeedsLogin
                                     : TokenTroubleKind::ForGood,
                       WordsOf(answer));
}

void Keep(const TokenAnswer& answer, StoredToken& token) {
    const long long life = answer.expires_in > 0 ? answer.expires_in : kUsualLife_s;
    token.access_token = answer.access_token;
    token.expires = std::time(nullptr) + life - std::min(kSpare_s, life / 2);
    if (!answer.refresh_token.empty()) token.refresh_token = answer.refresh_token;
    token.refused.clear();
    token.refused_at = 0;
}

}  // namespace tarvex::host
