// Makes edits of what was read.

#include "host/import/import_plan.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "host/import/lines.h"
#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/settings/keys.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"
#include "host/tree/clear_login.h"
#include "host/tree/names.h"

namespace tarvex::host {
namespace {

constexpr const char* kNewUser = "imported";
constexpr const char* kPortOfPop3WithTls = "995";

// An option helps.
CommandError Refused(int line, const std::string& why) { return {kBadUsage, Tr("line {0}: {1}", line, why)}; }

// me@example.org of me at pop.example.org.
std::string GuessedAddress(const ImportedMailbox& mailbox) {
    const std::string& login = mailbox.values.at("popuser");
    if (login.find('@') != std::string::npos) return login;
    std::string domain = mailbox.values.at("popserver");
    for (const std::string_view start : {"pop.", "pop3.", "mail.", "imap."}) {
        if (!domain.starts_with(start) || domain.find('.', start.size()) == std::string::npos) continue;
        domain.erase(0, start.size());
        break;
    }
    return login + '@' + domain;
}

template <class Record>
void Check(const std::map<std::string, std::string>& values, int line, Record& record) {
    for (const auto& [name, value] : values) {
        try {
            SetValue(record, KeyNamed<Record>(name), value);
        } catch (const CommandError& error) {
            throw CommandError(error.ExitCode(), Tr("line {0}: {1}", line, error.what()));
        }
    }
}

class Planner {
public:
    Planner(const CRootPath& root, Imported imported, const ImportChoices& choices)
        : root_(root), choices_(choices), mailboxes_(std::move(imported.mailboxes)) {
        plan_.notes = std::move(imported.notes);
    }

    ImportPlan Plan() {
        if (mailboxes_.empty()) throw CommandError(kBadData, Tr("there is nothing that can be imported") + FirstNote());
        if (mailboxes_.size() > 1 && !choices_.address.empty()) {
            throw CommandError(kBadUsage,
                               Tr("--address is for a file with one mailbox; this one has {0}", mailboxes_.size()));
        }
        const std::string user = User();
        for (ImportedMailbox& mailbox : mailboxes_) Add(user, std::move(mailbox));
        std::ranges::stable_sort(plan_.notes, {}, &ImportNote::line);
        return std::move(plan_);
    }

private:
    std::string FirstNote() const {
        if (plan_.notes.empty()) return {};
        return " (" + Tr("line {0}: {1}", plan_.notes.front().line, plan_.notes.front().text) + ')';
    }

    // One that does not exist yet is made.
    std::string User() {
        if (!choices_.user.empty()) {
            try {
                FindUser(root_, choices_.user);
            } catch (const CommandError& error) {
                if (error.ExitCode() != kNotFound) throw;
                plan_.new_user = choices_.user;
            }
            return choices_.user;
        }
        if (root_.users.size() > 1) throw CommandError(kBadUsage, Tr("--user says which user's the profiles become"));
        if (root_.users.size() == 1) return ShownName(root_, root_.users.front()->path);
        return plan_.new_user = kNewUser;
    }

    void Add(const std::string& user, ImportedMailbox mailbox) {
        for (const char* const key : {"popserver", "popuser"}) {
            if (mailbox.values[key].empty()) throw BadLine(mailbox.line, Tr("the mailbox has no {0}", key));
        }
        DropWhatIsNotAllowed(mailbox);
        PlannedProfile planned{mailbox, EditRequest(EditKind::Profile, EditVerb::Add, user), {}, {}};
        EditRequest& request = planned.profile;
        request.again = choices_.again;
        request.values = choices_.values;
        request.values.insert(mailbox.values.begin(), mailbox.values.end());
        request.values["address"] = choices_.address.empty() ? GuessedAddress(mailbox) : choices_.address;
        request.secrets = choices_.secrets;
        request.secrets.insert(mailbox.secrets.begin(), mailbox.secrets.end());
        SettleRules(mailbox, request);
        Check(request.values, mailbox.line, planned.setting);
        planned.forwards = Forwards(mailbox);
        if (!choices_.again) RefuseSecond(planned);
        NoteWhatIsMissing(planned);
        plan_.profiles.push_back(std::move(planned));
    }

    // Such as a time that is longer than ours may be. Without servers and logins there is no profile.
    void DropWhatIsNotAllowed(ImportedMailbox& mailbox) {
        std::erase_if(mailbox.values, [&](const auto& value) {
            const auto& [name, word] = value;
            CPopProfileSetting setting;
            try {
                SetValue(setting, KeyNamed<CPopProfileSetting>(name), word);
                return false;
            } catch (const CommandError&) {
                if (name.starts_with("pop") || name == "smtpserver") return false;  // is refused later, with its reason
                plan_.notes.push_back({mailbox.line, Tr("{0}: the value is not allowed here", name)});
                return true;
            }
        });
    }

    void SettleRules(const ImportedMailbox& mailbox, EditRequest& request) {
        CPopProfileSetting setting;
        setting.popserver = mailbox.values.at("popserver");
        request.rules = mailbox.rules;
        const bool takes_any = mailbox.tls_if_offered && LogsInInClear(setting, PopTls::Off);
        if (takes_any && !choices_.rules.contains("pop_tls") && !choices_.plain) {
            request.rules["pop_tls"] = "starttls";
            plan_.notes.push_back(
                {mailbox.line, Tr("TLS where the server offers it: here it must (pop_tls starttls)")});
        }
        if (request.rules["pop_tls"] == "off") request.rules.erase("pop_tls");  // as without the key
        for (const auto& rule : choices_.rules) request.rules.insert(rule);
        std::erase_if(request.rules, [](const auto& rule) { return rule.second.empty(); });
        if (!request.rules.empty() && !HasRules(root_.path)) throw NoRules();
        HostRules rules = RulesOf(root_.path).value_or(HostRules());
        Check(request.rules, mailbox.line, rules);
        if (!choices_.plain && LogsInInClear(setting, rules.Tls())) {
            throw Refused(mailbox.line, Tr("the POP3 password would go to {0} in clear; give --pop_tls tls or "
                                           "--pop_tls starttls, or --plain if that is what you want",
                                           ShowUtf8Text(setting.popserver)));
        }
        if (rules.Tls() == PopTls::FromTheFirstByte) request.values.emplace("popport", kPortOfPop3WithTls);
    }

    std::vector<std::string> Forwards(const ImportedMailbox& mailbox) const {
        const std::vector<std::string>& forwards = choices_.forwards.empty() ? mailbox.forwards : choices_.forwards;
        if (forwards.empty()) {
            throw Refused(mailbox.line,
                          Tr("the file does not say to which address this mail goes; give --forward ADDRESS"));
        }
        CForwardAddressSetting setting;
        for (const std::string& address : forwards) Check({{"address", address}}, mailbox.line, setting);
        return forwards;
    }

    void RefuseSecond(const PlannedProfile& planned) const {
        const auto refuse = [&](const std::string& other) {
            throw Refused(
                planned.mailbox.line,
                Tr("{0} fetches from the same mailbox; --again adds it all the same. Nothing was imported", other));
        };
        for (const NamedProfile& named : AllProfiles(root_)) {
            if (FetchTheSame(named.profile->setting, planned.setting)) refuse(ShownName(root_, named.profile->path));
        }
        for (const PlannedProfile& other : plan_.profiles) {
            if (FetchTheSame(other.setting, planned.setting)) refuse(Tr("line {0}", other.mailbox.line));
        }
    }

    void NoteWhatIsMissing(const PlannedProfile& planned) {
        const bool has_token = planned.profile.rules.contains("pop_login");
        if (has_token || planned.profile.secrets.contains("poppassword")) return;
        plan_.notes.push_back({planned.mailbox.line, Tr("no password: `tarvex profile set --password` stores one")});
    }

    const CRootPath& root_;
    const ImportChoices& choices_;
    std::vector<ImportedMailbox> mailboxes_;
    ImportPlan plan_;
};

std::string ShownValues(const std::map<std::string, std::string>& values) {
    std::string lines;
    for (const auto& [key, value] : values) lines += "  " + key + ": " + ShowUtf8Text(value) + '\n';
    return lines;
}

}  // namespace

std::string ImportPlan::Shown() const {
    std::string text;
    if (!new_user.empty()) text += Tr("New user {0}", ShowUtf8Text(new_user)) + '\n';
    for (const PlannedProfile& planned : profiles) {
        text += Tr("New profile of line {0}", planned.mailbox.line) + '\n' + ShownValues(planned.profile.values) +
                ShownValues(planned.profile.rules);
        for (const auto& [key, secret] : planned.profile.secrets) text += "  " + key + ": " + Tr("(stored)") + '\n';
        for (const std::string& address : planned.forwards)
            text += "  " + Tr("forwards to {0}", ShowUtf8Text(address)) + '\n';
    }
    if (!notes.empty()) text += Tr("Not taken over as it is:") + '\n';
    for (const ImportNote& note : notes) text += "  " + Tr("line {0}: {1}", note.line, note.text) + '\n';
    return text;
}

ImportPlan PlanImport(const CRootPath& root, Imported imported, const ImportChoices& choices) {
    return Planner(root, std::move(imported), choices).Plan();
}

}  // namespace tarvex::host
