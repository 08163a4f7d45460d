// Reads the rules of a tree from its host.def files.

#include "host/settings/host_setting.h"

#include <array>
#include <charconv>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include "host/language/tr.h"
#include "host/settings/settings_sections.h"
#include "host/settings/value_words.h"
#include "host/system/display.h"
#include "host/system/durable_files.h"
#include "host/system/paths.h"

namespace tarvex::host {
namespace {

using R = HostRules;

constexpr const char* kRules = Marked("Rules");
constexpr const char* kLimits = Marked("Limits");
constexpr const char* kService = Marked("The whole tree");
constexpr const char* kEncryption = Marked("Encryption of POP3");
constexpr const char* kLogin = Marked("Login with tokens");
constexpr const char* kAccount = Marked("SMTP account of profiles that name no server");
constexpr const char* kAlerts = Marked("Who is told when something is wrong");
constexpr std::array kLanguages = {ValueWord{"en", 0}, ValueWord{"ja", 1}};
constexpr std::array kLogins = {ValueWord{"password", 0}, ValueWord{"xoauth2", 1}, ValueWord{"oauthbearer", 2}};
constexpr std::array kPopTls = {ValueWord{"off", 0}, ValueWord{"tls", 1}, ValueWord{"starttls", 2}};

constexpr int kLongestEndOfData_s = 24 * 60 * 60;
constexpr int kLongestRun_minutes = 7 * 24 * 60;
constexpr int kLargestSize_MiB = 1 << 20;
constexpr int kMost = 1000000000;
constexpr int kHighestPort = 65535;
constexpr int kLongestHistory_days = 36500;
constexpr int kLargestHistory_MB = 1000000;
constexpr int kMostReaders = 20;
constexpr int kLongestFailing_h = 24 * 366;

constexpr Key<R> Rule(const char* name, const char* group, bool R::*field, const char* meaning) {
    return {{name, group, "on|off", meaning, KeyType::Number, "", kOnOff, 0, 1}, field};
}

constexpr Key<R> Limit(const char* name, const char* group, const char* placeholder, const char* unit, int highest,
                       int R::*field, const char* meaning) {
    return {{name, group, placeholder, meaning, KeyType::Number, unit, {}, 1, highest}, field};
}

constexpr Key<R> OfTheRoot(Key<R> key) {
    key.is_of_root = true;
    return key;
}

constexpr Key<R> Shared(Key<R> key) {
    key.group = kAccount;
    key.is_shared = true;
    key.server = "smtpserver";
    return key;
}

constexpr Key<R> OfAlertServer(Key<R> key) {
    key.server = "alert_server";
    return key;
}

constexpr std::array kRuleKeys = {
    Rule("setaside", kRules, &R::setaside, Marked("on: set aside what a server refuses, and go on with the rest")),
    Rule("sentonce", kRules, &R::sentonce, Marked("on: never send an address again what a server has taken for it")),
    Rule("loopguard", kRules, &R::loopguard, Marked("on: set aside what goes round in circles")),
    Rule("deletewaits", kRules, &R::deletewaits,
         Marked("on: delete a mail on the server only when every address that is switched on has it")),
    Rule("floodguard", kRules, &R::floodguard,
         Marked("on: wait when a mailbox that is known looks new, or a list of ids is older than it was")),
    Rule("retrylast", kRules, &R::retrylast, Marked("on: fetch last what could not be fetched before")),
    Rule("backoff", kRules, &R::backoff, Marked("on: wait longer after a failed login or connection")),
    Rule(
        "keyless", kRules, &R::keyless,
        Marked("on: leave a profile out when a settings file of it or of its user holds no key, and mail nothing to an "
               "address "
               "without \"@\"")),
    Limit("endofdata", kLimits, "SECONDS", Marked("seconds"), kLongestEndOfData_s, &R::endofdata,
          Marked("How long a server may take to answer the end of a message")),
    Limit("runtime", kLimits, "MINUTES", Marked("minutes"), kLongestRun_minutes, &R::runtime,
          Marked("How long a run may take")),
    Limit("minspeed", kLimits, "BYTES", Marked("bytes a second"), kMost, &R::minspeed,
          Marked("How fast a POP3 server must send, averaged over a minute")),
    Limit("runsize", kLimits, "MIB", Marked("MiB"), kLargestSize_MiB, &R::runsize,
          Marked("Messages that one run holds in memory")),
    Limit("floodlimit", kLimits, "MESSAGES", Marked("messages"), kMost, &R::floodlimit,
          Marked("How many new messages are too many for floodguard")),
    Limit("heldmessages", kLimits, "MESSAGES", Marked("messages"), kMost, &R::heldmessages,
          Marked("How many messages of a profile may be set aside")),
    Limit("heldsize", kLimits, "MIB", Marked("MiB"), kLargestSize_MiB, &R::heldsize,
          Marked("How large the messages of a profile may be that are set aside")),
    Limit("serverruns", kLimits, "RUNS", Marked("runs"), kMost, &R::serverruns, Marked("Runs at once to one server")),
    Key<R>{{"header_limit",
            kLimits,
            "BYTES",
            Marked("How large the header of a text mail may be; above it To and CC are shortened; 0: any size"),
            KeyType::Number,
            Marked("bytes"),
            {},
            0,
            kMost},
           &R::header_limit},
    Key<R>{
        {"pop_tls", kEncryption, "HOW",
         Marked("tls: encrypted from the first byte (usually port 995); starttls: encrypted before the login, or the "
                "connection fails (usually port 110)"),
         KeyType::Number, "", kPopTls, 0, 2},
        &R::pop_tls},
    Key<R>{
        {"tls_authority", kEncryption, "FILE",
         Marked(
             "Certificates (PEM) of the authority to trust in the place of the system's: for POP3, and for SMTP with a "
             "token"),
         KeyType::Path},
        &R::tls_authority},
    Key<R>{
        {"pop_login", kLogin, "HOW",
         Marked(
             "How to log in at the POP3 server: with the password, or with a token in one of two forms. A token wants "
             "pop_tls"),
         KeyType::Number, "", kLogins, 0, 2},
        &R::pop_login},
    Key<R>{{"smtp_login", kLogin, "HOW",
            Marked("The same at the SMTP server, where smtpauth and esmtp are on. A token wants sslsmtp"),
            KeyType::Number, "", kLogins, 0, 2},
           &R::smtp_login},
    Key<R>{
        {"token_command", kLogin, "COMMAND",
         Marked(
             "A program with its arguments that prints an access token; without it, tokens come from `tarvex login`"),
         KeyType::Text},
        &R::token_command},
    Shared({{"smtpserver", kAccount, "HOST", Marked("SMTP server; empty: each profile's popserver"), KeyType::HostName},
            &R::smtpserver}),
    Shared(Limit("smtpport", kAccount, "PORT", Marked("TCP port"), kHighestPort, &R::smtpport,
                 Marked("TCP port of the SMTP server"))),
    Shared({{"sslsmtp", kAccount, "HOW",
             Marked("tls: encrypted from the first byte; starttls: encrypted before the login"), KeyType::Number, "",
             kSmtpTls, 0, 2},
            &R::sslsmtp}),
    Shared(Rule("esmtp", kAccount, &R::esmtp, Marked("off: greet with HELO, and never log in"))),
    Shared(Rule("smtpauth", kAccount, &R::smtpauth, Marked("on: log in to the SMTP server"))),
    Shared({{"smtpauth_mode", kAccount, "METHOD", Marked("How to log in; best: the best that the server offers"),
             KeyType::Number, "", kSmtpMethods, 0, 3},
            &R::smtpauth_mode}),
    Shared({{"smtpuser", kAccount, "NAME", Marked("SMTP user name; empty: each profile's popuser"), KeyType::Login},
            &R::smtpuser}),
    Shared({{"smtppassword", kAccount, "", Marked("SMTP password; empty: each profile's POP3 password"),
             KeyType::Password},
            &R::smtppassword}),
    Key<R>{{"alert_to",
            kAlerts,
            "ADDRESSES",
            Marked("Addresses that are told by mail, with commas between them; none: nobody, whatever the tree says"),
            KeyType::Mailboxes,
            "",
            {},
            0,
            kMostReaders},
           &R::alert_to},
    Key<R>{{"alert_from",
            kAlerts,
            "ADDRESS",
            Marked("The From of these mails; empty: the address of the profile whose SMTP server is used, or with "
                   "alert_server "
                   "the first of alert_to"),
            KeyType::Mailboxes,
            "",
            {},
            0,
            1},
           &R::alert_from},
    OfAlertServer({{"alert_server", kAlerts, "HOST",
                    Marked("The SMTP server for them; empty: that of a profile they are about"), KeyType::HostName},
                   &R::alert_server}),
    OfAlertServer(Limit("alert_port", kAlerts, "PORT", Marked("TCP port"), kHighestPort, &R::alert_port,
                        Marked("TCP port of alert_server"))),
    OfAlertServer({{"alert_tls", kAlerts, "HOW",
                    Marked("tls: encrypted from the first byte; starttls: encrypted before the login"), KeyType::Number,
                    "", kSmtpTls, 0, 2},
                   &R::alert_tls}),
    OfAlertServer(
        {{"alert_user", kAlerts, "NAME", Marked("User name at alert_server; empty: no login"), KeyType::Login},
         &R::alert_user}),
    OfAlertServer(
        {{"alert_password", kAlerts, "", Marked("Password at alert_server"), KeyType::Password}, &R::alert_password}),
    Limit("alert_after", kAlerts, "RUNS", Marked("runs"), kMost, &R::alert_after,
          Marked("After how many failed runs in a row they are told")),
    Limit("alert_hours", kAlerts, "HOURS", Marked("hours"), kLongestFailing_h, &R::alert_hours,
          Marked("After how many hours of failing, whatever alert_after says")),
    Key<R>{{"alert_language", kAlerts, "LANGUAGE", Marked("In which language"), KeyType::Number, "", kLanguages, 0, 1},
           &R::alert_language},
    Key<R>{{"alert_command", kAlerts, "COMMAND",
            Marked("A program with its arguments that is told too, with JSON on its standard input; none: no program"),
            KeyType::Text},
           &R::alert_command},
    OfTheRoot(Rule("spread", kService, &R::spread, Marked("on: spread due times over the interval"))),
    OfTheRoot(Limit("servicesize", kService, "MIB", Marked("MiB"), kLargestSize_MiB, &R::servicesize,
                    Marked("Messages that all runs of the service hold in memory"))),
    OfTheRoot(Limit("allruns", kService, "RUNS", Marked("runs"), kMost, &R::allruns, Marked("Runs at once"))),
    OfTheRoot(Limit("historydays", kService, "DAYS", Marked("days"), kLongestHistory_days, &R::historydays,
                    Marked("How long it is remembered what became of a message"))),
    OfTheRoot(Limit("historysize", kService, Marked("MB"), Marked("MB"), kLargestHistory_MB, &R::historysize,
                    Marked("How large the history may be: the oldest messages go first"))),
};

CommandError BadFile(const CString& path, const std::string& why) {
    return {kCannotWrite, '"' + ShowPath(path) + "\" " + why};
}

// "50 messages" is 50, as in the other files; but a text without a number is none. Rules must not be guessed.
int NumberIn(const KeyInfo& key, const std::string& value, const CString& path) {
    int number = 0;
    const bool is_number = std::from_chars(value.data(), value.data() + value.size(), number).ec == std::errc();
    if (is_number && number >= key.lowest && number <= key.highest) return number;
    throw BadFile(path, "has a wrong value: " + std::string(key.name) + " cannot be \"" + ShowText(value) + "\" but " +
                            std::to_string(key.lowest) + " to " + std::to_string(key.highest));
}

bool CountsIn(RulesPlace place, const KeyInfo& key) {
    if (key.is_of_root) return place == RulesPlace::Tree;
    return !key.is_shared || place != RulesPlace::Profile;
}

// The account of which this key names the server.
void ForgetAccount(HostRules& rules, std::string_view server) {
    const HostRules none;
    for (const Key<HostRules>& key : kRuleKeys) {
        if (key.server == server) std::visit([&](auto field) { rules.*field = none.*field; }, key.field);
    }
}

// Throws CommandError when it is a number that is not allowed.
void Take(const SettingsSection& section, const Key<HostRules>& key, const CString& path, bool counts,
          HostRules& rules) {
    const std::string value = section.Value().value();
    if (const auto* const text = std::get_if<CString R::*>(&key.field)) {
        if (counts) rules.** text = key.type == KeyType::Password ? DecodePassWord(value) : value;
        return;
    }
    const int number = NumberIn(key, value, path);
    if (!counts) return;
    if (const auto* const flag = std::get_if<bool R::*>(&key.field)) rules.** flag = number != 0;
    if (const auto* const limit = std::get_if<int R::*>(&key.field)) rules.** limit = number;
}

// What was read last at each place, while somebody works on many profiles.
struct Reading {
    struct File {
        CString directory;
        HostRules others;
        std::optional<HostRules> rules;
    };
    int readers = 0;
    std::array<std::optional<File>, 3> last;
};
// Without a destructor of its own: with MinGW that of a thread's variable runs when its memory has been freed.
thread_local Reading* reading = nullptr;

// The rules of one file; nothing when there is none.
std::optional<HostRules> FileIn(const CString& directory, const HostRules& others, RulesPlace place) {
    std::optional<Reading::File>* const last = reading ? &reading->last.at(static_cast<std::size_t>(place)) : nullptr;
    if (last && *last && (*last)->directory == directory && (*last)->others == others) return (*last)->rules;
    const CString path = directory + kHostSettingFile;
    const std::optional<std::string> text = ReadWholeFile(path);
    const std::optional<HostRules> rules = text ? std::optional(RulesIn(*text, path, others, place)) : std::nullopt;
    if (last) *last = {directory, others, rules};
    return rules;
}

}  // namespace

template <>
std::span<const Key<HostRules>> Keys() {
    return kRuleKeys;
}

CommandError NoRules() { return {kNotFound, "the tree has no rules (no host.def); `tarvex init --rules` adds them"}; }

HostRules RulesIn(const std::string& text, const CString& path, HostRules others, RulesPlace place) {
    const SettingsSections file(text);
    bool has_key = file.Find("version") != nullptr;
    if (place == RulesPlace::User && file.Find("smtpserver")) {
        ForgetAccount(others, "smtpserver");
        others.server_of_user = true;
    }
    if (file.Find("alert_server")) ForgetAccount(others, "alert_server");
    for (const Key<HostRules>& key : kRuleKeys) {
        const SettingsSection* const section = file.Find(key.name);
        if (!section) continue;
        has_key = true;
        Take(*section, key, path, CountsIn(place, key), others);
    }
    if (!has_key) throw BadFile(path, "holds no key: it was cut short");
    return others;
}

bool HasRules(const CString& root) {
    std::error_code error;
    return std::filesystem::symlink_status(NativePath(root + kHostSettingFile), error).type() !=
           std::filesystem::file_type::not_found;
}

OneReadingOfRules::OneReadingOfRules() {
    if (!reading) reading = std::make_unique<Reading>().release();
    ++reading->readers;
}

OneReadingOfRules::~OneReadingOfRules() {
    if (--reading->readers == 0) std::unique_ptr<Reading>(std::exchange(reading, nullptr)).reset();
}

std::optional<HostRules> RulesOf(const CString& root) { return FileIn(root, {}, RulesPlace::Tree); }

std::optional<HostRules> RulesOfUser(const CString& root, const CString& user) {
    const std::optional<HostRules> rules = RulesOf(root);
    return rules ? FileIn(user, *rules, RulesPlace::User).value_or(*rules) : rules;
}

std::optional<HostRules> RulesOf(const CString& root, const CString& profile) {
    const std::optional<HostRules> rules = RulesOfUser(root, ParentOf(profile));
    return rules ? FileIn(profile, *rules, RulesPlace::Profile).value_or(*rules) : rules;
}

std::optional<HostRules> RulesOf(const CPopProfile& profile) {
    return RulesOf(ParentOf(ParentOf(profile.path)), profile.path);
}

HostRules RulesToShow(const CPopProfile& profile) {
    try {
        return RulesOf(profile).value_or(HostRules());
    } catch (const CommandError&) {
        return {};
    }
}

}  // namespace tarvex::host
