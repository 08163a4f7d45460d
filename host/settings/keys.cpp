// The tables of settings keys, and the way of a value between command line, record and display.

#include "host/settings/keys.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/settings/mailbox_value.h"
#include "host/settings/value_words.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/tree_owner.h"
#include "host/terminal/tree_text.h"
#include "host/terminal/typed_word.h"
#include "host/terminal/wording.h"
#include "tarvex/conversion.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr std::array kTextOnly = {ValueWord{"whole", -100}, ValueWord{"unlimited", 0}};
constexpr std::array kCutWhite = {ValueWord{"keep", 0}, ValueWord{"compress", 1}, ValueWord{"cut", -1}};
constexpr std::array kAll = {ValueWord{"all", 0}};
constexpr std::array kEveryCall = {ValueWord{"always", 0}};

constexpr int kLongestTimer_minutes = 366 * 24 * 60;
constexpr int kLongestTimeout_s = 24 * 60 * 60;
constexpr int kHighestPort = 65535;

template <class Record>
constexpr Key<Record> Text(const char* name, const char* group, const char* placeholder, KeyType type,
                           CString Record::*field, const char* meaning) {
    return {{name, group, placeholder, meaning, type}, field};
}

// A key without which nothing works.
template <class Record>
constexpr Key<Record> Needed(Key<Record> key) {
    key.is_needed = true;
    return key;
}

template <class Record>
constexpr Key<Record> Number(const char* name, const char* group, const char* placeholder, const char* unit, int lowest,
                             int highest, std::span<const ValueWord> words, int Record::*field, const char* meaning) {
    return {{name, group, placeholder, meaning, KeyType::Number, unit, words, lowest, highest}, field};
}

template <class Record>
constexpr Key<Record> Flag(const char* name, const char* group, int Record::*field, const char* meaning) {
    return Number(name, group, "on|off", "", 0, 1, kOnOff, field, meaning);
}

// ---- appset.def

using A = CAppSetting;
constexpr std::array kAppKeys = {
    Needed(Text("rootpath", Marked("Settings"), "DIR", KeyType::Path, &A::rootpath,
                Marked("Root directory of the data tree"))),
    Flag("allowcreatenewuser", Marked("Settings"), &A::allowcreatenewuser,
         Marked("Whether `tarvex user add` may add users")),
};

// ---- userset.def

using U = CUserSetting;
constexpr std::array kUserKeys = {
    Needed(Text("loginname", Marked("User"), "NAME", KeyType::Login, &U::loginname, Marked("Login name"))),
    Text("password", Marked("User"), "", KeyType::Password, &U::password,
         Marked("Password of the user, for programs that let users log in")),
    Flag("administrator", Marked("User"), &U::administrator, Marked("Administrator rights, for such programs")),
    Flag("status", Marked("User"), &U::status, Marked("off: no profile of the user is run, where the tree has rules")),
    Number("version", Marked("User"), "NUMBER", "", INT_MIN, INT_MAX, {}, &U::version, Marked("Stored only")),
};

// ---- popprofile.def

using P = CPopProfileSetting;
constexpr const char* kGeneral = Marked("Profile");
constexpr const char* kFetching = Marked("Fetching (POP3)");
constexpr const char* kSending = Marked("Sending (SMTP)");
constexpr const char* kLog = Marked("Log");
constexpr std::array kProfileKeys = {
    Text("address", kGeneral, "ADDRESS", KeyType::Mailbox, &P::address,
         Marked("The mailbox's own address: envelope sender of forwarded mail, and the From that replacefrom writes")),
    Text("nickname", kGeneral, "NAME", KeyType::Text, &P::nickname, Marked("A name of your choice for the profile")),
    Flag("status", kGeneral, &P::status, Marked("off: never run the profile")),
    Number("timer", kGeneral, "MINUTES", Marked("minutes"), 0, kLongestTimer_minutes, kEveryCall, &P::timer,
           Marked("Minutes between two runs; always: every time tarvex checks what is due. From 1440 minutes on the "
                  "real wait "
                  "is longer (1440 wait 48 hours); setting the key shows it")),
    Number("timeout", kGeneral, "SECONDS", Marked("seconds"), 1, kLongestTimeout_s, {}, &P::timeout,
           Marked("How long a server may take for each step")),
    Needed(Text("popserver", kFetching, "HOST", KeyType::HostName, &P::popserver, Marked("POP3 server"))),
    Number("popport", kFetching, "PORT", Marked("TCP port"), 1, kHighestPort, {}, &P::popport,
           Marked("TCP port of the POP3 server")),
    Needed(Text("popuser", kFetching, "NAME", KeyType::Login, &P::popuser, Marked("POP3 user name"))),
    Text("poppassword", kFetching, "", KeyType::Password, &P::poppassword, Marked("POP3 password")),
    Flag("apop", kFetching, &P::apop, Marked("on: log in with APOP when the server offers it")),
    Flag("sslpop", kFetching, &P::sslpop,
         Marked("Stored only, without effect. For TLS: `tarvex rules set PROFILE --pop_tls tls`")),
    Flag("deletemail", kFetching, &P::deletemail,
         Marked("on: delete a mail on the POP3 server in a run after every address has it")),
    Text("smtpserver", kSending, "HOST", KeyType::HostName, &P::smtpserver,
         Marked("SMTP server; empty: that of the user or of the tree (`tarvex rules`), else popserver")),
    Number("smtpport", kSending, "PORT", Marked("TCP port"), 1, kHighestPort, {}, &P::smtpport,
           Marked("TCP port of the SMTP server")),
    Number("sslsmtp", kSending, "HOW", "", 0, 2, kSmtpTls, &P::sslsmtp,
           Marked("tls: encrypted from the first byte (usually port 465); starttls: encrypted before the login, or the "
                  "connection fails (usually port 587)")),
    Flag("esmtp", kSending, &P::esmtp, Marked("off: greet with HELO, and never log in")),
    Flag("smtpauth", kSending, &P::smtpauth, Marked("on: log in to the SMTP server")),
    Number("smtpauth_mode", kSending, "METHOD", "", 0, 3, kSmtpMethods, &P::smtpauth_mode,
           Marked("How to log in; best: the best that the server offers")),
    Text("smtpuser", kSending, "NAME", KeyType::Login, &P::smtpuser, Marked("SMTP user name; empty: popuser")),
    Text("smtppassword", kSending, "", KeyType::Password, &P::smtppassword,
         Marked("SMTP password; empty: the POP3 password")),
    Flag("replacefrom", kSending, &P::replacefrom,
         Marked("on: replace the From of every mail by the profile's address")),
    Flag("replaceto", kSending, &P::replaceto, Marked("on: replace the To of every copy by its forwarding address")),
    Flag("logmode", kLog, &P::logmode, Marked("off: write no log")),
    Number("logsize", kLog, "ENTRIES", Marked("entries"), 0, INT_MAX, kAll, &P::logsize,
           Marked("How many of the newest log entries are kept")),
    Key<P>{{"lasttime", kLog, "WHEN",
            Marked("When the profile was last due, \"YYYY-MM-DD HH:MM\"; now, or never, which makes it due at once"),
            KeyType::Moment},
           &P::lasttime},
    Number("version", kLog, "NUMBER", "", INT_MIN, INT_MAX, {}, &P::version,
           Marked("Stored only; the next run sets it to 0")),
};

// ---- forwardaddress.def

using F = CForwardAddressSetting;
constexpr const char* kAddress = Marked("Forwarding address");
constexpr const char* kTextMail = Marked("Text mail");
constexpr std::array kForwardKeys = {
    Text("address", kAddress, "ADDRESS", KeyType::Recipient, &F::address,
         Marked("Where to send; a display name and a comment are allowed")),
    Text("nickname", kAddress, "NAME", KeyType::Text, &F::nickname, Marked("A name of your choice for the address")),
    Flag("status", kAddress, &F::status, Marked("off: send nothing there")),
    Number("textonly", kTextMail, "BYTES", Marked("bytes"), INT_MIN, INT_MAX, kTextOnly, &F::textonly,
           Marked("whole: the whole mail. A number: a text mail of at most that many bytes of Shift-JIS instead; "
                  "unlimited: a "
                  "text mail without limit. Any number below 0 means whole")),
    Number("cutwhite", kTextMail, "HOW", "", INT_MIN, INT_MAX, kCutWhite, &F::cutwhite,
           Marked("Text mail: keep, compress or cut white space and the characters of compress_words")),
    Flag("htmltotext", kTextMail, &F::htmltotext, Marked("Text mail: on: turn an HTML mail into text")),
    Text("compress_words", kTextMail, "CHARACTERS", KeyType::Text, &F::compress_words,
         Marked("Text mail: more characters for cutwhite, with single blanks between them")),
};

// ---- values

void RequireHostName(const KeyInfo& key, std::string_view host) {
    const auto refuse = [&](const std::string& why) {
        throw CommandError(kBadUsage, Tr("{0} {1} is not a host name: {2}", key.name, Quoted(host), why));
    };
    if (!IsPlainAscii(host)) {
        refuse(
            Tr("it has blanks or letters beyond ASCII (a name in another script has an ASCII form that begins with "
               "xn--)"));
    }
    if (std::ranges::count(host, ':') == 1) refuse(Tr("leave the port out, and set popport or smtpport"));
    if (host.find_first_of("/[]@<>,;\\\"") != std::string_view::npos) refuse(Tr("write it like mail.example.org"));
}

CString PathValue(const KeyInfo& key, std::string_view word) {
    if (word.empty() && !key.is_needed) return {};
    if (word.find_first_of("\r\n") != std::string_view::npos) {
        throw CommandError(kBadUsage, Tr("{0}: a path has one line", key.name));
    }
    CString path = TreePath(word);
    if (!NativePath(path).is_absolute()) {
        throw CommandError(kBadUsage, Tr("{0} {1} is not a whole path; write it like {2}", key.name,
                                         Quoted(ShowPath(path)), ShowPath(UsualRootDirectory())));
    }
    return path;
}

CString TextValue(const KeyInfo& key, std::string_view word) {
    if (key.type == KeyType::Password) {
        if (word.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos) {
            throw CommandError(kBadData, Tr("{0}: a password has one line, without zero bytes", key.name));
        }
        return CString(word);
    }
    if (key.is_needed && word.empty()) throw CommandError(kBadUsage, Tr("{0} cannot be empty", key.name));
    if (key.type == KeyType::Path) return PathValue(key, word);
    if (key.type == KeyType::HostName) RequireHostName(key, word);
    if (key.type == KeyType::Mailbox) RequireAddress(key, word, word);
    if (key.type == KeyType::Recipient) {
        RequireNoBlankWithin(key, word);
        RequireAddress(key, word, RecipientOf(word));
    }
    if (key.type == KeyType::Mailboxes) RequireMailboxes(key, word);
    try {
        return ToStored(word);
    } catch (const CommandError& error) {
        throw CommandError(error.ExitCode(), std::string(key.name) + ": " + error.what());
    }
}

std::vector<std::string> WordsOf(const KeyInfo& key) {
    std::vector<std::string> words;
    for (const ValueWord& known : key.words) words.emplace_back(known.word);
    return words;
}

bool IsOpen(const KeyInfo& key) { return key.lowest == INT_MIN || key.highest == INT_MAX; }

// "always, or 0 to 600": the words of a number and, where they are not all of its values, a range.
std::string WordsAndRange(const KeyInfo& key, const std::string& range) {
    std::string words;
    for (std::size_t i = 0; i < key.words.size(); ++i) {
        if (i > 0) words += i + 1 == key.words.size() ? Tr(" or ") : Tr(", ");
        words += key.words[i].word;
    }
    if (WordsAreAll(key)) return words;
    return words.empty() ? range : Tr("{0}, or {1}", words, range);
}

std::string RangeOf(const KeyInfo& key) {
    if (!IsOpen(key)) return Tr("{0} to {1}", key.lowest, key.highest);
    return key.lowest == 0 ? Tr("a number from {0}", 0) : Tr("a number");
}

// "always, or a number from 0 to 527040 (minutes)"
std::string AllowedNumbers(const KeyInfo& key) {
    const std::string range = IsOpen(key) ? RangeOf(key) : Tr("a number from {0} to {1}", key.lowest, key.highest);
    return WordsAndRange(key, *key.unit ? range + " (" + Tr(key.unit) + ')' : range);
}

int NumberValue(const KeyInfo& key, std::string_view word) {
    for (const ValueWord& known : key.words) {
        if (word == known.word) return known.value;
    }
    int value = 0;
    const char* const end = word.data() + word.size();
    const auto [rest, error] = std::from_chars(word.data(), end, value);
    if (error != std::errc() || rest != end || word.empty() || value < key.lowest || value > key.highest) {
        throw CommandError(kBadUsage,
                           Tr("{0} must be {1}", key.name, Tr("{0}, not {1}", AllowedNumbers(key), Quoted(word))) +
                               DidYouMean(word, WordsOf(key)));
    }
    return value;
}

std::string NumberText(const KeyInfo& key, int value) {
    for (const ValueWord& known : key.words) {
        if (value == known.value) return known.word;
    }
    return std::to_string(value);
}

}  // namespace

template <>
std::span<const Key<CAppSetting>> Keys() {
    return kAppKeys;
}
template <>
std::span<const Key<CUserSetting>> Keys() {
    return kUserKeys;
}
template <>
std::span<const Key<CPopProfileSetting>> Keys() {
    return kProfileKeys;
}
template <>
std::span<const Key<CForwardAddressSetting>> Keys() {
    return kForwardKeys;
}

template <class Record>
const Key<Record>& KeyNamed(std::string_view name) {
    const std::span<const Key<Record>> keys = Keys<Record>();
    const auto found = std::ranges::find_if(keys, [&](const Key<Record>& key) { return key.name == name; });
    if (found != keys.end()) return *found;
    std::vector<std::string> names;
    for (const Key<Record>& key : keys) names.emplace_back(key.name);
    throw CommandError(kBadUsage, Tr("there is no key {0}", Quoted(name)) + DidYouMean(name, names));
}

bool WordsAreAll(const KeyInfo& key) {
    const auto in_range = std::ranges::count_if(
        key.words, [&key](const ValueWord& word) { return word.value >= key.lowest && word.value <= key.highest; });
    return in_range == std::int64_t{key.highest} - key.lowest + 1;
}

std::string AllowedValues(const KeyInfo& key) {
    switch (key.type) {
        case KeyType::Text:
        case KeyType::Login:
            return Tr("text");
        case KeyType::Path:
            return Tr("a whole path");
        case KeyType::HostName:
            return Tr("a host name or address");
        case KeyType::Mailbox:
        case KeyType::Recipient:
            return Tr("a mail address");
        case KeyType::Mailboxes:
            return key.highest > 1 ? Tr("mail addresses") : Tr("a mail address");
        case KeyType::Password:
            return Tr("a password");
        case KeyType::Moment:
            return Tr("now, never or a time like 2026-12-24 18:00");
        case KeyType::Number:
            break;
    }
    return WordsAndRange(key, RangeOf(key));
}

template <class Record>
void SetValue(Record& record, const Key<Record>& key, std::string_view word) {
    if (const auto* const text = std::get_if<CString Record::*>(&key.field)) record.** text = TextValue(key, word);
    if (const auto* const number = std::get_if<int Record::*>(&key.field)) record.** number = NumberValue(key, word);
    if (const auto* const flag = std::get_if<bool Record::*>(&key.field)) record.** flag = NumberValue(key, word) != 0;
    if (const auto* const moment = std::get_if<CTime Record::*>(&key.field)) record.** moment = ParseMoment(word);
}

template <class Record>
std::string ShowValue(const Record& record, const Key<Record>& key) {
    if (const auto* const number = std::get_if<int Record::*>(&key.field)) return NumberText(key, record.**number);
    if (const auto* const flag = std::get_if<bool Record::*>(&key.field)) return NumberText(key, record.**flag);
    if (const auto* const moment = std::get_if<CTime Record::*>(&key.field)) return ShowMoment(record.**moment);
    const CString& text = record.*std::get<CString Record::*>(key.field);
    if (key.type == KeyType::Password) return text.empty() ? Tr("(none)") : Tr("(set)");
    return key.type == KeyType::Path ? ShowPath(text) : ShowText(text);
}

template <class Record>
nlohmann::ordered_json JsonValue(const Record& record, const Key<Record>& key) {
    if (const auto* const number = std::get_if<int Record::*>(&key.field)) return record.**number;
    if (const auto* const flag = std::get_if<bool Record::*>(&key.field)) return record.**flag ? 1 : 0;
    if (const auto* const moment = std::get_if<CTime Record::*>(&key.field)) {
        return ShowIsoTime(record.**moment);
    }
    const CString& text = record.*std::get<CString Record::*>(key.field);
    if (key.type == KeyType::Password) return text.empty() ? nlohmann::ordered_json(nullptr) : "(set)";
    return key.type == KeyType::Path ? NativePath(text).string() : Utf8FromText(text);
}

bool SameMailbox(const CString& left, const CString& right) {
    return Lower(RecipientOf(left)) == Lower(RecipientOf(right));
}

CTime ParseMoment(std::string_view text) {
    if (text == "now") return std::time(nullptr) / 60 * 60;
    const std::string word = text == "never" ? "2000-01-01 00:00" : std::string(text);
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, used = 0;
    const int count = std::sscanf(word.c_str(), "%4d-%2d-%2d %2d:%2d%n", &year, &month, &day, &hour, &minute, &used);
    std::array<char, 64> commas{};
    std::snprintf(commas.data(), commas.size(), "%d,%d,%d,%d,%d,0", year, month, day, hour, minute);
    std::array<char, 64> normal{};
    std::snprintf(normal.data(), normal.size(), "%04d-%02d-%02d %02d:%02d", year, month, day, hour, minute);
    // A date that the clock turns into another one (30 February) is none.
    const CTime moment = GetCTime(commas.data());
    if (count != 5 || word.rfind(':') + 3 != word.size() || used != static_cast<int>(word.size()) ||
        ShowMoment(moment) != normal.data()) {
        throw CommandError(kBadUsage,
                           Tr("{0} is not a moment; write now, never or a time like 2026-12-24 18:00", Quoted(text)));
    }
    return moment;
}

template const Key<CAppSetting>& KeyNamed(std::string_view);
template void SetValue(CAppSetting&, const Key<CAppSetting>&, std::string_view);
template std::string ShowValue(const CAppSetting&, const Key<CAppSetting>&);
template nlohmann::ordered_json JsonValue(const CAppSetting&, const Key<CAppSetting>&);
template const Key<CUserSetting>& KeyNamed(std::string_view);
template void SetValue(CUserSetting&, const Key<CUserSetting>&, std::string_view);
template std::string ShowValue(const CUserSetting&, const Key<CUserSetting>&);
template nlohmann::ordered_json JsonValue(const CUserSetting&, const Key<CUserSetting>&);
template const Key<CPopProfileSetting>& KeyNamed(std::string_view);
template void SetValue(CPopProfileSetting&, const Key<CPopProfileSetting>&, std::string_view);
template std::string ShowValue(const CPopProfileSetting&, const Key<CPopProfileSetting>&);
template nlohmann::ordered_json JsonValue(const CPopProfileSetting&, const Key<CPopProfileSetting>&);
template const Key<CForwardAddressSetting>& KeyNamed(std::string_view);
template void SetValue(CForwardAddressSetting&, const Key<CForwardAddressSetting>&, std::string_view);
template std::string ShowValue(const CForwardAddressSetting&, const Key<CForwardAddressSetting>&);
template nlohmann::ordered_json JsonValue(const CForwardAddressSetting&, const Key<CForwardAddressSetting>&);
template const Key<HostRules>& KeyNamed(std::string_view);
template void SetValue(HostRules&, const Key<HostRules>&, std::string_view);
template std::string ShowValue(const HostRules&, const Key<HostRules>&);
template nlohmann::ordered_json JsonValue(const HostRules&, const Key<HostRules>&);

}  // namespace tarvex::host
