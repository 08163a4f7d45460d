// Reads a getmailrc: sections in square brackets with lines of "name = value" (getmail's configuration.html). A line
// that begins with a blank goes on with the value of the line before it.

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "host/import/imported.h"
#include "host/import/lines.h"
#include "host/language/tr.h"

namespace tarvex::host {
namespace {

struct Setting {
    int line;
    std::string section, name, value;
};

std::vector<Setting> SettingsIn(std::string_view text) {
    std::vector<Setting> settings;
    std::string section;
    Lines lines(text);
    for (std::string_view line; lines.Next(line);) {
        const std::string_view content = Trimmed(line);
        if (content.empty() || content.front() == '#' || content.front() == ';') continue;
        const bool goes_on = IsBlank(line.front()) && !settings.empty() && settings.back().section == section;
        if (goes_on) {
            settings.back().value += '\n' + std::string(content);
            continue;
        }
        if (content.front() == '[') {
            if (content.back() != ']') throw BadLine(lines.Number(), Tr("a section is not closed"));
            section = content.substr(1, content.size() - 2);
            continue;
        }
        const std::size_t end = content.find_first_of("=:");
        if (end == std::string_view::npos) throw BadLine(lines.Number(), Tr("this is neither a section nor a setting"));
        if (section.empty()) throw BadLine(lines.Number(), Tr("a setting stands before the first section"));
        settings.push_back({lines.Number(), section, Small(Trimmed(content.substr(0, end))),
                            std::string(Trimmed(content.substr(end + 1)))});
    }
    return settings;
}

bool IsTrue(const Setting& setting) {
    const std::string value = Small(setting.value);
    for (const std::string_view word : {"1", "yes", "true", "on"}) {
        if (value == word) return true;
    }
    for (const std::string_view word : {"0", "no", "false", "off"}) {
        if (value == word) return false;
    }
    throw BadLine(setting.line, Tr("{0} is neither true nor false", setting.name));
}

class Reader {
public:
    Imported Read(std::string_view text) {
        mailbox_.values["deletemail"] = "off";
        for (const Setting& setting : SettingsIn(text)) Take(setting);
        if (type_.empty()) throw BadLine(1, Tr("there is no [retriever] with a type"));
        if (type_.find("pop3") == std::string::npos) {
            Note(mailbox_.line, Tr("left out: a mailbox that is not fetched by POP3"));
            return std::move(imported_);
        }
        if (type_.starts_with("multidrop"))
            Note(mailbox_.line, Tr("type: mail is not sorted by its envelope recipients"));
        mailbox_.rules["pop_tls"] = type_.find("ssl") == std::string::npos ? "off" : "tls";
        imported_.mailboxes.push_back(std::move(mailbox_));
        return std::move(imported_);
    }

private:
    void Note(int line, const std::string& text) { imported_.notes.push_back({line, text}); }

    void Take(const Setting& setting) {
        if (setting.section == "retriever") {
            TakeOfRetriever(setting);
        } else if (setting.section == "options") {
            TakeOption(setting);
        } else if (std::exchange(noted_, setting.section) != setting.section) {
            Note(setting.line,
                 setting.section == "destination" ? std::string("[destination]") : Tr("a section that is not known"));
        }
    }

    void TakeOfRetriever(const Setting& setting) {
        struct Same {
            std::string_view name;
            const char* key;
        };
        constexpr std::array<Same, 4> kSame = {
            {{"server", "popserver"}, {"port", "popport"}, {"username", "popuser"}, {"timeout", "timeout"}}};
        const auto same = std::ranges::find(kSame, setting.name, &Same::name);
        if (same != kSame.end()) {
            mailbox_.values[same->key] = setting.value;
        } else if (setting.name == "type") {
            type_ = Small(setting.value);
            mailbox_.line = setting.line;
        } else if (setting.name == "password") {
            mailbox_.secrets["poppassword"] = setting.value;
        } else if (setting.name == "use_apop") {
            mailbox_.values["apop"] = IsTrue(setting) ? "on" : "off";
        } else if (setting.name == "ca_certs") {
            mailbox_.rules["tls_authority"] = setting.value;
        } else {
            NoteKnown(setting);
        }
    }

    void TakeOption(const Setting& setting) {
        if (setting.name == "delete") {
            mailbox_.values["deletemail"] = IsTrue(setting) ? "on" : "off";
        } else if (setting.name != "read_all" && setting.name != "verbose") {
            NoteKnown(setting);
        }
    }

    // A name that is not known may be part of a value that was written in an unusual way.
    void NoteKnown(const Setting& setting) {
        constexpr std::array<std::string_view, 30> kKnown = {"password_command",
                                                             "use_xoauth2",
                                                             "use_kerberos",
                                                             "use_peek",
                                                             "mailboxes",
                                                             "move_on_delete",
                                                             "record_mailbox",
                                                             "keyfile",
                                                             "certfile",
                                                             "ssl_ciphers",
                                                             "ssl_version",
                                                             "ssl_fingerprints",
                                                             "ssl_cert_hostname",
                                                             "delete_dup_msgids",
                                                             "envelope_recipient",
                                                             "imap_search",
                                                             "imap_on_delete",
                                                             "delete_after",
                                                             "delete_bigger_than",
                                                             "max_message_size",
                                                             "max_bytes_per_session",
                                                             "max_messages_per_session",
                                                             "delivered_to",
                                                             "received",
                                                             "message_log",
                                                             "message_log_syslog",
                                                             "message_log_verbose",
                                                             "logfile",
                                                             "to_oldmail_on_each_mail",
                                                             "fingerprint"};
        const bool is_known = std::ranges::find(kKnown, setting.name) != kKnown.end();
        Note(setting.line, is_known ? setting.name : Tr("a setting that is not known"));
    }

    Imported imported_;
    ImportedMailbox mailbox_;
    std::string type_;
    std::string noted_;  // the section that was noted last
};

}  // namespace

Imported ReadGetmailrc(std::string_view text) { return Reader().Read(text); }

}  // namespace tarvex::host
