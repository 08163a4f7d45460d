// `tarvex rules`: what the rules of a tree are, and changing them.

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "host/commands/arguments/key_options.h"
#include "host/commands/arguments/submit.h"
#include "host/commands/commands.h"
#include "host/edit/edit.h"
#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/system/command_error.h"
#include "host/tree/listing.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

struct Given {
    std::string name;  // of a user or a profile; empty: the tree
    KeyOptions keys;
    bool json = false;
};

int Show(const Context& context, const Given& given) {
    CRootPath root;
    OpenTree(root, RootDirectory(context.root_option));
    ShowRules(root, given.name, given.json ? Form::Json : Form::Text);
    return kDone;
}

int Set(const Context& context, const Given& given) {
    if (given.keys.Empty())
        throw CommandError(kBadUsage, Tr("nothing to set; `tarvex rules set --help` lists the keys"));
    EditRequest request(EditKind::Rules, EditVerb::Set, given.name);
    given.keys.Fill(request);
    return Submit(context, request);
}

// The name may stand before the word and behind it.
void AddName(CLI::App& command, Given& given) {
    command
        .add_option(
            "NAME", given.name,
            Tr("Path, nickname or address of a profile; path or login name of a user, for what its profiles have "
               "by default; without it the whole tree"))
        ->option_text(" ");
}

}  // namespace

void AddRulesCommands(CLI::App& app, Context& context) {
    CLI::App* const group =
        app.add_subcommand("rules", Tr("The rules that keep a tree safe when it is left alone, and the SMTP "
                                       "server that profiles share: host.def."))
            ->require_subcommand(1);
    auto given = std::make_shared<Given>();
    AddName(*group, *given);
    CLI::App* const show =
        group->add_subcommand("show", Tr("Show them, those of a user or a profile as they hold there."));
    AddName(*show, *given);
    show->add_flag("--json", given->json, Tr("As JSON"));
    show->callback([&context, given] { context.command = [&context, given] { return Show(context, *given); }; });
    CLI::App* const set = group->add_subcommand(
        "set", Tr("Change them. A profile follows its user, and a user the tree, where nothing else is set."));
    AddName(*set, *given);
    given->keys.AddTo<HostRules>(*set, {});
    set->callback([&context, given] { context.command = [&context, given] { return Set(context, *given); }; });
}

}  // namespace tarvex::host
