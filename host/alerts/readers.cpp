// Finds in the rules who is told.

#include "host/alerts/readers.h"

#include "host/settings/mailbox_value.h"
#include "host/system/display.h"
#include "host/terminal/json.h"
#include "host/terminal/wording.h"
#include "tarvex/conversion.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kNameColumns = 80;

}  // namespace

// A command may hold a secret in its arguments.
std::string Reader::Name() const {
    if (!IsCommand()) return to;
    return "the program " + OneLineOfUtf8(command.substr(0, command.find(' ')), kNameColumns);
}

std::string Reader::Key() const {
    const Json fields = {
        to, command, from, Utf8FromText(server), port, tls, Utf8FromText(user), static_cast<int>(language)};
    return fields.dump(-1, ' ', true, Json::error_handler_t::replace);
}

std::vector<Reader> ReadersOf(const HostRules& rules) {
    std::vector<Reader> readers;
    Reader reader;
    if (rules.alert_language == static_cast<int>(AlertLanguage::Japanese)) reader.language = Language::Japanese;
    const bool has_command = !rules.alert_command.empty() && rules.alert_command != kNobody;
    if (has_command) {
        readers.push_back(reader);
        readers.back().command = Utf8FromText(rules.alert_command);
    }
    const std::vector<std::string> addresses = MailboxesIn(rules.alert_to);
    const std::vector<std::string> from = MailboxesIn(rules.alert_from);
    reader.server = rules.alert_server;
    if (!reader.server.empty()) {
        reader.port = rules.alert_port;
        reader.tls = rules.alert_tls;
        reader.user = rules.alert_user;
        reader.password = rules.alert_password;
    }
    if (!from.empty()) reader.from = from.front();
    if (reader.from.empty() && !reader.server.empty() && !addresses.empty()) reader.from = addresses.front();
    for (const std::string& address : addresses) {
        readers.push_back(reader);
        readers.back().to = address;
    }
    return readers;
}

}  // namespace tarvex::host
