// Makes the options of a command from the tables of settings keys.

#include "host/commands/arguments/key_options.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/system/command_error.h"
#include "host/terminal/password_source.h"

namespace tarvex::host {
namespace {

// "Minutes between two runs (0 to 600; default 10)"
template <class Record>
std::string Description(const Key<Record>& key) {
    const std::string meaning = Tr(key.meaning);
    if (key.type != KeyType::Number) return meaning;
    const std::string usual = ShowValue(Record(), key);
    const bool is_flag = std::string_view(key.placeholder) == "on|off";
    return is_flag ? Tr("{0} (default {1})", meaning, usual)
                   : Tr("{0} ({1}; default {2})", meaning, AllowedValues(key), usual);
}

// How a password is asked for.
struct PasswordWords {
    std::string_view key;
    const char* option;
    const char* question;
};
constexpr std::array kPasswordWords = {
    PasswordWords{"smtppassword", "--smtp-password", Marked("SMTP password: ")},
    PasswordWords{"alert_password", "--alert-password", Marked("Password for alerts: ")},
    PasswordWords{"", "--password", Marked("Password: ")}};  // the one that most records have

const PasswordWords& WordsOfPassword(std::string_view key) {
    const auto found = std::ranges::find(kPasswordWords, key, &PasswordWords::key);
    return found == kPasswordWords.end() ? kPasswordWords.back() : *found;
}

}  // namespace

template <class Record>
void KeyOptions::AddTo(CLI::App& app, const std::vector<std::string_view>& left_out) {
    for (const Key<Record>& key : Keys<Record>()) {
        if (std::ranges::find(left_out, key.name) != left_out.end()) continue;
        if (key.type == KeyType::Password) {
            AddPassword(app, key);
            continue;
        }
        options_[key.name] = app.add_option("--" + std::string(key.name), values_[key.name], Description(key))
                                 ->type_name(key.placeholder)
                                 ->group(Tr(key.group));
    }
}

void KeyOptions::AddPassword(CLI::App& app, const KeyInfo& key) {
    Password& password = passwords_[key.name];
    const std::string name = WordsOfPassword(key.name).option;
    CLI::Option* const ask =
        app.add_flag(name, password.ask, Tr("{0}. It is asked for on the terminal", Tr(key.meaning)))
            ->group(Tr(key.group));
    CLI::Option* const input =
        app.add_flag(name + "-stdin", password.from_input, Tr("The same, the next line of standard input"))
            ->group(Tr(key.group));
    CLI::Option* const file = app.add_option(name + "-file", password.file, Tr("The same, the first line of a file"))
                                  ->type_name("FILE")
                                  ->group(Tr(key.group));
    ask->excludes(input)->excludes(file)->option_text(" ");
    input->excludes(file)->option_text(" ");
    file->option_text("FILE");
}

bool KeyOptions::GivesPassword(const std::string& key) const {
    const Password& password = passwords_.at(key);
    return password.ask || password.from_input || !password.file.empty();
}

bool KeyOptions::Empty() const {
    return std::ranges::none_of(options_, [](const auto& option) { return option.second->count() > 0; }) &&
           std::ranges::none_of(passwords_, [this](const auto& password) { return GivesPassword(password.first); });
}

std::map<std::string, std::string> KeyOptions::Values() const {
    std::map<std::string, std::string> given;
    for (const auto& [key, option] : options_) {
        if (option->count() > 0) given[key] = values_.at(key);
    }
    return given;
}

void KeyOptions::Fill(EditRequest& request) const {
    request.values.merge(Values());
    for (const auto& [key, password] : passwords_) {
        if (password.ask) request.secrets[key] = AskSecret(Tr(WordsOfPassword(key).question));
        if (password.from_input) request.secrets[key] = SecretFromInput();
        if (!password.file.empty()) request.secrets[key] = SecretFromFile(password.file);
    }
}

template void KeyOptions::AddTo<CAppSetting>(CLI::App&, const std::vector<std::string_view>&);
template void KeyOptions::AddTo<CUserSetting>(CLI::App&, const std::vector<std::string_view>&);
template void KeyOptions::AddTo<CPopProfileSetting>(CLI::App&, const std::vector<std::string_view>&);
template void KeyOptions::AddTo<CForwardAddressSetting>(CLI::App&, const std::vector<std::string_view>&);
template void KeyOptions::AddTo<HostRules>(CLI::App&, const std::vector<std::string_view>&);

}  // namespace tarvex::host
