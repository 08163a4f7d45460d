// `tarvex accept` and `tarvex resend`: a person decides what counts as sent.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/commands/arguments/expected_generation.h"
#include "host/commands/arguments/submit.h"
#include "host/commands/commands.h"
#include "host/commands/held.h"
#include "host/edit/tree_edit.h"
#include "host/generation/generation.h"
#include "host/history/history.h"
#include "host/language/tr.h"
#include "host/service/service_connection.h"
#include "host/settings/host_setting.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/password_source.h"
#include "host/terminal/typed_word.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"
#include "host/tree/tree_root.h"
#include "host/tree/tree_rules.h"
#include "host/view/mail_json.h"
#include "host/view/mailbox_ids.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kSubjectColumns = 120;

struct Given {
    std::string profile;
    std::string address;
    std::string id;
    bool send = false;
    bool skip = false;
    bool yes = false;
    std::optional<std::int64_t> expected;
};

// ---- a tree that is an old copy

bool IsHeldBackByService(const std::string& directory) {
    const auto service = ServiceConnection::Try(directory);
    return service && service->Report().old_copy;
}

// Without rules, and where the rule is switched off, no profile waits for anybody.
bool CanWait(const CPopProfile& profile) {
    try {
        const std::optional<HostRules> rules = RulesOf(profile);
        return rules && rules->floodguard;
    } catch (const CommandError&) {
        return false;  // nobody knows what they say
    }
}

// What is in the mailbox counts as handled for every address. A mailbox that cannot be listed leaves the profile
// waiting by itself.
void SkipMailbox(const CRootPath& root, const NamedProfile& named, std::vector<EditRequest>& edits) {
    const std::string name = ShownName(root, named.profile->path);
    const bool can_wait = CanWait(*named.profile);
    const std::string outcome = can_wait ? Tr("it waits by itself") : Tr("nothing was changed");
    try {
        if (!IsSwitchedOn(*named.user, *named.profile))
            throw CommandError(kUnavailable, Tr("it is switched off; {0}", outcome));
        const std::vector<std::string> ids = IdsOnServer(*named.profile, outcome);
        for (const auto& forward : named.profile->forward_addresses) {
            EditRequest request(EditKind::Forward, EditVerb::CatchUp, ShownName(root, forward->path));
            request.uidls = ids;
            edits.push_back(std::move(request));
        }
    } catch (const CommandError& error) {
        const std::string why = name + ": " + error.what();
        if (!can_wait) throw CommandError(error.ExitCode(), why);
        PrintNote(why);
        edits.emplace_back(EditKind::Profile, EditVerb::Hold, name);
    }
}

int AcceptTree(const Context& context, const Given& given) {
    const std::string directory = RootDirectory(context.root_option);
    CRootPath root;
    OpenTree(root, directory);
    if (!IsHeldBackByService(directory)) RequireOldCopy(directory, given.expected);
    std::vector<EditRequest> edits;
    if (given.skip) {
        for (const NamedProfile& named : AllProfiles(root)) SkipMailbox(root, named, edits);
    }
    edits.push_back(AcceptanceOfTree(given.send ? EditVerb::Accept : EditVerb::CatchUp, given.expected));
    return SubmitAll(directory, edits);
}

// ---- a profile that waits

int Accept(const Context& context, const Given& given) {
    if (given.send == given.skip)
        throw CommandError(kBadUsage,
                           Tr("say what is to become of the mail in the mailbox: --send sends what counts as new, "
                              "--skip lets it count as handled"));
    if (given.profile.empty()) return AcceptTree(context, given);
    if (given.expected)
        throw CommandError(kBadUsage,
                           Tr("--expect-generation is about the whole tree: leave {0} out", Quoted(given.profile)));
    EditRequest request(EditKind::Profile, given.send ? EditVerb::Accept : EditVerb::CatchUp, given.profile);
    if (given.skip) {
        CRootPath root;
        OpenTree(root, RootDirectory(context.root_option));
        request.uidls = IdsOnServer(*FindProfile(root, given.profile).profile, Tr("nothing was changed"));
    }
    return Submit(context, request);
}

int ResendFrom(const CRootPath& root, const Context& context, const Given& given) {
    const std::string profile = ShownName(root, FindProfile(root, given.profile).profile->path);
    EditRequest request(EditKind::Profile, EditVerb::Resend, profile);
    if (!given.address.empty()) {
        const std::string forward = ShownName(root, FindForward(root, profile + '/' + given.address).forward->path);
        request = EditRequest(EditKind::Forward, EditVerb::Resend, forward);
    }
    if (!given.id.empty()) request.uidls = {given.id};
    const std::string question = given.id.empty()
                                     ? Tr("Send everything that is in its mailbox once more for {0}?", request.name)
                                     : Tr("Send message \"{0}\" once more for {1}?", ShowText(given.id), request.name);
    if (!given.yes && !AskYes(question)) {
        std::cout << Tr("Nothing was changed.") << '\n';
        return kDone;
    }
    return Submit(context, request);
}

// ---- a message that `trace` shows

// A profile that is called so is meant as ever.
bool NamesMessage(const CRootPath& root, const Given& given) {
    if (!given.id.empty() || !IdInHandle(given.profile)) return false;
    try {
        FindProfile(root, given.profile);
        return false;
    } catch (const CommandError&) {
        return true;
    }
}

FoundMail MessageCalled(const std::string& directory, const std::string& handle) {
    auto found = FromHistory(directory, [&](HistoryReader& reader) { return reader.Mail(*IdInHandle(handle)); });
    if (found) return *std::move(found);
    throw CommandError(kNotFound,
                       Tr("no message {0} is remembered; `tarvex trace` shows those that are", ShowUtf8Text(handle)));
}

int ResendHeld(const Context& context, const Given& given, const std::vector<HeldRecord>& held) {
    if (!given.yes && !AskYes(Tr("It is set aside. Try to send it now?"))) {
        std::cout << Tr("Nothing was changed.") << '\n';
        return kDone;
    }
    std::vector<int> ids;
    for (const HeldRecord& record : held) ids.push_back(record.id);
    return SendSetAside(context, given.profile, ids, given.address);
}

int ResendMessage(const CRootPath& root, const Context& context, const Given& given) {
    const FoundMail found = MessageCalled(RootDirectory(context.root_option), given.profile);
    const CPopProfile& profile = *FindProfile(root, found.profile).profile;
    const CForwardAddress* const address =
        given.address.empty() ? nullptr : FindForward(root, found.profile + '/' + given.address).forward;
    const CString& id = found.mail.uidl;
    const std::string handle = HandleOf(found);
    if (id.empty()) throw CommandError(kNotFound, Tr("{0} has no id on its server, by which to find it", handle));
    const std::string subject = OneLine(HeadlinesOf(found.mail.header).subject, kSubjectColumns);
    std::cout << Tr("{0}: message \"{1}\" of {2}, {3}", handle, OneLine(id, kSubjectColumns), found.profile,
                    subject.empty() ? Tr("(no subject)") : subject)
              << '\n';
    Given named = given;
    named.profile = found.profile;
    if (const std::vector<HeldRecord> held = HeldOf(profile, id, address); !held.empty()) {
        if (address) named.address = ShowPath(FolderOf(*address));
        return ResendHeld(context, named, held);
    }
    if (std::ranges::count(IdsOnServer(profile, Tr("nothing was changed")), id) == 0)
        throw CommandError(kNotFound, Tr("{0} is neither in the mailbox of {1} nor set aside: it cannot be sent again",
                                         handle, found.profile));
    named.id = id;
    return ResendFrom(root, context, named);
}

int Resend(const Context& context, const Given& given) {
    CRootPath root;
    OpenTree(root, RootDirectory(context.root_option));
    return NamesMessage(root, given) ? ResendMessage(root, context, given) : ResendFrom(root, context, given);
}

using Command = int (*)(const Context&, const Given&);

CLI::App* AddCommand(CLI::App& app, Context& context, const std::string& name, const std::string& help, Command run,
                     const std::shared_ptr<Given>& given) {
    CLI::App* const command = app.add_subcommand(name, help);
    command->add_option("PROFILE", given->profile, Tr("Path, nickname or address of the profile"))->option_text(" ");
    command->callback(
        [&context, given, run] { context.command = [&context, given, run] { return run(context, *given); }; });
    return command;
}

}  // namespace

void AddAcceptCommands(CLI::App& app, Context& context) {
    const auto given = std::make_shared<Given>();
    CLI::App* command = AddCommand(
        app, context, "accept",
        Tr("Let a profile go on that waits because its ids or lists cannot be trusted, or a tree that is an old copy."),
        Accept, given);
    command->get_option("PROFILE")->description(
        Tr("Path, nickname or address of the profile; without it the tree, where that is an old copy"));
    auto* const send = command->add_flag("--send", given->send, Tr("Send everything that counts as new"));
    command->add_flag("--skip", given->skip, Tr("What is in the mailbox now counts as handled"))->excludes(send);
    const auto expected = std::make_shared<ExpectedGeneration>(*command);
    command->callback([&context, given, expected] {
        given->expected = expected->Number();
        context.command = [&context, given] { return Accept(context, *given); };
    });

    command =
        AddCommand(app, context, "resend", Tr("Let mail that was sent go out again with the next run."), Resend, given);
    command->get_option("PROFILE")->required()->description(
        Tr("Path, nickname or address of the profile; or a message as `trace` calls it: M12"));
    command->add_option("ADDRESS", given->address, Tr("Only to this forwarding address; without it, to all"))
        ->option_text(" ");
    command->add_option("--id", given->id, Tr("Only the message with this id on the server"))->type_name("ID");
    command->add_flag("--yes,-y", given->yes, Tr("Do not ask"));
}

}  // namespace tarvex::host
