// Logs in at a provider by a code that a person types there (RFC 8628).

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/tokens/posix/provider_login.h"
#include "host/tokens/posix/token_request.h"

namespace tarvex::host {
namespace {

constexpr long kOk = 200;
constexpr long long kUsualInterval_s = 5;  // RFC 8628 section 3.2
constexpr long long kSlowDown_s = 5;       // section 3.5
constexpr long long kLongestInterval_s = 60;
constexpr long long kLongestLife_s = 60 * 60;

struct DeviceAnswer {
    std::string device_code;
    std::string user_code;
    std::string address;       // where the person types it
    std::string full_address;  // the same with the code in it; empty when there is none
    long long life_s = 0;
    long long interval_s = kUsualInterval_s;
};

std::string WordIn(const nlohmann::json& object, const char* key) {
    const std::string text = object.contains(key) && object[key].is_string() ? object[key].get<std::string>() : "";
    return IsToken(text) ? text : std::string();
}

long long SecondsIn(const nlohmann::json& object, const char* key, long long usual, long long highest) {
    if (!object.contains(key) || !object[key].is_number()) return usual;
    return static_cast<long long>(std::clamp(object[key].get<double>(), 1.0, static_cast<double>(highest)));
}

DeviceAnswer AskForCode(const Provider& provider, const Stops& stops) {
    Form form = {{"client_id", provider.client_id}, {"scope", provider.scopes}};
    const HttpAnswer http = Post(provider.device_endpoint, form, provider.authority, stops);
    const nlohmann::json object = nlohmann::json::parse(http.body, nullptr, false);
    DeviceAnswer answer;
    if (http.status == kOk && object.is_object()) {
        answer.device_code = WordIn(object, "device_code");
        answer.user_code = SafeWords(object.contains("user_code") && object["user_code"].is_string()
                                         ? object["user_code"].get<std::string>()
                                         : "");
        // Some providers answer with the name that the draft of the standard had.
        answer.address = WordIn(object, "verification_uri");
        if (answer.address.empty()) answer.address = WordIn(object, "verification_url");
        answer.full_address = WordIn(object, "verification_uri_complete");
        answer.life_s = SecondsIn(object, "expires_in", kLongestLife_s, kLongestLife_s);
        answer.interval_s = SecondsIn(object, "interval", kUsualInterval_s, kLongestInterval_s);
    }
    if (!answer.device_code.empty() && !answer.user_code.empty() && !answer.address.empty()) return answer;
    TokenAnswer refusal;
    if (ReadTokenAnswer(http.body, refusal) && !refusal.error.empty())
        RequireToken({{}, {}, 0, refusal.error, refusal.description});
    throw TokenTrouble(TokenTroubleKind::ForNow,
                       "the provider gives no code for the login (HTTP status " + std::to_string(http.status) + ')');
}

}  // namespace

TokenAnswer LogInByDevice(const Provider& provider, const LoginDialogue& dialogue) {
    const Stops never = [] { return false; };
    const DeviceAnswer device = AskForCode(provider, never);
    dialogue.say("Open " + device.address + " in a browser, on whatever machine, and type the code " +
                 device.user_code + '.');
    if (!device.full_address.empty()) dialogue.say("Or open " + device.full_address);
    long long interval_s = device.interval_s;
    for (long long waited_s = 0; waited_s < device.life_s;) {
        if (!dialogue.pauses(std::chrono::seconds(interval_s)))
            throw TokenTrouble(TokenTroubleKind::NeedsLogin, "the login was given up");
        waited_s += interval_s;
        TokenAnswer answer;
        try {
            answer = AskForToken(
                provider,
                {{"grant_type", "urn:ietf:params:oauth:grant-type:device_code"}, {"device_code", device.device_code}},
                never);
        } catch (const TokenTrouble&) {
            interval_s = std::min(interval_s * 2, kLongestInterval_s);  // section 3.5, when there is no answer
            continue;
        }
        if (answer.error == "slow_down") interval_s += kSlowDown_s;
        if (answer.error == "slow_down" || answer.error == "authorization_pending") continue;
        if (answer.error == "expired_token") break;
        if (answer.error == "access_denied") throw TokenTrouble(TokenTroubleKind::NeedsLogin, "the login was refused");
        RequireToken(answer);
        return answer;
    }
    throw TokenTrouble(TokenTroubleKind::NeedsLogin, "the code has expired before somebody typed it");
}

}  // namespace tarvex::host
