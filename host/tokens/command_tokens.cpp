// Runs a program for its token, and keeps the token until it expires.

#include "host/tokens/command_tokens.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <thread>

#include "host/system/program_output.h"
#include "host/tokens/token_answer.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;

constexpr auto kCommandTime = 30s;
constexpr auto kLockPoll = 20ms;
constexpr long long kUsualLife_s = 300;
constexpr long long kSpare_s = 60;

TokenTrouble Trouble(TokenTroubleKind kind, const std::string& what) { return {kind, "token_command " + what}; }

TokenAnswer AnswerIn(const std::string& printed) {
    const std::size_t begin = std::min(printed.find_first_not_of(" \t\r\n"), printed.size());
    TokenAnswer answer;
    if (printed.substr(begin, 1) == "{") {
        if (!ReadTokenAnswer(printed, answer)) throw Trouble(TokenTroubleKind::ForGood, "printed JSON without a token");
        if (!answer.error.empty() && answer.access_token.empty())
            throw Trouble(TokenTroubleKind::ForGood, "printed an error: " + answer.error);
        return answer;
    }
    answer.access_token = printed.substr(begin, printed.find_first_of(" \t\r\n", begin) - begin);
    if (!IsToken(answer.access_token)) throw Trouble(TokenTroubleKind::ForGood, "printed no token");
    return answer;
}

}  // namespace

std::vector<std::string> WordsOf(std::string_view command) {
    std::vector<std::string> words;
    bool in_word = false;
    char quote = 0;
    for (const char c : command) {
        const bool is_blank = c == ' ' || c == '\t';
        if (quote == 0 && is_blank) {
            in_word = false;
            continue;
        }
        if (!in_word) words.emplace_back();
        in_word = true;
        if (quote == 0 && (c == '"' || c == '\'')) {
            quote = c;
        } else if (c == quote) {
            quote = 0;
        } else {
            words.back() += c;
        }
    }
    if (quote != 0) throw Trouble(TokenTroubleKind::ForGood, "has a quote that is not closed");
    if (words.empty()) throw Trouble(TokenTroubleKind::ForGood, "is empty");
    return words;
}

std::shared_ptr<CommandTokens::Kept> CommandTokens::KeptOf(const std::string& command) {
    const std::scoped_lock lock(mutex_);
    std::shared_ptr<Kept>& kept = kept_[command];
    if (!kept) kept = std::make_shared<Kept>();
    return kept;
}

std::string CommandTokens::Of(const std::string& command, const Stops& stops) {
    const std::shared_ptr<Kept> kept = KeptOf(command);
    std::unique_lock lock(kept->mutex, std::try_to_lock);
    while (!lock.owns_lock() && !lock.try_lock()) {
        if (stops()) throw Trouble(TokenTroubleKind::ForNow, "was interrupted");
        std::this_thread::sleep_for(kLockPoll);
    }
    if (!kept->token.empty() && kept->expires > std::time(nullptr)) return kept->token;
    kept->token.clear();
    const ProgramOutput output = OutputOf(WordsOf(command), kCommandTime, kMostAnswerBytes, stops);
    if (!output.trouble.empty()) throw Trouble(TokenTroubleKind::ForNow, output.trouble);
    const TokenAnswer answer = AnswerIn(output.printed);
    const long long life = answer.expires_in > 0 ? answer.expires_in : kUsualLife_s;
    kept->expires = std::time(nullptr) + life - std::min(kSpare_s, life / 2);
    return kept->token = answer.access_token;
}

void CommandTokens::Refused(const std::string& command, const std::string& access_token) {
    const std::shared_ptr<Kept> kept = KeptOf(command);
    const std::scoped_lock lock(kept->mutex);
    if (kept->token == access_token) kept->token.clear();
}

}  // namespace tarvex::host
