#pragma once

// Access tokens that a program prints: `token_command` of host.def. What it prints is either JSON, as a provider
// answers
// (`access_token`, and `expires_in` in seconds), or the token itself as the first line.

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/tokens/token_trouble.h"

namespace tarvex::host {

// The words of a command: separated by blanks; quotes, single or double, hold words with blanks together. There is
// nothing else: no variable, no pattern, no escape. Throws TokenTrouble (ForGood) when a quote is not closed.
std::vector<std::string> WordsOf(std::string_view command);

// For any thread. A token is kept in memory until shortly before it expires, five minutes when the program does not
// say.
class CommandTokens {
public:
    // Runs the program (UTF-8) where there is no token of it, one caller at a time. Throws TokenTrouble.
    std::string Of(const std::string& command, const Stops& stops);

    // The mail server does not take this one: the next is a new one.
    void Refused(const std::string& command, const std::string& access_token);

private:
    struct Kept {
        std::mutex mutex;
        std::string token;
        long long expires = 0;
    };

    std::shared_ptr<Kept> KeptOf(const std::string& command);

    std::mutex mutex_;
    std::map<std::string, std::shared_ptr<Kept>> kept_;
};

}  // namespace tarvex::host
