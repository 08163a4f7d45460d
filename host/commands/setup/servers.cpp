// Finds the servers for `tarvex setup`, and logs in.

#include "host/commands/setup/servers.h"

#include <algorithm>
#include <future>
#include <iostream>
#include <optional>
#include <utility>

#include "host/advice/advice.h"
#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/settings/shared_account.h"
#include "host/setup/discovery.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/terminal/wording.h"
#include "host/tree/clear_login.h"
#include "host/ways/server_way.h"

namespace tarvex::host {
namespace {

constexpr const char* kTlsWords[] = {"off", "tls", "starttls"};  // of pop_tls and, but for the first, of sslsmtp
constexpr std::size_t kAnswerWidth = 200;

// How one of the two servers is written down.
struct Place {
    CProtocol protocol;
    const char* title;
    const char* name_key;
    const char* port_key;
    const char* name_option;
    int usual_port;
};

constexpr Place kMailbox{CProtocol::Pop3, "POP3", "popserver", "popport", "--popserver", 995};
constexpr Place kRelay{CProtocol::Smtp, "SMTP", "smtpserver", "smtpport", "--smtpserver", 465};

std::string DomainOf(const std::string& address) { return address.substr(address.rfind('@') + 1); }

class Servers {
public:
    Servers(SetupPlan& plan, const SetupOptions& options, const Questions& questions)
        : plan_(plan), options_(options), questions_(questions), domain_(DomainOf(plan.Address())) {}

    void Settle() {
        known_ = KnownProviderOf(domain_, KnownServersFile());
        std::cout << Tr("Looking for the servers of {0}.", ShowUtf8Text(domain_)) << '\n' << std::flush;
        std::future<Discovery> relay;
        if (!has_shared_relay_) relay = std::async(std::launch::async, [this] { return Search(kRelay); });
        Discovery mailbox = Search(kMailbox);
        std::optional<Discovery> way;
        if (relay.valid()) way = relay.get();
        Take(kMailbox, std::move(mailbox));
        if (way) Take(kRelay, *std::move(way));
        if (WantsToken()) return PrepareToken();
        LogInWithPassword();
        if (InUse().smtpauth != 0) LogInAtRelay();
    }

private:
    // ---- where they are

    // Which server the command line names, if any. One in clear is taken as it is.
    std::optional<MailServer> Given(const Place& place) const {
        const auto& values = plan_.profile.values;
        const auto name = values.find(place.name_key);
        if (name == values.end()) return std::nullopt;
        const std::unique_ptr<CPopProfile> draft = DraftOf(plan_);
        const CPopProfileSetting& setting = draft->setting;
        const bool is_smtp = place.protocol == CProtocol::Smtp;
        MailServer server{name->second, place.usual_port, PopTls::FromTheFirstByte};
        if (values.contains(place.port_key)) server.port = is_smtp ? setting.smtpport : setting.popport;
        if (!is_smtp && plan_.profile.rules.contains("pop_tls")) server.tls = RulesFor(plan_).Tls();
        if (!is_smtp && LogsInInClear(setting, server.tls)) {
            throw CommandError(kBadUsage,
                               Tr("the POP3 password would go to {0} in clear; `tarvex profile add --plain` does that",
                                  ShowUtf8Text(server.name)));
        }
        if (is_smtp && values.contains("sslsmtp")) server.tls = static_cast<PopTls>(setting.sslsmtp);
        constexpr int kSubmission = 587;
        if (is_smtp && !values.contains("sslsmtp") && server.port == kSubmission) server.tls = PopTls::Stls;
        return server;
    }

    ServerLook Look(CProtocol protocol, const MailServer& server) const {
        const CString& authority = authority_;
        // A run that logs in with a password at the relay trusts what the system trusts.
        const bool of_system = authority.empty() || (protocol == CProtocol::Smtp && !WantsToken());
        return LookAt(protocol, server, of_system ? "" : NativePath(authority).string());
    }

    Discovery Search(const Place& place) const {
        const SearchTools tools{
            [this](const std::string& name) {
                return LookUpServices(name, {std::chrono::seconds(5), options_.dns});
            },
            [this](CProtocol protocol, const MailServer& server) { return Look(protocol, server); }};
        const std::optional<MailServer> given = Given(place);
        if (!given) return FindServer(place.protocol, domain_, known_, tools);
        Discovery result;
        FoundServer found{*given, FoundBy::KnownServers, {}, false};
        if (given->tls != PopTls::Off) found.look = tools.look(place.protocol, *given);
        if (!found.look.IsGood()) result.tried = {ShowServer(*given) + ": " + found.look.trouble};
        if (found.look.IsGood()) result.found = std::move(found);
        return result;
    }

    void Take(const Place& place, Discovery discovery) {
        if (discovery.found) {
            Confirm(place, *discovery.found);
            return Keep(place, *std::move(discovery.found));
        }
        if (!discovery.not_offered.empty()) {
            const std::string remark = known_ && !known_->remark.empty() ? " (" + known_->remark + ')' : "";
            throw CommandError(kUnavailable,
                               Tr("{0} says that there is no {1}{2}; if there is, name the server with {3}",
                                  discovery.not_offered, place.title, remark, place.name_option));
        }
        std::string tried;
        for (const std::string& line : discovery.tried) tried += (tried.empty() ? "" : "; ") + line;
        const std::string none = Tr("No {0} server can be used. Tried: {1}", place.title, tried);
        if (!questions_.CanAsk())
            throw CommandError(kUnavailable, Tr("{0}; name one with {1}", none, place.name_option));
        std::cout << Paragraph(none + '.', 2);
        questions_.Ask(Tr("{0} server (NAME or NAME:PORT):", place.title), place.name_option,
                       [&](const std::string& answer) { Keep(place, Typed(place, answer)); });
    }

    FoundServer Typed(const Place& place, const std::string& answer) const {
        MailServer server =
            ServerAndPort(answer).value_or(MailServer{answer, place.usual_port, PopTls::FromTheFirstByte});
        CPopProfileSetting allowed;
        SetValue(allowed, KeyNamed<CPopProfileSetting>("popserver"), server.name);
        ServerLook look = Look(place.protocol, server);
        if (!look.IsGood()) throw CommandError(kUnavailable, ShowServer(server) + ": " + look.trouble);
        return {server, FoundBy::KnownServers, std::move(look), false};
    }

    // RFC 6186 section 6: whoever can write answers of the DNS must not choose who gets the password.
    void Confirm(const Place& place, const FoundServer& found) const {
        if (!found.is_foreign || options_.other_domain) return;
        const std::string what = Tr("DNS says that {0} for {1} is at {2}, which is of another domain.", place.title,
                                    ShowUtf8Text(domain_), ShowServer(found.server));
        if (!questions_.CanAsk()) {
            throw CommandError(kNotAllowed,
                               Tr("{0} --accept-other-domain takes it, {1} names another", what, place.name_option));
        }
        std::cout << Paragraph(what, 0);
        if (questions_.Yes(Tr("Is that your provider's server?"), "--accept-other-domain")) return;
        throw CommandError(kNotAllowed, Tr("name the {0} server with {1}", place.title, place.name_option));
    }

    void Keep(const Place& place, FoundServer found) {
        auto& values = plan_.profile.values;
        const bool is_smtp = place.protocol == CProtocol::Smtp;
        const bool in_clear = found.server.tls == PopTls::Off;
        const char* const tls = kTlsWords[static_cast<std::size_t>(found.server.tls)];
        values[place.name_key] = found.server.name;
        values[place.port_key] = std::to_string(found.server.port);
        if (is_smtp) values["sslsmtp"] = in_clear ? "plain" : tls;
        if (!is_smtp) plan_.profile.rules["pop_tls"] = tls;
        if (is_smtp)
            values.emplace(
                "smtpauth",
                found.look.takes_passwords || found.look.takes_xoauth2 || found.look.takes_oauthbearer ? "on" : "off");
        const std::string server = ShowServer(found.server);
        std::cout << "  " << place.title << "  "
                  << (in_clear ? Tr("{0}, without TLS", server)
                               : Tr("{0}, {1}, certificate verified", server, found.look.facts.version))
                  << '\n'
                  << std::flush;
        (is_smtp ? relay_ : mailbox_) = std::move(found.look);
    }

    // ---- the login

    bool WantsToken() const {
        if (!plan_.profile.secrets.empty()) return false;
        if (!options_.provider.empty() || plan_.profile.rules.contains("token_command")) return true;
        return (known_ && known_->login == LoginKind::Token) || mailbox_.TakesTokensOnly();
    }

    // The user names that may be meant, the likelier first (RFC 6186 section 4).
    std::vector<std::string> UserNames() const {
        const std::string& address = plan_.profile.values.at("address");
        const std::string name = address.substr(0, address.rfind('@'));
        if (const auto given = plan_.profile.values.find("popuser"); given != plan_.profile.values.end())
            return {given->second};
        if (known_ && known_->user == LoginUser::Address) return {address};
        if (known_ && known_->user == LoginUser::NameAlone) return {name};
        return {address, name};
    }

    void PrepareToken() {
        auto& rules = plan_.profile.rules;
        const auto form = [](const ServerLook& look) {
            return look.takes_oauthbearer && !look.takes_xoauth2 ? "oauthbearer" : "xoauth2";
        };
        rules.emplace("pop_login", form(mailbox_));
        if (!has_shared_relay_ && InUse().smtpauth != 0) rules.emplace("smtp_login", form(relay_));
        plan_.profile.values.emplace("popuser", UserNames().front());
        if (rules.contains("token_command")) return LookInside();
        RequireProvider(plan_.directory, options_.provider);
        plan_.logs_in_at_provider = true;
        plan_.provider = options_.provider;
        std::cout << "  " << Tr("Login with a token: you are sent to the provider when the settings are written.")
                  << '\n';
    }

    void LogInWithPassword() {
        if (known_ && known_->login == LoginKind::AppPassword) {
            std::cout << Paragraph(Tr("The provider wants an app password here, one for programs. {0}", known_->remark),
                                   2);
        } else if (known_ && !known_->remark.empty()) {
            std::cout << Paragraph(known_->remark + '.', 2);
        }
        auto& secrets = plan_.profile.secrets;
        if (secrets.contains("poppassword")) return LookInside();
        questions_.AskSecret(Tr("Password:"), "--password-file", [&](const std::string& password) {
            if (password.empty()) throw CommandError(kBadUsage, Tr("The password cannot be empty."));
            secrets["poppassword"] = password;
            LookInside();
        });
    }

    // Logs in at the mailbox under one name after the other.
    void LookInside() {
        CommandError refused(kUnavailable, "");
        const std::vector<std::string> names = UserNames();
        for (const std::string& name : names) {
            plan_.profile.values["popuser"] = name;
            CMailboxListing listing;
            const std::unique_ptr<CPopProfile> draft = Draft();
            const bool good = LookIntoMailbox(*draft, RulesFor(plan_), listing);
            if (good) {
                plan_.mailbox = MailboxOf(listing);
                std::cout << "  "
                          << TrN("Logged in as {1}: {0} message.", "Logged in as {1}: {0} messages.",
                                 static_cast<std::int64_t>(listing.mails.size()), ShowUtf8Text(name))
                          << '\n';
                return;
            }
            refused = WhyFailed(listing.steps, Protocol::Pop, draft->setting);
            if (refused.ExitCode() != kNotAllowed) break;
        }
        if (names.size() > 1) plan_.profile.values.erase("popuser");
        throw refused;
    }

    void LogInAtRelay() {
        auto& secrets = plan_.profile.secrets;
        try {
            return TryLoginAtRelay();
        } catch (const CommandError& error) {
            const bool may_ask = questions_.CanAsk() && !has_shared_relay_ && !secrets.contains("smtppassword");
            if (error.ExitCode() != kNotAllowed || !may_ask) throw;
            std::cerr << Paragraph(error.what(), 2);
        }
        questions_.AskSecret(Tr("SMTP password:"), "--smtp-password-file", [&](const std::string& password) {
            secrets["smtppassword"] = password;
            TryLoginAtRelay();
        });
    }

    void TryLoginAtRelay() {
        CSmtpTrial trial;
        const std::unique_ptr<CPopProfile> draft = Draft();
        if (!TryRelay(*draft, RulesFor(plan_), {}, trial)) throw WhyFailed(trial.steps, Protocol::Smtp, InUse());
    }

    // kNotAllowed when another login may do better.
    CommandError WhyFailed(const CArray<CProbeStep>& steps, Protocol protocol,
                           const CPopProfileSetting& setting) const {
        if (steps.empty()) return {kUnavailable, Tr("there is not enough memory")};
        const CProbeStep& step = steps.back();
        const bool refused =
            step.kind == PROBE_LOGIN && step.failure == PROBE_REFUSED && step.reason != CProbeReason::ForNow;
        return {refused ? kNotAllowed : kUnavailable,
                std::string(protocol == Protocol::Pop ? "POP3" : "SMTP") + ", " + ShowStep(step.kind) + ": " +
                    OneLine(step.text, kAnswerWidth) + ". " + Advice(step, protocol, setting, RulesFor(plan_))};
    }

    std::unique_ptr<CPopProfile> Draft() const { return DraftOf(plan_); }
    CPopProfileSetting InUse() const { return WithAccount(Draft()->setting, RulesFor(plan_)); }

    SetupPlan& plan_;
    const SetupOptions& options_;
    const Questions& questions_;
    const std::string domain_;
    const CString authority_ = RulesFor(plan_).tls_authority;
    // The tree or the user has an SMTP account for profiles that name no server.
    const bool has_shared_relay_ = !plan_.rules.smtpserver.empty() && !plan_.profile.values.contains("smtpserver");
    std::optional<KnownProvider> known_;
    ServerLook mailbox_;  // what was seen there
    ServerLook relay_;
};

}  // namespace

void SettleServers(SetupPlan& plan, const SetupOptions& options, const Questions& questions) {
    Servers(plan, options, questions).Settle();
}

}  // namespace tarvex::host
