// Settings by the labels that the console's forms give them, or as the commands have them.

#include "host/advice/field_names.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "host/language/tr.h"

namespace tarvex::host {
namespace {

struct Shown {
    std::string_view key;
    const char* shown;
};

constexpr std::array kLabels = {
    Shown{"address", Marked("Address of the mailbox")},
    Shown{"apop", Marked("Log in with APOP when the server offers it")},
    Shown{"esmtp", Marked("Greet with EHLO")},
    Shown{"password", Marked("POP3 password")},
    Shown{"popport", Marked("POP3 port")},
    Shown{"popserver", Marked("POP3 server")},
    Shown{"popuser", Marked("POP3 user name")},
    Shown{"smtp-password", Marked("SMTP password")},
    Shown{"smtpauth", Marked("Log in to the SMTP server")},
    Shown{"smtpauth_mode", Marked("How to log in")},
    Shown{"smtpport", Marked("SMTP port")},
    Shown{"smtpserver", Marked("SMTP server")},
    Shown{"smtpuser", Marked("SMTP user name")},
    Shown{"sslsmtp", Marked("SMTP encryption")},
    Shown{"timeout", Marked("Patience with a server for each step, in seconds")},
    Shown{"timer", Marked("Minutes between two runs")},
};

constexpr std::array kChoices = {
    Shown{"best", Marked("the best that the server offers")},
    Shown{"off", Marked("off")},
    Shown{"on", Marked("on")},
    Shown{"starttls", Marked("STARTTLS, or no connection")},
    Shown{"tls", Marked("TLS from the first byte")},
};

template <std::size_t Count>
std::string ShownIn(const std::array<Shown, Count>& list, std::string_view key) {
    const auto found = std::ranges::find(list, key, &Shown::key);
    return found == list.end() ? std::string(key) : Tr(found->shown);
}

}  // namespace

Reader ReaderOfOutput() {
    const char* const reader = std::getenv(kReaderVariable);
    return reader && reader == std::string_view("console") ? Reader::Console : Reader::Terminal;
}

std::string FieldNames::Key(std::string_view key) const {
    if (IsTerminal()) return std::string(key);
    has_named_field_ = true;
    return Tr("\"{0}\"", ShownIn(kLabels, key));
}

std::string FieldNames::Option(std::string_view key, std::string_view value) const {
    if (IsTerminal()) return "--" + std::string(key) + (value.empty() ? "" : " ") + std::string(value);
    return value.empty() ? Key(key) : Key(key) + " = " + Tr("\"{0}\"", ShownIn(kChoices, value));
}

std::string FieldNames::Rule(std::string_view key, std::string_view value) const {
    if (IsTerminal()) return "`tarvex rules set PROFILE --" + std::string(key) + ' ' + std::string(value) + '`';
    return RuleName(key) + " = " + std::string(value);
}

std::string FieldNames::RuleName(std::string_view key) const {
    return IsTerminal() ? "--" + std::string(key) : Tr("rule {0}", key);
}

std::string FieldNames::Place(const char* command, const char* page) const { return IsTerminal() ? command : Tr(page); }

std::string FieldNames::WhereFieldsAre() const {
    if (!has_named_field_) return {};
    return Tr(" Fields in quotes are on the page \"Settings\" of the mailbox; administrators have all of them there.");
}

}  // namespace tarvex::host
