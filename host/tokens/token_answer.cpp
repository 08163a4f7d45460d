// Reads the JSON that brings a token.

#include "host/tokens/token_answer.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tarvex::host {
namespace {

constexpr std::size_t kMostTokenBytes = 16 << 10;
constexpr std::size_t kMostWordsBytes = 200;
constexpr long long kLongestLife_s = 366LL * 24 * 60 * 60;

std::string TextOf(const nlohmann::json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

std::string TokenOf(const nlohmann::json& object, const char* key) {
    std::string token = TextOf(object, key);
    return IsToken(token) ? token : std::string();
}

// Some providers put the number in quotes.
long long SecondsOf(const nlohmann::json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end()) return 0;
    long long seconds = 0;
    if (found->is_number()) {
        seconds = static_cast<long long>(std::clamp(found->get<double>(), 0.0, static_cast<double>(kLongestLife_s)));
    } else if (found->is_string()) {
        for (const char c : found->get<std::string>().substr(0, 9)) {
            if (c < '0' || c > '9') return 0;
            seconds = seconds * 10 + (c - '0');
        }
    }
    return std::min(seconds, kLongestLife_s);
}

}  // namespace

bool IsToken(std::string_view text) {
    return !text.empty() && text.size() <= kMostTokenBytes &&
           std::ranges::all_of(text, [](char c) { return c > ' ' && c < '\x7F'; });
}

std::string SafeWords(std::string_view words) {
    std::string safe(words.substr(0, kMostWordsBytes));
    std::ranges::replace_if(
        safe, [](char c) { return c < ' ' || c >= '\x7F'; }, ' ');
    return safe;
}

bool ReadTokenAnswer(std::string_view json, TokenAnswer& answer) {
    answer = {};
    if (json.size() > kMostAnswerBytes) return false;
    const nlohmann::json object = nlohmann::json::parse(json, nullptr, false);
    if (!object.is_object()) return false;
    answer.access_token = TokenOf(object, "access_token");
    answer.refresh_token = TokenOf(object, "refresh_token");
    answer.expires_in = SecondsOf(object, "expires_in");
    answer.error = SafeWords(TextOf(object, "error"));
    answer.description = SafeWords(TextOf(object, "error_description"));
    return !answer.access_token.empty() || !answer.error.empty();
}

}  // namespace tarvex::host
