// Reads a fetchmailrc (fetchmail(1), "THE RUN CONTROL FILE"):
//
//     set daemon 300
//     defaults proto pop3 keep
//     poll pop.example.org timeout 60
//         user alice there with password "secret" is alice@example.net here ssl
//         user bob there with password "other" is bob here
//
// An entry is a server with its options, then users with theirs. `defaults` is an entry with which all later ones
// begin.

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/import/fetchmail_words.h"
#include "host/import/imported.h"
#include "host/import/lines.h"
#include "host/language/tr.h"

namespace tarvex::host {
namespace {

using Words = std::vector<FetchmailWord>;

// What an entry says of one mailbox.
struct Account {
    int line = 0;
    std::string server, via, protocol, remote, ssl_protocol, smtp_domain, smtp_name;
    std::vector<std::string> locals;
    std::int64_t interval = 1;
    bool is_skipped = false, is_ssl = false, says_ssl_protocol = false, keeps = false;
    ImportedMailbox mailbox;  // what needs no second thought
};

// How many words an option takes: none, one, or all up to the next keyword.
enum class Takes { Nothing, One, All };

class Reader;
using Apply = void (Reader::*)(const FetchmailWord& word, std::span<const FetchmailWord> values, bool is_on);

struct Option {
    std::string_view word;
    Takes takes;
    Apply apply;  // null: it is not taken over
};

constexpr std::int64_t kMostMinutes = 1'000'000;

class Reader {
public:
    explicit Reader(Words words) : words_(std::move(words)) {}

    Imported Read() {
        while (at_ < words_.size()) ReadStatement();
        EndEntry();
        if (imported_.mailboxes.empty() && imported_.notes.empty())
            throw BadLine(1, Tr("there is no mailbox in the file"));
        SetTimers();
        std::ranges::stable_sort(imported_.notes, {}, &ImportNote::line);
        return std::move(imported_);
    }

private:
    static std::span<const Option> Options();
    static const Option* Find(const FetchmailWord& word);
    static bool IsOneOf(const FetchmailWord& word, std::span<const std::string_view> words) {
        return !word.is_quoted && std::ranges::find(words, word.text) != words.end();
    }
    static bool IsKeyword(const FetchmailWord& word);

    void Note(int line, const std::string& text) { imported_.notes.push_back({line, text}); }

    void ReadStatement();
    void ReadGlobal();
    void ReadOption(bool is_on);
    void BeginEntry(const FetchmailWord& word);
    void EndUser();
    void EndEntry();
    void Emit(const Account& account);
    void SetTls(const Account& account, ImportedMailbox& mailbox);
    void SetForwards(const Account& account, ImportedMailbox& mailbox);
    void SetTimers();

    // A value of an option in the place of the last one.
    std::string& Value(const char* key) { return current().mailbox.values[key]; }
    Account& current() { return in_user_ ? user_ : in_defaults_ ? defaults_ : server_; }

    // ---- the options that are taken over

    void Via(const FetchmailWord&, std::span<const FetchmailWord> values, bool) { current().via = values[0].text; }
    void Protocol(const FetchmailWord&, std::span<const FetchmailWord> values, bool) {
        current().protocol = Small(values[0].text);
    }
    void Port(const FetchmailWord&, std::span<const FetchmailWord> values, bool) {
        const std::string& port = values[0].text;
        Value("popport") = port == "pop3" ? "110" : port == "pop3s" ? "995" : port;
    }
    void Timeout(const FetchmailWord&, std::span<const FetchmailWord> values, bool) {
        Value("timeout") = values[0].text;
    }
    void Interval(const FetchmailWord& word, std::span<const FetchmailWord> values, bool) {
        current().interval = NumberIn(word, values[0]);
    }
    void User(const FetchmailWord& word, std::span<const FetchmailWord> values, bool);
    void Is(const FetchmailWord& word, std::span<const FetchmailWord> values, bool);
    void Password(const FetchmailWord&, std::span<const FetchmailWord> values, bool) {
        current().mailbox.secrets["poppassword"] = values[0].text;
    }
    void Ssl(const FetchmailWord&, std::span<const FetchmailWord>, bool is_on) { current().is_ssl = is_on; }
    void SslProtocol(const FetchmailWord&, std::span<const FetchmailWord> values, bool) {
        current().says_ssl_protocol = true;
        current().ssl_protocol = values[0].text;
    }
    void SslCertificates(const FetchmailWord&, std::span<const FetchmailWord> values, bool) {
        current().mailbox.rules["tls_authority"] = values[0].text;
    }
    void SslCheck(const FetchmailWord& word, std::span<const FetchmailWord>, bool is_on) {
        if (!is_on) Note(word.line, Tr("no sslcertck: certificates are always checked"));
    }
    void Keep(const FetchmailWord&, std::span<const FetchmailWord>, bool is_on) { current().keeps = is_on; }
    void Nothing(const FetchmailWord&, std::span<const FetchmailWord>, bool) {}
    void SmtpHost(const FetchmailWord& word, std::span<const FetchmailWord> values, bool);
    void SmtpDomain(const FetchmailWord&, std::span<const FetchmailWord> values, bool) {
        current().smtp_domain = values[0].text;
    }
    void SmtpName(const FetchmailWord&, std::span<const FetchmailWord> values, bool) {
        current().smtp_name = values[0].text;
    }
    void SmtpUser(const FetchmailWord&, std::span<const FetchmailWord> values, bool) {
        Value("smtpauth") = "on";
        Value("smtpuser") = values[0].text;
    }
    void SmtpPassword(const FetchmailWord&, std::span<const FetchmailWord> values, bool) {
        current().mailbox.secrets["smtppassword"] = values[0].text;
    }

    static std::int64_t NumberIn(const FetchmailWord& word, const FetchmailWord& value) {
        std::int64_t number = 0;
        const char* const end = value.text.data() + value.text.size();
        const auto [stop, error] = std::from_chars(value.text.data(), end, number);
        if (error != std::errc() || stop != end || number < 0 || number > kMostMinutes) {
            throw BadLine(value.line, Tr("{0} takes a number", word.text));
        }
        return number;
    }

    const Words words_;
    std::size_t at_ = 0;
    Account defaults_, server_, user_;
    bool in_entry_ = false, in_defaults_ = false, in_user_ = false;
    std::int64_t daemon_s_ = 0;
    std::vector<std::int64_t> intervals_;  // of the mailboxes
    Imported imported_;
};

constexpr std::array<std::string_view, 5> kNoise = {"and", "with", "has", "wants", "options"};
constexpr std::array<std::string_view, 3> kEntries = {"poll", "server", "skip"};
constexpr std::array<std::string_view, 4> kOther = {"set", "defaults", "no", "here"};

std::span<const Option> Reader::Options() {
    using enum Takes;
    static constexpr Option kOptions[] = {
        // of a server
        {"via", One, &Reader::Via},
        {"proto", One, &Reader::Protocol},
        {"protocol", One, &Reader::Protocol},
        {"port", One, &Reader::Port},
        {"service", One, &Reader::Port},
        {"timeout", One, &Reader::Timeout},
        {"interval", One, &Reader::Interval},
        {"uidl", Nothing, &Reader::Nothing},  // always so
        {"local", All, nullptr},
        {"localdomains", All, nullptr},
        {"auth", One, nullptr},
        {"authenticate", One, nullptr},
        {"envelope", One, nullptr},
        {"qvirtual", One, nullptr},
        {"aka", All, nullptr},
        {"interface", One, nullptr},
        {"monitor", One, nullptr},
        {"plugin", One, nullptr},
        {"plugout", One, nullptr},
        {"dns", Nothing, nullptr},
        {"checkalias", Nothing, nullptr},
        {"tracepolls", Nothing, nullptr},
        {"principal", One, nullptr},
        {"esmtpname", One, &Reader::SmtpUser},
        {"esmtppassword", One, &Reader::SmtpPassword},
        {"bad-header", One, nullptr},
        // of a user
        {"user", One, &Reader::User},
        {"username", One, &Reader::User},
        {"is", All, &Reader::Is},
        {"to", All, &Reader::Is},
        {"pass", One, &Reader::Password},
        {"password", One, &Reader::Password},
        {"ssl", Nothing, &Reader::Ssl},
        {"sslproto", One, &Reader::SslProtocol},
        {"sslcertfile", One, &Reader::SslCertificates},
        {"sslcertck", Nothing, &Reader::SslCheck},
        {"sslcert", One, nullptr},
        {"sslkey", One, nullptr},
        {"sslcertpath", One, nullptr},
        {"sslcommonname", One, nullptr},
        {"sslfingerprint", One, nullptr},
        {"folder", All, nullptr},
        {"smtphost", All, &Reader::SmtpHost},
        {"smtp", All, &Reader::SmtpHost},
        {"smtpaddress", One, &Reader::SmtpDomain},
        {"smtpname", One, &Reader::SmtpName},
        {"fetchdomains", All, nullptr},
        {"antispam", All, nullptr},
        {"mda", One, nullptr},
        {"bsmtp", One, nullptr},
        {"lmtp", Nothing, nullptr},
        {"preconnect", One, nullptr},
        {"postconnect", One, nullptr},
        {"keep", Nothing, &Reader::Keep},
        {"flush", Nothing, nullptr},
        {"limitflush", Nothing, nullptr},
        {"fetchall", Nothing, nullptr},
        {"rewrite", Nothing, nullptr},
        {"stripcr", Nothing, nullptr},
        {"forcecr", Nothing, nullptr},
        {"pass8bits", Nothing, nullptr},
        {"dropstatus", Nothing, nullptr},
        {"dropdelivered", Nothing, nullptr},
        {"mimedecode", Nothing, nullptr},
        {"idle", Nothing, nullptr},
        {"limit", One, nullptr},
        {"warnings", One, nullptr},
        {"batchlimit", One, nullptr},
        {"fetchlimit", One, nullptr},
        {"fetchsizelimit", One, nullptr},
        {"fastuidl", One, nullptr},
        {"expunge", One, nullptr},
        {"properties", One, nullptr},
    };
    return kOptions;
}

const Option* Reader::Find(const FetchmailWord& word) {
    if (word.is_quoted) return nullptr;
    const auto found = std::ranges::find(Options(), word.text, &Option::word);
    return found == Options().end() ? nullptr : &*found;
}

bool Reader::IsKeyword(const FetchmailWord& word) {
    return Find(word) || IsOneOf(word, kNoise) || IsOneOf(word, kEntries) || IsOneOf(word, kOther) ||
           (!word.is_quoted && word.text == "there");
}

// ---- the grammar

void Reader::ReadStatement() {
    const FetchmailWord& word = words_[at_];
    if (IsOneOf(word, kNoise)) {
        ++at_;
    } else if (IsOneOf(word, kEntries) || (!word.is_quoted && word.text == "defaults")) {
        BeginEntry(word);
    } else if (!word.is_quoted && word.text == "set") {
        ReadGlobal();
    } else if (!word.is_quoted && word.text == "no") {
        ++at_;
        if (at_ < words_.size()) ReadOption(false);
    } else {
        ReadOption(true);
    }
}

// `set daemon 300`, `set no syslog`, `set logfile "x"`
void Reader::ReadGlobal() {
    constexpr std::array<std::string_view, 6> kWithValue = {"daemon",  "postmaster", "logfile",
                                                            "pidfile", "idfile",     "properties"};
    const int line = words_[at_++].line;
    if (at_ < words_.size() && !words_[at_].is_quoted && words_[at_].text == "no") ++at_;
    if (at_ == words_.size()) throw BadLine(line, Tr("set what?"));
    const FetchmailWord& word = words_[at_++];
    if (!IsOneOf(word, kWithValue)) return Note(line, "set");
    if (at_ == words_.size()) throw BadLine(line, Tr("{0} has no value", word.text));
    if (word.text != "daemon") {
        Note(line, "set " + word.text);
    } else {
        daemon_s_ = NumberIn(word, words_[at_]);
    }
    ++at_;
}

void Reader::ReadOption(bool is_on) {
    const FetchmailWord& word = words_[at_++];
    const Option* const option = Find(word);
    if (!option) return Note(word.line, Tr("a word that has no meaning there"));
    if (!in_entry_) throw BadLine(word.line, Tr("{0} stands outside of an entry (poll, skip, defaults)", word.text));
    const std::size_t begin = at_;
    if (option->takes == Takes::One && is_on) {
        if (at_ == words_.size()) throw BadLine(word.line, Tr("{0} has no value", word.text));
        ++at_;
    }
    if (option->takes == Takes::All && is_on) {
        while (at_ < words_.size() && !IsKeyword(words_[at_])) ++at_;
        if (at_ == begin) throw BadLine(word.line, Tr("{0} has no value", word.text));
    }
    if (!option->apply || (!is_on && option->takes != Takes::Nothing)) {
        return Note(word.line, (is_on ? "" : "no ") + word.text);
    }
    (this->*option->apply)(word, std::span(words_).subspan(begin, at_ - begin), is_on);
}

void Reader::BeginEntry(const FetchmailWord& word) {
    EndEntry();
    in_entry_ = true;
    in_defaults_ = word.text == "defaults";
    ++at_;
    if (in_defaults_) {
        defaults_ = {};
        return;
    }
    if (at_ == words_.size()) throw BadLine(word.line, Tr("{0} has no server", word.text));
    server_ = defaults_;
    server_.line = word.line;
    server_.is_skipped = word.text == "skip";
    server_.server = words_[at_++].text;
}

void Reader::EndUser() {
    if (!std::exchange(in_user_, false)) return;
    if (in_defaults_) {
        defaults_ = user_;
    } else {
        Emit(user_);
    }
}

void Reader::EndEntry() {
    const bool had_user = in_user_;
    EndUser();
    if (std::exchange(in_entry_, false) && !had_user && !in_defaults_) Emit(server_);
}

void Reader::User(const FetchmailWord& word, std::span<const FetchmailWord> values, bool) {
    EndUser();
    user_ = in_defaults_ ? defaults_ : server_;
    in_user_ = true;
    if (!in_defaults_) user_.line = word.line;
    user_.remote = values[0].text;
    if (at_ == words_.size() || words_[at_].is_quoted) return;
    if (words_[at_].text == "here") {
        user_.locals = {std::exchange(user_.remote, "")};
        ++at_;
    } else if (words_[at_].text == "there") {
        ++at_;
    }
}

void Reader::Is(const FetchmailWord&, std::span<const FetchmailWord> values, bool) {
    const bool is_remote = at_ < words_.size() && !words_[at_].is_quoted && words_[at_].text == "there";
    const bool says_where = is_remote || (at_ < words_.size() && !words_[at_].is_quoted && words_[at_].text == "here");
    if (says_where) ++at_;
    if (is_remote) {
        current().remote = values[0].text;
        return;
    }
    current().locals.clear();
    for (const FetchmailWord& value : values) current().locals.push_back(value.text);
}

// "relay.example.net/587"
void Reader::SmtpHost(const FetchmailWord& word, std::span<const FetchmailWord> values, bool) {
    const std::string& host = values[0].text;
    if (host.starts_with('/')) return Note(word.line, Tr("{0}: a socket", word.text));
    if (values.size() > 1) Note(word.line, Tr("{0}: only the first server", word.text));
    const std::size_t slash = std::min(host.find('/'), host.size());
    Value("smtpserver") = host.substr(0, slash);
    if (slash < host.size()) Value("smtpport") = host.substr(slash + 1);
}

// ---- what the words mean

void Reader::Emit(const Account& account) {
    constexpr std::array<std::string_view, 5> kPop3 = {"", "auto", "pop3", "apop", "sdps"};
    if (std::ranges::find(kPop3, account.protocol) == kPop3.end()) {
        return Note(account.line, Tr("left out: a mailbox that is not fetched by POP3"));
    }
    if (account.remote.empty()) return Note(account.line, Tr("left out: an entry without a user"));
    ImportedMailbox mailbox = account.mailbox;
    mailbox.line = account.line;
    mailbox.values["popserver"] = account.via.empty() ? account.server : account.via;
    mailbox.values["popuser"] = account.remote;
    mailbox.values["deletemail"] = account.keeps ? "off" : "on";
    mailbox.values.try_emplace("smtpserver", "localhost");
    if (account.protocol == "apop") mailbox.values["apop"] = "on";
    if (account.is_skipped) mailbox.values["status"] = "off";
    SetTls(account, mailbox);
    SetForwards(account, mailbox);
    intervals_.push_back(account.interval);
    imported_.mailboxes.push_back(std::move(mailbox));
}

void Reader::SetTls(const Account& account, ImportedMailbox& mailbox) {
    if (account.is_ssl) {
        mailbox.rules["pop_tls"] = "tls";
    } else if (!account.says_ssl_protocol) {
        mailbox.tls_if_offered = true;
    } else {
        mailbox.rules["pop_tls"] = account.ssl_protocol.empty() ? "off" : "starttls";
    }
}

// Several names sort the mail of a mailbox by its addresses, which nothing here does.
void Reader::SetForwards(const Account& account, ImportedMailbox& mailbox) {
    if (!account.smtp_name.empty()) mailbox.forwards = {account.smtp_name};
    if (!account.smtp_name.empty() || account.locals.empty()) return;
    if (account.locals.size() > 1 || account.locals[0] == "*") {
        return Note(account.line, Tr("mail is sorted to several names"));
    }
    const std::string& name = account.locals[0];
    const std::string domain = account.smtp_domain.empty() ? "localhost" : account.smtp_domain;
    mailbox.forwards = {name.find('@') == std::string::npos ? name + '@' + domain : name};
}

// Whole minutes, at least one; without a daemon the timer is as for any new profile.
void Reader::SetTimers() {
    if (daemon_s_ == 0) return;
    for (std::size_t i = 0; i < intervals_.size(); ++i) {
        const std::int64_t minutes =
            std::max<std::int64_t>(daemon_s_ * std::max<std::int64_t>(intervals_[i], 1) / 60, 1);
        imported_.mailboxes[i].values["timer"] = std::to_string(minutes);
    }
}

}  // namespace

Imported ReadFetchmailrc(std::string_view text) { return Reader(FetchmailWordsOf(text)).Read(); }

}  // namespace tarvex::host
