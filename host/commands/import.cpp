// `tarvex import`: what another mail client was told, as profiles.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "host/commands/arguments/key_options.h"
#include "host/commands/arguments/submit.h"
#include "host/commands/commands.h"
#include "host/import/import_plan.h"
#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/error_words.h"
#include "host/system/paths.h"
#include "host/terminal/password_source.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"
#include "host/tree/tree_root.h"
#include "host/view/mailbox_ids.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMostFileBytes = std::size_t{1} << 20;
constexpr std::size_t kMostIdsBytes = std::size_t{64} << 20;

struct Given {
    std::string file, ids_file;
    KeyOptions keys, host_keys;
    ImportChoices choices;
    bool new_mail_only = false;
    bool all_mail = false;
    bool dry_run = false;
    bool yes = false;
};

// A pipe or a device may have no end.
std::string ReadFileOf(const std::string& name, std::size_t most_bytes) {
    const auto cannot_read = [&](const std::string& why) {
        return CommandError(kNotFound, Tr("cannot read \"{0}\": {1}", ShowUtf8Text(name), why));
    };
    const std::filesystem::path path = NativePath(TreePath(name));
    std::error_code error;
    const bool is_file = std::filesystem::is_regular_file(path, error);
    if (error) throw cannot_read(WordsOf(error));
    if (!is_file) throw cannot_read(Tr("it is no regular file"));
    std::ifstream input(path, std::ios::binary);
    if (!input) throw cannot_read(std::generic_category().message(errno));
    std::string content(most_bytes + 1, '\0');
    input.read(content.data(), static_cast<std::streamsize>(content.size()));
    content.resize(static_cast<std::size_t>(input.gcount()));
    if (content.size() > most_bytes) {
        throw CommandError(kBadData, Tr("\"{0}\" is larger than {1}: this is no such file", ShowUtf8Text(name),
                                        ShowBytes(static_cast<std::int64_t>(most_bytes))));
    }
    return content;
}

// Of several that fetch from the mailbox the one that was added last.
std::string NameOfNew(const Context& context, const PlannedProfile& planned, CRootPath& root) {
    OpenTree(root, RootDirectory(context.root_option));
    std::string name;
    for (const NamedProfile& named : AllProfiles(root)) {
        if (FetchTheSame(named.profile->setting, planned.setting)) name = ShownName(root, named.profile->path);
    }
    return name;
}

// A profile without an address forwards nothing, so that comes last: with what counts as handled.
void AddProfile(const Context& context, const PlannedProfile& planned, const std::vector<std::string>* ids,
                bool all_mail) {
    Submit(context, planned.profile);
    CRootPath root;
    const std::string name = NameOfNew(context, planned, root);
    std::vector<std::string> uidls;
    if (ids) {
        uidls = *ids;
    } else if (!all_mail) {
        uidls = IdsOnServer(*FindProfile(root, name).profile,
                            Tr("{0} got no address; `tarvex forward add {0} ADDRESS` adds one", name));
    }
    for (const std::string& address : planned.forwards) {
        EditRequest request(EditKind::Forward, EditVerb::Add, name);
        request.values["address"] = address;
        request.uidls = uidls;
        request.again = planned.profile.again;
        Submit(context, request);
    }
}

// One that fails does not keep the others from being imported. The exit code is that of the last failure.
int Write(const Context& context, const ImportPlan& plan, const Given& given,
          const std::vector<std::vector<std::string>>& ids) {
    if (!plan.new_user.empty()) {
        EditRequest request(EditKind::User, EditVerb::Add, "");
        request.values["loginname"] = plan.new_user;
        Submit(context, request);
    }
    int code = kDone;
    for (std::size_t i = 0; i < plan.profiles.size(); ++i) {
        try {
            AddProfile(context, plan.profiles[i], ids.empty() ? nullptr : &ids[i], given.all_mail);
        } catch (const CommandError& error) {
            PrintNote(Tr("line {0}: {1}", plan.profiles[i].mailbox.line, error.what()));
            code = error.ExitCode();
        }
    }
    return code;
}

std::string WhatIsSent(const Given& given, const std::vector<std::vector<std::string>>& ids) {
    if (given.all_mail) return Tr("The first run forwards all that is in the mailboxes.") + '\n';
    if (ids.empty()) return Tr("What is in the mailboxes now counts as handled.") + '\n';
    std::size_t count = 0;
    for (const auto& of_one : ids) count += of_one.size();
    return TrN("{0} id of the list counts as handled.", "{0} ids of the list count as handled.",
               static_cast<std::int64_t>(count)) +
           '\n';
}

int Import(const Context& context, Given& given, ImportKind kind) {
    // Before the tree is read: the files may be the superuser's alone.
    Imported imported = ReadImport(kind, ReadFileOf(given.file, kMostFileBytes));
    std::string list;
    if (!given.ids_file.empty()) list = ReadFileOf(given.ids_file, kMostIdsBytes);
    EditRequest passwords(EditKind::Profile, EditVerb::Add, "");
    given.keys.Fill(passwords);
    given.choices.values = passwords.values;
    given.choices.secrets = passwords.secrets;
    given.choices.rules = given.host_keys.Values();

    CRootPath root;
    OpenTree(root, RootDirectory(context.root_option));
    const ImportPlan plan = PlanImport(root, std::move(imported), given.choices);
    std::vector<std::vector<std::string>> ids;
    if (!given.ids_file.empty()) {
        for (const PlannedProfile& planned : plan.profiles) ids.push_back(ReadOldIds(kind, list, planned.mailbox));
    }
    std::cout << plan.Shown() << WhatIsSent(given, ids) << std::flush;
    if (given.dry_run) return kDone;
    const std::string question =
        TrN("Add {0} profile?", "Add {0} profiles?", static_cast<std::int64_t>(plan.profiles.size()));
    if (!given.yes && !AskYes(question)) {
        std::cout << Tr("Nothing was imported.") << '\n';
        return kDone;
    }
    return Write(context, plan, given, ids);
}

template <class Record>
std::vector<std::string_view> AllKeysBut(std::initializer_list<std::string_view> wanted) {
    std::vector<std::string_view> others;
    for (const Key<Record>& key : Keys<Record>()) {
        if (std::ranges::find(wanted, key.name) == wanted.end()) others.emplace_back(key.name);
    }
    return others;
}

void AddFormat(CLI::App& group, Context& context, const char* name, const char* client, ImportKind kind) {
    CLI::App* const command = group.add_subcommand(name, Tr("Import the configuration file of {0}.", client));
    auto given = std::make_shared<Given>();
    command->add_option("FILE", given->file, Tr("The file"))->required()->option_text(" ");
    command
        ->add_option("--user", given->choices.user,
                     Tr("Whose profiles they become: path (user0) or login name; added where there is none. Without it "
                        "the only user of the tree"))
        ->type_name("USER");
    command
        ->add_option(
            "--forward", given->choices.forwards,
            Tr("Where the mail goes, in the place of what the file says; more than once for several addresses"))
        ->type_name("ADDRESS")
        ->allow_extra_args(false);
    command
        ->add_option("--address", given->choices.address,
                     Tr("The mailbox's own address, for a file with one mailbox. Else it is the login, with the domain "
                        "of the server where that has none"))
        ->type_name("ADDRESS");
    command
        ->add_option("--ids", given->ids_file,
                     Tr("Where the client keeps the ids of what it has fetched (~/.fetchids, oldmail-..., uidls_file): "
                        "they count as handled"))
        ->type_name("FILE");
    auto* const new_mail_only = command->add_flag("--new-mail-only", given->new_mail_only,
                                                  Tr("What is in the mailboxes now counts as handled. So it is without "
                                                     "--ids and --all-mail"));
    auto* const all_mail =
        command->add_flag("--all-mail", given->all_mail, Tr("The first run forwards all that is in the mailboxes"));
    all_mail->excludes(new_mail_only)->excludes(command->get_option("--ids"));
    new_mail_only->excludes(command->get_option("--ids"));
    command->add_flag("--again", given->choices.again, Tr("Also when another profile fetches from the same mailbox"));
    command->add_flag("--plain", given->choices.plain,
                      Tr("Also when a POP3 password goes to another machine in clear"));
    command->add_flag("--dry-run", given->dry_run, Tr("Show what would be written, and write nothing"));
    command->add_flag("--yes,-y", given->yes, Tr("Do not ask"));
    given->keys.AddTo<CPopProfileSetting>(
        *command, AllKeysBut<CPopProfileSetting>({"smtpserver", "smtpport", "sslsmtp", "esmtp", "smtpauth",
                                                  "smtpauth_mode", "smtpuser", "smtppassword", "timer"}));
    given->host_keys.AddTo<HostRules>(*command, AllKeysBut<HostRules>({"pop_tls", "tls_authority"}));
    command->callback([&context, given, kind] {
        context.command = [&context, given, kind] { return Import(context, *given, kind); };
    });
}

}  // namespace

void AddImportCommands(CLI::App& app, Context& context) {
    CLI::App* const group =
        app.add_subcommand("import", Tr("Make profiles of what another mail client was told."))->require_subcommand(1);
    AddFormat(*group, context, "fetchmailrc", "fetchmail", ImportKind::Fetchmailrc);
    AddFormat(*group, context, "getmailrc", "getmail", ImportKind::Getmailrc);
    AddFormat(*group, context, "mpoprc", "mpop", ImportKind::Mpoprc);
}

}  // namespace tarvex::host
