// The names of profiles, --json and the rest that commands about profiles have in common.

#include "host/commands/arguments/profile_arguments.h"

#include <CLI/CLI.hpp>
#include <memory>

#include "host/commands/arguments/submit.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/tree/readiness.h"

namespace tarvex::host {

void AddProfileNames(CLI::App& command, std::vector<std::string>& names) {
    command.add_option("PROFILE", names, Tr("Path, nickname or address of a profile; without one, all of them"));
}

CLI::App& AddReadOnlyCommand(CLI::App& app, Context& context, const std::string& name, const std::string& help,
                             const ReadOnlyCommand& look, const std::string& footer) {
    CLI::App* const command = app.add_subcommand(name, help);
    command->footer(footer);
    auto names = std::make_shared<std::vector<std::string>>();
    auto as_json = std::make_shared<bool>(false);
    AddProfileNames(*command, *names);
    command->add_flag("--json", *as_json, Tr("Print JSON"));
    command->callback([&context, names, as_json, look] {
        context.command = [&context, names, as_json, look] { return look(context, *names, *as_json); };
    });
    return *command;
}

int NoteWhatIsNotListed(const CRootPath& root) {
    const std::vector<std::string> reasons = WhatIsNotListed(root);
    for (const std::string& why : reasons) PrintNote(Tr("{0}; its profiles are not known", why));
    return reasons.empty() ? kDone : kCannotWrite;
}

}  // namespace tarvex::host
