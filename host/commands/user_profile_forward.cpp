// `tarvex user`, `profile`, `forward`: adding, listing, showing, setting and removing.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/commands/arguments/key_options.h"
#include "host/commands/arguments/many_profiles.h"
#include "host/commands/arguments/submit.h"
#include "host/commands/commands.h"
#include "host/edit/edit.h"
#include "host/held/held_work.h"
#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/settings/keys.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/prompt.h"
#include "host/terminal/password_source.h"
#include "host/terminal/wording.h"
#include "host/tree/clear_login.h"
#include "host/tree/listing.h"
#include "host/tree/names.h"
#include "host/tree/tree_root.h"
#include "host/view/mailbox_ids.h"

namespace tarvex::host {
namespace {

// What a command was given; as long-lived as the application.
struct Given {
    std::string name;   // of what the command is about
    std::string first;  // the value of an `add`: a login name, an address
    KeyOptions keys;
    KeyOptions host_keys;  // of host.def
    bool plain = false;
    ManyProfiles many;
    bool again = false;
    bool new_mail_only = false;
    bool all_mail = false;
    bool yes = false;
    bool json = false;

    Form ListForm() const { return json ? Form::Json : Form::Text; }
};
using Command = std::function<int(const Context&, Given&)>;

// A command below another; what it does is left in the context when it is chosen.
std::shared_ptr<Given> AddCommand(CLI::App& parent, Context& context, const std::string& name, const std::string& help,
                                  const Command& command, CLI::App*& added) {
    added = parent.add_subcommand(name, help);
    auto given = std::make_shared<Given>();
    added->callback([&context, given, command] {
        context.command = [&context, given, command] { return command(context, *given); };
    });
    return given;
}

void AddName(CLI::App& command, Given& given, const char* placeholder, const char* help) {
    command.add_option(placeholder, given.name, Tr(help))->required()->option_text(" ");
}

constexpr const char* kPortOfPop3WithTls = "995";

// ---- the commands

// Loads the tree, for a command that only reads.
void ReadTree(const Context& context, CRootPath& root) { OpenTree(root, RootDirectory(context.root_option)); }

template <class Object>
int Remove(const Context& context, const Given& given, EditKind kind, const CRootPath& root, const Object& object,
           const HeldCount& held) {
    EditRequest request(kind, EditVerb::Remove, ShownName(root, object.path));
    request.expected = WhatGoes(object);
    request.expected_held = ShowHeld(held);
    const std::string question = request.expected_held.empty() ? Tr("Remove {0} ({1})?", request.name, request.expected)
                                                               : Tr("Remove {0} ({1}, and {2})?", request.name,
                                                                    request.expected, request.expected_held);
    if (!given.yes && !AskYes(question)) {
        std::cout << Tr("Nothing was removed.") << '\n';
        return kDone;
    }
    return Submit(context, request);
}

int RemoveUser(const Context& context, const Given& given) {
    CRootPath root;
    ReadTree(context, root);
    const CUser& user = FindUser(root, given.name);
    return Remove(context, given, EditKind::User, root, user, CountHeld(user));
}

int RemoveProfile(const Context& context, const Given& given) {
    CRootPath root;
    ReadTree(context, root);
    const CPopProfile& profile = *FindProfile(root, given.name).profile;
    return Remove(context, given, EditKind::Profile, root, profile, CountHeld(profile));
}

int RemoveForward(const Context& context, const Given& given) {
    CRootPath root;
    ReadTree(context, root);
    const NamedForward named = FindForward(root, given.name);
    return Remove(context, given, EditKind::Forward, root, *named.forward, CountHeld(*named.profile, *named.forward));
}

// The rules of a user or a profile, and then its settings.
int SetRulesToo(const Context& context, const Given& given, EditRequest request) {
    CRootPath root;
    EditRequest rules(EditKind::Rules, EditVerb::Set, "");
    given.host_keys.Fill(rules);
    ReadTree(context, root);
    const bool is_user = request.kind == EditKind::User;
    const CString path = is_user ? FindUser(root, given.name).path : FindProfile(root, given.name).profile->path;
    rules.name = request.name = ShownName(root, path);
    std::vector<EditRequest> requests = {std::move(rules)};
    if (!given.keys.Empty()) requests.push_back(std::move(request));
    return SubmitAll(RootDirectory(context.root_option), requests);
}

int Set(const Context& context, const Given& given, EditKind kind) {
    EditRequest request(kind, EditVerb::Set, given.name);
    if (given.keys.Empty() && given.host_keys.Empty())
        throw CommandError(kBadUsage, Tr("nothing to set; `tarvex {0} --help` lists the keys", EditName(request)));
    if (given.many.Given() == !given.name.empty()) {
        throw CommandError(kBadUsage, kind == EditKind::Profile
                                          ? Tr("name a profile or say --all, --user or --where; see --help")
                                          : Tr("name one; see --help"));
    }
    if (given.many.Given()) return SetMany(context, given.many, given.keys, given.host_keys);
    given.keys.Fill(request);
    return given.host_keys.Empty() ? Submit(context, request) : SetRulesToo(context, given, std::move(request));
}

int AddUser(const Context& context, const Given& given) {
    RequireNewUsersAllowed();
    EditRequest request(EditKind::User, EditVerb::Add, "");
    request.values["loginname"] = given.first;
    given.keys.Fill(request);
    return Submit(context, request);
}

// Those that the rules of a user or a profile do not have.
std::vector<std::string_view> KeysOfOthers(EditKind kind) {
    std::vector<std::string_view> others;
    for (const Key<HostRules>& key : Keys<HostRules>()) {
        if (key.is_of_root || (key.is_shared && kind == EditKind::Profile)) others.emplace_back(key.name);
    }
    return others;
}

constexpr std::array<std::string_view, 2> kKeysOfTls = {"pop_tls", "tls_authority"};

std::vector<std::string_view> KeysOtherThanTls() {
    std::vector<std::string_view> others;
    for (const Key<HostRules>& key : Keys<HostRules>()) {
        if (std::ranges::find(kKeysOfTls, key.name) == kKeysOfTls.end()) others.emplace_back(key.name);
    }
    return others;
}

// A password in clear to another machine has to be asked for. TLS has a port of its own.
void SettleTls(const CRootPath& root, const Given& given, EditRequest& request) {
    HostRules rules = RulesOfUser(root.path, FindUser(root, given.name).path).value_or(HostRules());
    request.rules = given.host_keys.Values();
    for (const auto& [name, value] : request.rules) SetValue(rules, KeyNamed<HostRules>(name), value);
    CPopProfileSetting setting;
    setting.popserver = request.values["popserver"];
    if (!given.plain && LogsInInClear(setting, rules.Tls())) {
        throw CommandError(kBadUsage, Tr("the POP3 password would go to {0} in clear; give --pop_tls tls (usually port "
                                         "995) or --pop_tls starttls (usually port 110), or --plain if that is what "
                                         "you want",
                                         ShowUtf8Text(setting.popserver)));
    }
    if (rules.Tls() == PopTls::FromTheFirstByte) request.values.emplace("popport", kPortOfPop3WithTls);
}

int AddProfile(const Context& context, const Given& given) {
    EditRequest request(EditKind::Profile, EditVerb::Add, given.name);
    request.values["address"] = given.first;
    request.again = given.again;
    given.keys.Fill(request);  // before the tree is read: a file with a password may be the superuser's alone
    CRootPath root;
    ReadTree(context, root);
    FindUser(root, given.name);  // before anybody is asked for a password
    SettleTls(root, given, request);
    const bool has_password = given.keys.GivesPassword("poppassword");
    if (!has_password && CanAsk()) request.secrets["poppassword"] = AskSecret(Tr("POP3 password: "));
    const int code = Submit(context, request);
    if (!has_password && !CanAsk())
        std::cout << Tr("It has no password yet; `tarvex profile set --password` stores one.") << '\n';
    return code;
}

// Asks whether the new address gets what is in the mailbox. The ids of that, when it does not.
std::vector<std::string> IdsToSkip(const CPopProfile& profile, const std::string& address) {
    std::vector<std::string> ids;
    try {
        ids = IdsOnServer(profile, Tr("it is not known how much mail the address gets at first"));
    } catch (const CommandError& error) {
        PrintNote(error.what());
        return {};
    }
    const std::string question =
        TrN("The mailbox holds {0} message. Send it to {1}?",
            "The mailbox holds {0} messages. Send all of that to {1}?", static_cast<std::int64_t>(ids.size()), address);
    if (!ids.empty() && AskYes(question)) ids.clear();
    return ids;
}

int AddForward(const Context& context, const Given& given) {
    EditRequest request(EditKind::Forward, EditVerb::Add, given.name);
    request.values["address"] = given.first;
    request.again = given.again;
    given.keys.Fill(request);
    const bool asks = !given.new_mail_only && !given.all_mail && CanAsk();
    if (given.new_mail_only || asks) {
        CRootPath root;
        ReadTree(context, root);
        const CPopProfile& profile = *FindProfile(root, given.name).profile;
        request.uidls = asks ? IdsToSkip(profile, given.first) : IdsOnServer(profile, Tr("nothing was added"));
    }
    return Submit(context, request);
}

int CatchUpForward(const Context& context, const Given& given) {
    CRootPath root;
    ReadTree(context, root);
    const NamedForward named = FindForward(root, given.name);
    EditRequest request(EditKind::Forward, EditVerb::CatchUp, ShownName(root, named.forward->path));
    request.uidls = IdsOnServer(*named.profile, Tr("nothing was changed"));
    return Submit(context, request);
}

// ---- their places on the command line

constexpr const char* kAsJson = Marked("As JSON");
constexpr const char* kUserName = Marked("Its path (user0) or login name");
constexpr const char* kProfileName = Marked("Its path (user0/from0), nickname or address");
constexpr const char* kForwardName = Marked("Its path (user0/from0/forwardto0), nickname or address");

// The commands that differ between the three kinds in names alone.
struct Kind {
    EditKind kind;
    const char* show_help;
    const char* set_help;
    const char* remove_help;
    const char* placeholder;  // "PROFILE"
    const char* name_help;
    const char* parent_placeholder;  // "USER", null for users
    const char* list_help;           // "Only those of one user. ..."
};

using ShowFunction = void (*)(const CRootPath&, std::string_view, Form);
using ListFunction = Unread (*)(const CRootPath&, const std::string& parent, Form);
using RemoveFunction = int (*)(const Context&, const Given&);

template <class Record>
void AddCommonCommands(CLI::App& group, Context& context, const Kind& kind, ListFunction list, ShowFunction show,
                       RemoveFunction remove) {
    CLI::App* command = nullptr;

    auto given = AddCommand(
        group, context, "list", Tr("List them."),
        [list](const Context& known, const Given& words) {
            CRootPath root;
            ReadTree(known, root);
            const Unread unread = list(root, words.name, words.ListForm());
            for (const std::string& why : unread) PrintNote(why);
            return unread.empty() ? kDone : kCannotWrite;
        },
        command);
    command->add_flag("--json", given->json, Tr(kAsJson));
    if (kind.parent_placeholder) {
        command->add_option(kind.parent_placeholder, given->name, Tr(kind.list_help))->option_text(" ");
    }

    given = AddCommand(
        group, context, "show", Tr(kind.show_help),
        [show](const Context& known, const Given& words) {
            CRootPath root;
            ReadTree(known, root);
            show(root, words.name, words.ListForm());
            return kDone;
        },
        command);
    AddName(*command, *given, kind.placeholder, kind.name_help);
    command->add_flag("--json", given->json, Tr(kAsJson));

    given = AddCommand(
        group, context, "set", Tr(kind.set_help),
        [edited = kind.kind](const Context& known, const Given& words) { return Set(known, words, edited); }, command);
    AddName(*command, *given, kind.placeholder, kind.name_help);
    given->keys.template AddTo<Record>(*command, {});
    if (kind.kind != EditKind::Forward) given->host_keys.template AddTo<HostRules>(*command, KeysOfOthers(kind.kind));
    if (kind.kind == EditKind::Profile) {
        command->get_option(kind.placeholder)->required(false);
        given->many.AddTo(*command);
    }

    given = AddCommand(group, context, "remove", Tr(kind.remove_help), remove, command);
    AddName(*command, *given, kind.placeholder, kind.name_help);
    command->add_flag("--yes,-y", given->yes, Tr("Do not ask"));
}

void AddUserCommands(CLI::App& app, Context& context) {
    CLI::App* const group = app.add_subcommand("user", Tr("Users: whose profiles there are."))->require_subcommand(1);
    CLI::App* command = nullptr;
    const auto given = AddCommand(*group, context, "add", Tr("Add a user."), AddUser, command);
    command->add_option("NAME", given->first, Tr("Login name"))->required()->option_text(" ");
    given->keys.AddTo<CUserSetting>(*command, {"loginname", "version"});
    AddCommonCommands<CUserSetting>(
        *group, context,
        {EditKind::User, Marked("Show every setting of a user."), Marked("Change settings of a user."),
         Marked("Remove a user, with everything below."), "USER", kUserName, nullptr, nullptr},
        [](const CRootPath& root, const std::string&, Form form) { return ListUsers(root, form); }, ShowUser,
        RemoveUser);
}

void AddProfileCommands(CLI::App& app, Context& context) {
    CLI::App* const group =
        app.add_subcommand("profile", Tr("Profiles: the mailboxes, and the servers to send through."))
            ->require_subcommand(1);
    CLI::App* command = nullptr;
    const auto given =
        AddCommand(*group, context, "add", Tr("Add a profile: a mailbox to fetch from."), AddProfile, command);
    AddName(*command, *given, "USER", Marked("Whose profile it is: path (user0) or login name"));
    command->add_option("ADDRESS", given->first, Tr("The mailbox's own address"))->required()->option_text(" ");
    command->add_flag("--again", given->again, Tr("Also when another profile fetches from the same mailbox"));
    command->add_flag("--plain", given->plain, Tr("Also when the POP3 password goes to another machine in clear"));
    given->keys.AddTo<CPopProfileSetting>(*command, {"address", "version"});
    given->host_keys.AddTo<HostRules>(*command, KeysOtherThanTls());
    command->get_option("--popserver")->required();
    command->get_option("--popuser")->required();
    AddCommonCommands<CPopProfileSetting>(
        *group, context,
        {EditKind::Profile, Marked("Show every setting of a profile."), Marked("Change settings of a profile."),
         Marked("Remove a profile, with everything below."), "PROFILE", kProfileName, "USER",
         Marked("Only those of one user: its path (user0) or login name")},
        [](const CRootPath& root, const std::string& user, Form form) {
            return ListProfiles(root, user.empty() ? nullptr : &FindUser(root, user), form);
        },
        ShowProfile, RemoveProfile);
}

void AddForwardCommands(CLI::App& app, Context& context) {
    CLI::App* const group = app.add_subcommand("forward", Tr("Forwarding addresses: where the mail of a profile goes."))
                                ->require_subcommand(1);
    CLI::App* command = nullptr;
    const auto given =
        AddCommand(*group, context, "add", Tr("Add a forwarding address to a profile."), AddForward, command);
    AddName(*command, *given, "PROFILE",
            Marked("Whose mail it gets: path (user0/from0), nickname or address of the profile"));
    command->add_option("ADDRESS", given->first, Tr("Where to send"))->required()->option_text(" ");
    command->add_flag("--again", given->again, Tr("Also when the profile has the same address already"));
    auto* const new_mail_only =
        command->add_flag("--new-mail-only", given->new_mail_only,
                          Tr("What is in the mailbox now counts as handled: the address gets only what comes from now "
                             "on. Without it the first run sends it everything, which is asked about on a terminal"));
    command->add_flag("--all-mail", given->all_mail, Tr("Do not ask: the first run sends it everything"))
        ->excludes(new_mail_only);
    given->keys.AddTo<CForwardAddressSetting>(*command, {"address"});
    AddCommonCommands<CForwardAddressSetting>(
        *group, context,
        {EditKind::Forward, Marked("Show every setting of a forwarding address."),
         Marked("Change settings of a forwarding address."),
         Marked("Remove a forwarding address, with everything below."), "FORWARD", kForwardName, "PROFILE",
         Marked("Only those of one profile: its path (user0/from0), nickname or address")},
        [](const CRootPath& root, const std::string& profile, Form form) {
            return ListForwards(root, profile.empty() ? nullptr : FindProfile(root, profile).profile, form);
        },
        ShowForward, RemoveForward);

    const auto caught_up = AddCommand(*group, context, "catch-up",
                                      Tr("Let what is in the mailbox now count as handled."), CatchUpForward, command);
    AddName(*command, *caught_up, "FORWARD", kForwardName);
}

}  // namespace

void AddTreeCommands(CLI::App& app, Context& context) {
    AddUserCommands(app, context);
    AddProfileCommands(app, context);
    AddForwardCommands(app, context);
}

}  // namespace tarvex::host
