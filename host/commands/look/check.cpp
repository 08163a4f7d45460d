// `tarvex check`: tries the servers of profiles, step by step.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/advice/advice.h"
#include "host/commands/arguments/profile_arguments.h"
#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/receivers/notes.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/json.h"
#include "host/terminal/table.h"
#include "host/terminal/wording.h"
#include "host/tree/account_text.h"
#include "host/tree/clear_login.h"
#include "host/tree/names.h"
#include "host/tree/readiness.h"
#include "host/tree/remarks.h"
#include "host/tree/tree_root.h"
#include "host/tree/tree_rules.h"
#include "host/view/check_text.h"
#include "host/ways/server_way.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kStepWidth = 17;
constexpr std::size_t kTextWidth = 100;

struct PopAnswer {
    CMailboxListing listing;
    bool good = false;
};
struct SmtpAnswer {
    CSmtpTrial trial;
    bool good = false;
    std::string without_login;  // why and what to do, when one is wanted
};

PopAnswer AskPop(const CPopProfile& profile) {
    PopAnswer answer;
    answer.good = LookIntoMailbox(profile, answer.listing);
    return answer;
}

SmtpAnswer AskSmtp(const CPopProfile& profile, const CPopProfileSetting& setting) {
    SmtpAnswer answer;
    answer.good = TryRelay(profile, RecipientsOf(profile), answer.trial);
    answer.without_login = WhyWithoutLogin(answer.trial, setting);
    return answer;
}

void Print(const std::string& text) { std::cout << text << std::flush; }

// Step by step, while it goes on. True when the server can be used.
bool PrintPop(const CPopProfile& profile, const Tried& tried) {
    CMailboxListing listing;
    StepTeller teller([&](auto steps) { return TextOfPop(steps, listing, tried); }, Print);
    const bool is_good = LookIntoMailbox(profile, listing, teller.Watch());
    teller.Tell(listing.steps);
    Print(NoteOn(listing, is_good));
    return is_good;
}

bool PrintSmtp(const CPopProfile& profile, const Tried& tried) {
    CSmtpTrial trial;
    StepTeller teller([&](auto steps) { return TextOfSmtp(steps, tried); }, Print);
    const bool is_good = TryRelay(profile, RecipientsOf(profile), trial, teller.Watch());
    teller.Tell(trial.steps);
    Print(NoteOn(trial, tried));
    return is_good;
}

int CodeOf(bool good, const std::string& why_left_out) {
    if (!why_left_out.empty()) return kCannotWrite;
    return good ? kDone : kUnavailable;
}

// Who is asked what domains publish.
struct DnsChoice {
    bool none = false;
    DnsSettings settings;
};

// Asks about each domain once.
class Receivers {
public:
    explicit Receivers(DnsChoice choice) : choice_(std::move(choice)) {}

    // Null when nothing is asked.
    const Published* Of(const CPopProfile& profile) {
        const std::string domain = choice_.none ? "" : DomainOf(profile.setting.address);
        if (domain.empty()) return nullptr;
        const auto known = known_.find(domain);
        if (known != known_.end()) return &known->second;
        return &known_.emplace(domain, LookUpPublished(domain, choice_.settings)).first->second;
    }

private:
    const DnsChoice choice_;
    std::map<std::string, Published> known_;
};

void PrintPublished(const char* what, DnsEnding ending, const std::string& found, const Published& published) {
    std::string text = found;
    if (ending == DnsEnding::NoSuchRecord) text = Tr("none");
    if (ending == DnsEnding::Failed) text = Tr("not known: {0}", published.trouble);
    std::cout << "    " << Padded(what, kStepWidth) << OneLineOfUtf8(text, kTextWidth) << '\n';
}

void PrintReceivers(const CPopProfile& profile, const Published& published, const std::string& name) {
    std::cout << "  " << Tr("Receivers, {0}", published.domain) << '\n';
    for (const std::string& record : published.spf.records) {
        PrintPublished("SPF", DnsEnding::Found, record, published);
    }
    if (published.spf.records.empty()) PrintPublished("SPF", published.spf.ending, "", published);
    const std::string policy = std::string(NameOf(published.dmarc.policy)) + " (" + published.dmarc.name + ')';
    PrintPublished("DMARC", published.dmarc.ending, policy, published);
    for (const std::string& note : NotesOnReceivers(profile, published, name)) {
        std::cout << Paragraph(Tr("Note: {0}.", note), 6);
    }
}

// The exit code.
int PrintCheck(const CRootPath& root, const CUser& user, const CPopProfile& profile, Receivers& receivers) {
    const CPopProfileSetting& setting = profile.setting;
    std::cout << ShownName(root, profile.path) << "  " << ShowText(setting.address) << '\n';
    const std::string why_left_out = WhyUnreadable(profile);
    if (!why_left_out.empty()) std::cout << "  " << Tr("A run leaves it out: {0}", why_left_out) << '\n';
    if (!profile.setting_loaded.whole) return kCannotWrite;  // which servers it has is not known

    const HostRules rules = RulesToShow(profile);
    std::cout << "  POP3, " << ShowServer(setting, Protocol::Pop, rules.pop_tls) << '\n' << std::flush;
    const Reader reader = ReaderOfOutput();
    const bool has_mailbox = PrintPop(profile, {setting, rules, reader});

    const UsedSettings used = SettingsInUse(profile);
    const std::string shared = ShowShared(used.owner);
    std::cout << "  SMTP, " << ShowServer(used.setting, Protocol::Smtp, used.setting.sslsmtp)
              << (shared.empty() ? "" : ", " + shared) << '\n'
              << std::flush;
    const bool has_relay = PrintSmtp(profile, {used.setting, rules, reader});
    if (!has_relay && !shared.empty()) std::cout << Paragraph(WhereAccountIsSet(profile), 6);

    const std::string name = ShownName(root, profile.path);
    if (const Published* const published = receivers.Of(profile)) PrintReceivers(profile, *published, name);
    for (const std::string& remark : RemarksOn(profile)) std::cout << Paragraph(Tr("Note: {0}.", remark), 2);
    if (const std::string clear = NoteOnClearLogin(profile, name); !clear.empty()) {
        std::cout << Paragraph(Tr("Note: {0}.", clear), 2);
    }
    const std::string off = WhySwitchedOff(user, profile);
    if (!off.empty()) std::cout << "  " << Tr("Note: the profile is {0}.", off) << '\n';
    if (profile.forward_addresses.empty()) {
        std::cout << "  " << Tr("Note: the profile has no forwarding address yet.") << '\n';
    }
    return CodeOf(has_mailbox && has_relay, why_left_out);
}

Json JsonOf(const CArray<CProbeStep>& steps, Protocol protocol, const CPopProfileSetting& setting,
            const HostRules& rules) {
    Json list = Json::array();
    for (const CProbeStep& step : steps) {
        list.push_back({{"step", ProbeStepName(step.kind)},
                        {"success", step.failure == PROBE_SUCCESS},
                        {"microseconds", step.microseconds},
                        {"text", Utf8OfServerText(step.text)},
                        {"recipient", step.recipient.empty() ? Json() : Json(Utf8FromText(step.recipient))},
                        {"advice", Matters(step) ? Json(Advice(step, protocol, setting, rules)) : Json()}});
    }
    return list;
}

Json JsonOf(const PopAnswer& pop, const CPopProfile& profile) {
    const CPopProfileSetting& setting = profile.setting;
    const HostRules rules = RulesToShow(profile);
    return {{"server", Utf8FromText(ServerOf(setting, Protocol::Pop))},
            {"port", setting.popport},
            {"tls", rules.pop_tls},
            {"clear", LogsInInClear(setting, rules.Tls())},
            {"good", pop.good},
            {"unique_ids", pop.listing.has_uidls != 0},
            {"messages", pop.listing.mails.size()},
            {"bytes", BytesIn(pop.listing)},
            {"steps", JsonOf(pop.listing.steps, Protocol::Pop, setting, rules)}};
}

Json JsonOf(const SmtpAnswer& smtp, const CPopProfile& profile, const UsedSettings& used) {
    const CPopProfileSetting& setting = used.setting;
    return {{"server", Utf8FromText(ServerOf(setting, Protocol::Smtp))},
            {"port", setting.smtpport},
            {"from", Word(used.owner)},
            {"good", smtp.good},
            {"login", smtp.trial.method.empty() ? Json() : Json(smtp.trial.method)},
            {"without_login", smtp.without_login.empty() ? Json() : Json(smtp.without_login)},
            {"steps", JsonOf(smtp.trial.steps, Protocol::Smtp, setting, RulesToShow(profile))}};
}

Json JsonOf(const CPopProfile& profile, const Published* published, const std::string& name) {
    if (!published) return nullptr;
    const Dmarc& dmarc = published->dmarc;
    const bool has_dmarc = dmarc.ending == DnsEnding::Found;
    return {{"domain", published->domain},
            {"spf", published->spf.ending == DnsEnding::Failed ? Json() : Json(published->spf.records)},
            {"dmarc", has_dmarc ? Json{{"name", dmarc.name}, {"policy", NameOf(dmarc.policy)}} : Json()},
            {"error", published->trouble.empty() ? Json() : Json(published->trouble)},
            {"notes", NotesOnReceivers(profile, *published, name)}};
}

// Adds the check to the list of JSON objects. Returns the exit code.
int AddCheck(Json& list, const CRootPath& root, const CPopProfile& profile, Receivers& receivers) {
    const CPopProfileSetting& setting = profile.setting;
    const std::string why_left_out = WhyUnreadable(profile);
    Json& check = list.emplace_back(Json{{"path", ShownName(root, profile.path)},
                                         {"address", Utf8FromText(setting.address)},
                                         {"error", why_left_out.empty() ? Json() : Json(why_left_out)},
                                         {"remarks", RemarksOn(profile)},
                                         {"pop3", nullptr},
                                         {"smtp", nullptr},
                                         {"receivers", nullptr}});
    if (!profile.setting_loaded.whole) return kCannotWrite;
    const PopAnswer pop = AskPop(profile);
    const UsedSettings used = SettingsInUse(profile);
    const SmtpAnswer smtp = AskSmtp(profile, used.setting);
    check["pop3"] = JsonOf(pop, profile);
    check["smtp"] = JsonOf(smtp, profile, used);
    check["receivers"] = JsonOf(profile, receivers.Of(profile), ShownName(root, profile.path));
    return CodeOf(pop.good && smtp.good, why_left_out);
}

int Check(const Context& context, const std::vector<std::string>& names, bool as_json, const DnsChoice& dns) {
    CRootPath root;
    OpenTree(root, RootDirectory(context.root_option));
    const std::vector<NamedProfile> chosen = ChosenProfiles(root, names);
    int exit_code = names.empty() ? NoteWhatIsNotListed(root) : kDone;
    if (chosen.empty() && exit_code == kDone) {
        throw CommandError(kNotFound, Tr("there is no profile to check; add one with `tarvex profile add`"));
    }
    Json list = Json::array();
    Receivers receivers(dns);
    for (const NamedProfile& named : chosen) {
        const int one = as_json ? AddCheck(list, root, *named.profile, receivers)
                                : PrintCheck(root, *named.user, *named.profile, receivers);
        exit_code = std::max(exit_code, one);
    }
    if (as_json) PrintJson(list);
    return exit_code;
}

}  // namespace

int CheckProfile(const Context& context, const std::string& profile, const std::string& dns_server) {
    DnsChoice dns;
    dns.settings.server = dns_server;
    return Check(context, {profile}, false, dns);
}

void AddCheckCommand(CLI::App& app, Context& context) {
    const auto dns = std::make_shared<DnsChoice>();
    CLI::App& command =
        AddReadOnlyCommand(app, context, "check",
                           Tr("Log in to the POP3 and SMTP servers of profiles, step by step, up to the "
                              "addresses; nothing is fetched or sent. "
                              "Then ask the DNS what receivers will think of the mail."),
                           [dns](const Context& given, const std::vector<std::string>& names, bool as_json) {
                               return Check(given, names, as_json, *dns);
                           });
    command.add_flag("--no-dns", dns->none, Tr("Ask the DNS nothing about SPF and DMARC"));
    command
        .add_option("--dns", dns->settings.server,
                    Tr("The DNS server to ask, ADDRESS or ADDRESS:PORT, instead of the system's"))
        ->type_name("SERVER");
}

}  // namespace tarvex::host
