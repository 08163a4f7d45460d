// `tarvex setup`: from a mail address to mail that is forwarded.
//
//     address   -> servers found and verified -> password -> logged in     nothing is written yet
//     where to  -> summary, which can be changed by a word                  nothing is written yet
//     written   -> checked -> a test mail to each address, "did it arrive?" -> service started
//
// Five questions: the address, the password, where to, the summary, and whether the test mail arrived.

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>

#include "host/commands/commands.h"
#include "host/commands/setup/options.h"
#include "host/commands/setup/plan.h"
#include "host/commands/setup/questions.h"
#include "host/commands/setup/servers.h"
#include "host/commands/setup/writing.h"
#include "host/language/tr.h"
#include "host/service/service_connection.h"
#include "host/service/service_starter.h"
#include "host/setup/test_mail.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;

class Setup {
public:
    Setup(const Context& context, const SetupOptions& options)
        : context_(context),
          options_(options),
          questions_(!options.yes),
          directory_(TreeToMake(context)),
          starter_(directory_) {
        plan_.directory = directory_;
    }

    int Run() {
        options_.keys.Fill(plan_.profile);  // before the tree is read: a file with a password may be the superuser's
        plan_.profile.rules = options_.host_keys.Values();
        plan_.profile.again = options_.again;
        ReadTree();
        AskAddress();
        ChooseUser();
        SettleServers(plan_, options_, questions_);
        AskForwards();
        plan_.service = WhatBecomesOfTheService();
        if (!Agree()) {
            std::cout << Tr("Nothing was written.") << '\n';
            return kDone;
        }
        const std::string name = Write(context_, plan_);
        try {
            return Finish(name);
        } catch (const CommandError& error) {
            throw CommandError(
                error.ExitCode(),
                Tr("{0}; {1} is written, and switched on: `{2} profile set {1} --status off` switches it "
                   "off",
                   error.what(), name, Tarvex()));
        }
    }

private:
    // ---- what there is

    // A tree that is not there yet, or is empty, is made when everything is known.
    void ReadTree() {
        std::error_code error;
        if (!fs::exists(NativePath(directory_), error)) return RequireNewUsersAllowed();
        if (!HasRules(directory_)) {
            for (const auto& entry : fs::directory_iterator(NativePath(directory_), error)) {
                if (entry.path().filename().string().starts_with("user")) throw NoRules();
            }
            return RequireNewUsersAllowed();
        }
        if (!context_.root_option && RootDirectory({}) != directory_) MakeTree(context_);  // has it remembered
        may_add_users_ = MayAddUsers();
        OpenTree(root_, directory_);
        plan_.rules = RulesOf(directory_).value_or(HostRules());
    }

    static bool MayAddUsers() {
        try {
            RequireNewUsersAllowed();
            return true;
        } catch (const CommandError&) {
            return false;
        }
    }

    // ---- what is asked

    void AskAddress() {
        const auto take = [this](const std::string& answer) {
            CPopProfileSetting setting;
            SetValue(setting, KeyNamed<CPopProfileSetting>("address"), answer);
            if (setting.address.empty()) throw CommandError(kBadUsage, Tr("Please type the address of the mailbox."));
            for (const NamedProfile& named : AllProfiles(root_)) {
                if (options_.again || !SameMailbox(named.profile->setting.address, answer)) continue;
                throw CommandError(kBadUsage, ShownName(root_, named.profile->path) +
                                                  " has that address already; "
                                                  "--again sets up another");
            }
            plan_.profile.values["address"] = answer;
        };
        if (!options_.address.empty()) return take(options_.address);
        questions_.Ask(Tr("Mail address:"), "ADDRESS", take);
    }

    // A tree with one user needs no question.
    void ChooseUser() {
        std::string& name = plan_.profile.name;
        const auto take = [&](const std::string& answer) {
            const CUser& user = FindUser(root_, answer);
            name = ShownName(root_, user.path);
            plan_.rules = RulesOfUser(root_.path, user.path).value_or(HostRules());
            plan_.user_is_new = false;
        };
        if (!options_.user.empty()) {
            name = options_.user;
            for (const CUser* const user : AllUsers(root_)) {
                if (user->setting.loginname == name) return take(name);
            }
        } else if (root_.users.size() == 1) {
            return take(ShownName(root_, root_.users.front()->path));
        } else if (!root_.users.empty()) {
            std::string names;
            for (const CUser* const user : AllUsers(root_))
                names += (names.empty() ? "" : ", ") + ShowText(user->setting.loginname);
            return questions_.Ask(Tr("Which user's is it ({0})?", names), "--user", take);
        } else {
            name = plan_.Address().substr(0, plan_.Address().find('@'));
        }
        if (!may_add_users_) RequireNewUsersAllowed();
    }

    void AskForwards() {
        if (!options_.forwards.empty()) {
            for (const std::string& given : options_.forwards) {
                for (const std::string& one : ForwardsIn(plan_, given)) plan_.forwards.push_back(one);
            }
        } else {
            questions_.Ask(Tr("Forward to (one address, or several):"), "--to",
                           [this](const std::string& answer) { plan_.forwards = ForwardsIn(plan_, answer); });
        }
        if (options_.all_mail) plan_.all_mail = true;
        if (!options_.text.empty()) Change(plan_, options_.text == "whole" ? "whole" : "text " + options_.text);
        for (const std::string& term : options_.terms) Change(plan_, term);
        if (!questions_.CanAsk() || options_.new_mail_only) RequireIds(plan_);
    }

    std::string WhatBecomesOfTheService() {
        const std::string first = options_.no_test_mail ? Tr("a check") : Tr("a check and a test mail");
        if (options_.no_service) return Tr("{0}; no service is started", first);
        std::error_code error;
        serves_already_ = fs::exists(NativePath(directory_), error) && ServiceConnection::Try(directory_);
        if (serves_already_) return Tr("{0}; the service that runs forwards this as well", first);
        return starter_.Unit().empty() ? Tr("{0}; starting the service is left to you", first)
                                       : Tr("{0}; the service {1} is enabled and started", first, starter_.Unit());
    }

    // False when the person wants nothing written.
    bool Agree() {
        std::cout << Summary(plan_);
        if (options_.yes) return true;
        bool agreed = true;
        for (bool asks = true; asks;) {
            if (questions_.CanAsk()) std::cout << Paragraph(Tr(kHowToChange), 0);
            questions_.Ask(Tr("Write this?"), "--yes", [&](const std::string& answer) {
                const std::string word = Lower(answer);
                agreed = word != "n" && word != "no";
                asks = agreed && !word.empty() && word != "y" && word != "yes";
                if (!asks && agreed) RequireIds(plan_);
                if (asks) Change(plan_, answer);
            });
            if (asks) std::cout << Summary(plan_);
        }
        return agreed;
    }

    // ---- what comes after it

    int Finish(const std::string& name) {
        std::cout << '\n' << std::flush;
        Context of_tree;
        of_tree.root_option = directory_;
        if (const int code = CheckProfile(of_tree, name, options_.dns); code != kDone)
            return StaySwitchedOff(name, code, Tr("The check failed."));
        if (const int code = SendTestMails(name); code != kDone) return code;
        return StartService(name);
    }

    int StaySwitchedOff(const std::string& name, int code, const std::string& why) {
        SwitchOff(directory_, name);
        std::cout << Paragraph(Tr("{0} Nothing is forwarded until you have mended that and say `{1} profile set {2} "
                                  "--status on`.",
                                  why, Tarvex(), name),
                               0);
        return code;
    }

    int SendTestMails(const std::string& name) {
        if (options_.no_test_mail) return kDone;
        CRootPath root;
        OpenTree(root, directory_);
        CPopProfile& profile = *FindProfile(root, name).profile;
        const HostRules rules = RulesOf(profile).value_or(HostRules());
        std::cout << '\n';
        for (const auto& forward : profile.forward_addresses) {
            const std::string address = ShowText(forward->setting.address);
            if (const std::string trouble = SendTestMail(profile, *forward, rules); !trouble.empty()) {
                return StaySwitchedOff(name, kUnavailable,
                                       Tr("The test mail to {0} could not be sent: {1}.", address, trouble));
            }
            std::cout << Tr("Sent a test mail to {0}.", address) << '\n';
        }
        if (!questions_.CanAsk()) return kDone;
        for (const auto& forward : profile.forward_addresses) {
            const std::string address = ShowText(forward->setting.address);
            if (questions_.Yes(Tr("Did it arrive at {0}? That may take a minute.", address), "--yes")) continue;
            return StaySwitchedOff(
                name, kMissing, Tr("Look into the folder for spam of {0}, and whether the address is right.", address));
        }
        return kDone;
    }

    std::string Tarvex() const {
        return context_.root_option ? "tarvex --root " + ShowPath(directory_) : std::string("tarvex");
    }

    int StartService(const std::string& name) {
        const std::string& unit = starter_.Unit();
        const bool is_wanted = !options_.no_service && !serves_already_;
        const bool runs = is_wanted && !unit.empty() && starter_.Start();
        std::cout << Tr("{0} is set up; `{1} status` says how it fares.", name, Tarvex()) << '\n';
        if (runs) std::cout << Tr("The service {0} is enabled and runs.", unit) << '\n';
        if (!is_wanted || runs) return kDone;
        std::cout << Tr("No service runs yet. Next:") << "\n  " << HowToKeepRunning(Tarvex()) << '\n';
        return unit.empty() ? kDone : kUnavailable;
    }

    const Context& context_;
    const SetupOptions& options_;
    const Questions questions_;
    const std::string directory_;
    ServiceStarter starter_;
    CRootPath root_;
    SetupPlan plan_;
    bool may_add_users_ = true;
    bool serves_already_ = false;
};

constexpr const char* kKeysOfSetup[] = {"pop_tls", "tls_authority", "token_command"};

std::vector<std::string_view> OtherHostKeys() {
    std::vector<std::string_view> others;
    for (const Key<HostRules>& key : Keys<HostRules>()) {
        if (std::ranges::find(kKeysOfSetup, std::string_view(key.name)) == std::end(kKeysOfSetup))
            others.emplace_back(key.name);
    }
    return others;
}

void AddOptions(CLI::App& setup, SetupOptions& options) {
    setup.add_option("ADDRESS", options.address, Tr("The mail address whose mail is to be forwarded"))
        ->option_text(" ");
    setup.add_option("--to", options.forwards, Tr("Where to send it; may be given several times"))
        ->type_name("ADDRESS")
        ->allow_extra_args(false);
    auto* const new_only = setup.add_flag("--new-mail-only", options.new_mail_only,
                                          Tr("Only what comes from now on, not what is in the mailbox: the usual way"));
    setup.add_flag("--all-mail", options.all_mail, Tr("Also what is in the mailbox now"))->excludes(new_only);
    setup
        .add_option("--when", options.terms,
                    Tr("Days and times, as for `tarvex schedule add`; may be given several times; without it always"))
        ->type_name("TERM")
        ->allow_extra_args(false);
    setup
        .add_option("--text", options.text,
                    Tr("Send a text of at most so many bytes, or unlimited, in the mail's place"))
        ->type_name("BYTES");
    setup.add_option("--user", options.user, Tr("Whose profile it is; a name that is not there yet is added"))
        ->type_name("NAME");
    setup.add_option("--provider", options.provider, Tr("Log in with tokens of this provider (`tarvex login`)"))
        ->type_name("NAME");
    setup.add_flag("--accept-other-domain", options.other_domain,
                   Tr("Take a server of another domain, if DNS names one, without asking"));
    setup.add_option("--dns", options.dns, Tr("Ask this DNS server instead of the system's"))->type_name("SERVER");
    setup.add_flag("--again", options.again, Tr("Also when another profile has the address already"));
    setup.add_flag("--no-test-mail", options.no_test_mail, Tr("Send no test mail"));
    setup.add_flag("--no-service", options.no_service, Tr("Start no service"));
    setup.add_flag("--yes,-y", options.yes,
                   Tr("Ask nothing: what is missing is an error, and the plan is carried out"));
    options.host_keys.AddTo<HostRules>(setup, OtherHostKeys());
    options.keys.AddTo<CPopProfileSetting>(setup, {"address", "status", "version", "sslpop"});
}

}  // namespace

void AddSetupCommand(CLI::App& app, Context& context) {
    CLI::App* const setup = app.add_subcommand(
        "setup", Tr("Set up a mailbox: find its servers, ask where to forward to, check, send a test mail."));
    const auto options = std::make_shared<SetupOptions>();
    AddOptions(*setup, *options);
    setup->footer(
        Tr("It makes the tree where there is none, and else adds one profile more. Every question has an option "
           "that answers it."));
    setup->callback(
        [&context, options] { context.command = [&context, options] { return Setup(context, *options).Run(); }; });
}

}  // namespace tarvex::host
