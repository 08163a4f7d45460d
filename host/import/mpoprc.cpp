// Reads an mpoprc: a command and its argument on each line (mpop(1), "USAGE"). `defaults` and `account NAME` begin a
// block; an account starts with the defaults, and with what the accounts behind its colon say.

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/import/imported.h"
#include "host/import/lines.h"
#include "host/language/tr.h"

namespace tarvex::host {
namespace {

struct Argument {
    int line;
    std::string text;
};

struct Account {
    int line = 0;
    bool is_alias = false;                     // another account under a second name
    std::map<std::string, Argument> commands;  // the last of each kind
};

constexpr std::array<std::string_view, 13> kTaken = {
    "host", "port",         "timeout",        "auth", "user",     "password",     "passwordeval",
    "tls",  "tls_starttls", "tls_trust_file", "keep", "only_new", "tls_certcheck"};
constexpr std::array<std::string_view, 21> kNotTaken = {"eval",
                                                        "source_ip",
                                                        "proxy_host",
                                                        "proxy_port",
                                                        "socket",
                                                        "pipelining",
                                                        "ntlmdomain",
                                                        "tls_crl_file",
                                                        "tls_fingerprint",
                                                        "tls_key_file",
                                                        "tls_cert_file",
                                                        "tls_priorities",
                                                        "delivery",
                                                        "tls_host_override",
                                                        "tls_min_dh_prime_bits",
                                                        "uidls_file",
                                                        "killsize",
                                                        "skipsize",
                                                        "filter",
                                                        "received_header",
                                                        "tls_nocertcheck"};

bool IsOneOf(std::string_view word, auto& words) { return std::ranges::find(words, word) != std::end(words); }

class Reader {
public:
    Imported Read(std::string_view text) {
        Lines lines(text);
        for (std::string_view line; lines.Next(line);) {
            const std::string_view content = Trimmed(line);
            if (!content.empty() && content.front() != '#') Take(lines.Number(), content);
        }
        for (const std::string& name : names_) Emit(accounts_[name]);
        if (imported_.mailboxes.empty()) throw BadLine(1, Tr("there is no account with a host in the file"));
        std::ranges::stable_sort(imported_.notes, {}, &ImportNote::line);
        return std::move(imported_);
    }

private:
    void Note(int line, const std::string& text) { imported_.notes.push_back({line, text}); }

    void Take(int line, std::string_view content) {
        const std::size_t end = std::min(content.find_first_of(" \t"), content.size());
        const std::string command(content.substr(0, end));
        const std::string argument = ArgumentOf(line, Trimmed(content.substr(end)));
        if (command == "defaults") {
            current_ = &defaults_;
        } else if (command == "account") {
            BeginAccount(line, argument);
        } else if (IsOneOf(command, kTaken)) {
            if (!current_) throw BadLine(line, Tr("{0} stands before the first account", command));
            current_->commands.insert_or_assign(command, Argument{line, argument});
            current_->is_alias = false;
        } else {
            Note(line, IsOneOf(command, kNotTaken) ? command : Tr("a command that is not known"));
        }
    }

    static std::string ArgumentOf(int line, std::string_view text) {
        if (!text.starts_with('"')) return std::string(text);
        if (text.size() < 2 || !text.ends_with('"')) throw BadLine(line, Tr("a quote is not closed"));
        return std::string(text.substr(1, text.size() - 2));
    }

    // "name" or "name : other,another"
    void BeginAccount(int line, std::string_view argument) {
        const std::size_t colon = std::min(argument.find(':'), argument.size());
        const std::string name(Trimmed(argument.substr(0, colon)));
        if (name.empty()) throw BadLine(line, Tr("an account has no name"));
        if (accounts_.contains(name)) throw BadLine(line, Tr("there is an account of this name already"));
        Account account = defaults_;
        account.line = line;
        std::string_view others = argument.substr(std::min(colon + 1, argument.size()));
        while (!others.empty()) {
            const std::size_t comma = std::min(others.find(','), others.size());
            const auto other = accounts_.find(std::string(Trimmed(others.substr(0, comma))));
            if (other == accounts_.end()) throw BadLine(line, Tr("the account behind the colon is not known"));
            for (const auto& [command, value] : other->second.commands) {
                account.commands.insert_or_assign(command, value);
            }
            account.is_alias = true;
            others.remove_prefix(std::min(comma + 1, others.size()));
        }
        names_.push_back(name);
        current_ = &(accounts_[name] = std::move(account));
    }

    static const Argument* Find(const Account& account, const char* command) {
        const auto found = account.commands.find(command);
        return found == account.commands.end() ? nullptr : &found->second;
    }

    // A command without an argument is on.
    static bool IsOn(const Account& account, const char* command, bool otherwise) {
        const Argument* const found = Find(account, command);
        if (!found) return otherwise;
        if (found->text.empty() || found->text == "on") return true;
        if (found->text == "off") return false;
        throw BadLine(found->line, Tr("{0} is neither on nor off", command));
    }

    void Emit(const Account& account) {
        const Argument* const host = Find(account, "host");
        if (account.is_alias || !host) return;
        ImportedMailbox mailbox;
        mailbox.line = account.line;
        mailbox.values["popserver"] = host->text;
        for (const auto& [command, key] : {std::pair("port", "popport"), {"timeout", "timeout"}, {"user", "popuser"}}) {
            const Argument* const found = Find(account, command);
            if (found && !found->text.empty() && found->text != "off") mailbox.values[key] = found->text;
        }
        mailbox.values["deletemail"] = IsOn(account, "keep", false) ? "off" : "on";
        SetTls(account, mailbox);
        SetLogin(account, mailbox);
        imported_.mailboxes.push_back(std::move(mailbox));
    }

    void SetTls(const Account& account, ImportedMailbox& mailbox) {
        const bool is_on = IsOn(account, "tls", false);
        mailbox.rules["pop_tls"] = !is_on ? "off" : IsOn(account, "tls_starttls", true) ? "starttls" : "tls";
        const Argument* const file = Find(account, "tls_trust_file");
        if (file && !file->text.empty() && file->text != "system") mailbox.rules["tls_authority"] = file->text;
        if (!IsOn(account, "tls_certcheck", true)) {
            Note(Find(account, "tls_certcheck")->line, Tr("tls_certcheck off: certificates are always checked"));
        }
    }

    // A command for a password is not run; one for a token is run by every login.
    void SetLogin(const Account& account, ImportedMailbox& mailbox) {
        const Argument* const method = Find(account, "auth");
        const Argument* const command = Find(account, "passwordeval");
        const bool is_token = method && (method->text == "xoauth2" || method->text == "oauthbearer");
        if (is_token) mailbox.rules["pop_login"] = method->text;
        if (is_token && command) mailbox.rules["token_command"] = command->text;
        if (method && method->text == "apop") mailbox.values["apop"] = "on";
        const Argument* const password = Find(account, "password");
        if (password && !is_token) mailbox.secrets["poppassword"] = password->text;
        if (command && !is_token) Note(command->line, "passwordeval");
    }

    Account defaults_;
    Account* current_ = nullptr;
    std::map<std::string, Account> accounts_;  // whose places in memory stay
    std::vector<std::string> names_;           // in the order of the file
    Imported imported_;
};

}  // namespace

Imported ReadMpoprc(std::string_view text) { return Reader().Read(text); }

}  // namespace tarvex::host
