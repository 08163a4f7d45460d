// Gets passwords from the terminal, standard input or a file.

#include "host/terminal/password_source.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/prompt.h"

namespace tarvex::host {

std::string AskSecret(const std::string& question) {
    if (!CanAsk()) {
        throw CommandError(kBadUsage,
                           Tr("there is no terminal to ask for a password on; give it with the -stdin or -file form of "
                              "the option"));
    }
    std::string secret;
    if (!AskHidden(question, secret)) throw CommandError(kBadUsage, Tr("no password was given"));
    return secret;
}

bool AskYes(const std::string& question) {
    if (!CanAsk()) throw CommandError(kBadUsage, Tr("there is no terminal to ask on; say --yes"));
    std::cerr << question << " [y/N] " << std::flush;
    std::string answer;
    ReadLine(answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

std::string SecretFromInput() {
    if (CanAsk()) return AskSecret(Tr("Password: "));
    std::string secret;
    if (!ReadLine(secret)) throw CommandError(kBadUsage, Tr("standard input has no line with the password"));
    return secret;
}

std::string SecretFromFile(const std::string& path) {
    std::ifstream file(NativePath(TreePath(path)));
    std::string secret;
    if (!file || !std::getline(file, secret)) {
        const std::string why = file.eof() ? Tr("it is empty") : std::strerror(errno);
        throw CommandError(kNotFound, Tr("cannot read a password from \"{0}\": {1}", ShowUtf8Text(path), why));
    }
    if (secret.ends_with('\r')) secret.pop_back();
    return secret;
}

}  // namespace tarvex::host
