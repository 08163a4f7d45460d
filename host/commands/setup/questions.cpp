// Asks on the terminal, and asks again with the reason.

#include "host/commands/setup/questions.h"

#include <iostream>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/process.h"
#include "host/system/prompt.h"
#include "host/terminal/password_source.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr int kMostPasswords = 3;
constexpr const char* kGivenUp = Marked("setup was given up");

void SayWhy(const CommandError& error) { std::cerr << Paragraph(error.what(), 2); }

}  // namespace

Questions::Questions(bool wanted) : can_ask_(wanted && host::CanAsk()) {}

void Questions::RequireAnswerer(const std::string& question, const char* option) const {
    if (can_ask_) return;
    throw CommandError(kBadUsage, Tr("nobody can be asked \"{0}\"; {1} answers that", question, option));
}

void Questions::Ask(const std::string& question, const char* option,
                    const std::function<void(const std::string&)>& take) const {
    RequireAnswerer(question, option);
    for (;;) {
        std::cout << std::flush;
        std::cerr << question << ' ' << std::flush;
        std::string answer;
        if (!ReadLine(answer)) throw CommandError(CaughtSignal() != 0 ? 128 + CaughtSignal() : kBadUsage, Tr(kGivenUp));
        const std::size_t begin = answer.find_first_not_of(" \t");
        answer = begin == std::string::npos ? "" : answer.substr(begin, answer.find_last_not_of(" \t") + 1 - begin);
        try {
            return take(answer);
        } catch (const CommandError& error) {
            SayWhy(error);
        }
    }
}

void Questions::AskSecret(const std::string& question, const char* option,
                          const std::function<void(const std::string&)>& take) const {
    RequireAnswerer(question, option);
    for (int asked = 1;; ++asked) {
        std::cout << std::flush;
        const std::string answer = host::AskSecret(question + ' ');
        try {
            return take(answer);
        } catch (const CommandError& error) {
            if (asked == kMostPasswords || error.ExitCode() == kUnavailable) throw;
            SayWhy(error);
        }
    }
}

bool Questions::Yes(const std::string& question, const char* option) const {
    bool yes = false;
    Ask(question + " [y/n]", option, [&](const std::string& answer) {
        const std::string word = Lower(answer);
        yes = word == "y" || word == "yes";
        if (!yes && word != "n" && word != "no") throw CommandError(kBadUsage, Tr("Please type y or n."));
    });
    return yes;
}

}  // namespace tarvex::host
