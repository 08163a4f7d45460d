// `tarvex accept` and `tarvex resend`: a person decides what counts as sent.

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <string>

#include "host/commands/arguments/mailbox_ids.h"
#include "host/commands/arguments/submit.h"
#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/password_source.h"
#include "host/tree/names.h"
#include "host/tree/tree_root.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

struct Given {
    std::string profile;
    std::string address;
    std::string id;
    bool send = false;
    bool skip = false;
    bool yes = false;
};

int Accept(const Context& context, const Given& given) {
    if (given.send == given.skip)
        throw CommandError(kBadUsage,
                           Tr("say what is to become of the mail in the mailbox: --send sends what counts as new, "
                              "--skip lets it count as handled"));
    EditRequest request(EditKind::Profile, given.send ? EditVerb::Accept : EditVerb::CatchUp, given.profile);
    if (given.skip) {
        CRootPath root;
        OpenTree(root, RootDirectory(context.root_option));
        request.uidls = IdsOnServer(*FindProfile(root, given.profile).profile, Tr("nothing was changed"));
    }
    return Submit(context, request);
}

int Resend(const Context& context, const Given& given) {
    CRootPath root;
    OpenTree(root, RootDirectory(context.root_option));
    const std::string profile = ShownName(root, FindProfile(root, given.profile).profile->path);
    EditRequest request(EditKind::Profile, EditVerb::Resend, profile);
    if (!given.address.empty()) {
        const std::string forward = ShownName(root, FindForward(root, profile + '/' + given.address).forward->path);
        request = EditRequest(EditKind::Forward, EditVerb::Resend, forward);
    }
    if (!given.id.empty()) request.uidls = {given.id};
    const std::string question = given.id.empty()
                                     ? Tr("Send everything that is in its mailbox once more for {0}?", request.name)
                                     : Tr("Send message \"{0}\" once more for {1}?", given.id, request.name);
    if (!given.yes && !AskYes(question)) {
        std::cout << Tr("Nothing was changed.") << '\n';
        return kDone;
    }
    return Submit(context, request);
}

using Command = int (*)(const Context&, const Given&);

CLI::App* AddCommand(CLI::App& app, Context& context, const std::string& name, const std::string& help, Command run,
                     const std::shared_ptr<Given>& given) {
    CLI::App* const command = app.add_subcommand(name, help);
    command->add_option("PROFILE", given->profile, Tr("Path, nickname or address of the profile"))
        ->required()
        ->option_text(" ");
    command->callback(
        [&context, given, run] { context.command = [&context, given, run] { return run(context, *given); }; });
    return command;
}

}  // namespace

void AddAcceptCommands(CLI::App& app, Context& context) {
    const auto given = std::make_shared<Given>();
    CLI::App* command =
        AddCommand(app, context, "accept",
                   Tr("Let a profile go on that waits because the ids of its mailbox have changed."), Accept, given);
    auto* const send = command->add_flag("--send", given->send, Tr("Send everything that counts as new"));
    command->add_flag("--skip", given->skip, Tr("What is in the mailbox now counts as handled"))->excludes(send);

    command =
        AddCommand(app, context, "resend", Tr("Let mail that was sent go out again with the next run."), Resend, given);
    command->add_option("ADDRESS", given->address, Tr("Only to this forwarding address; without it, to all"))
        ->option_text(" ");
    command->add_option("--id", given->id, Tr("Only the message with this id on the server"))->type_name("ID");
    command->add_flag("--yes,-y", given->yes, Tr("Do not ask"));
}

}  // namespace tarvex::host
