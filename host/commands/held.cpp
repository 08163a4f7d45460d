// `tarvex held`: mail that was set aside, for people who look at it, send it again, drop it or take it elsewhere.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <variant>
#include <vector>

#include "host/commands/arguments/profile_arguments.h"
#include "host/commands/arguments/submit.h"
#include "host/commands/arguments/usage.h"
#include "host/commands/commands.h"
#include "host/commands/held.h"
#include "host/held/held.h"
#include "host/held/held_export.h"
#include "host/held/held_work.h"
#include "host/history/history.h"
#include "host/history/run_words.h"
#include "host/language/tr.h"
#include "host/memory/memory.h"
#include "host/settings/keys.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/process.h"
#include "host/system/users.h"
#include "host/terminal/json.h"
#include "host/terminal/password_source.h"
#include "host/terminal/table.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"
#include "host/tree/readiness.h"
#include "host/tree/tree_root.h"
#include "host/view/mail_json.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kReplyColumns = 60;
constexpr std::size_t kAnswerColumns = 120;
constexpr std::size_t kHead_bytes = 16 << 10;

struct Given {
    std::vector<std::string> profiles;  // of `list`
    std::string profile;
    std::vector<int> ids;
    std::string address;
    std::string to = "-";
    bool all = false;
    bool yes = false;
    bool json = false;
};

// ---- what is meant

bool IsCalled(const HeldAddress& waiting, const std::string& name) {
    return name.empty() || ShowPath(waiting.folder) == name || Lower(ShowText(waiting.address)) == Lower(name) ||
           SameMailbox(waiting.address, name);
}

// The records with these ids, or all of them; of each the addresses that are meant.
std::vector<HeldRecord> Chosen(const CPopProfile& profile, const Given& given) {
    std::vector<HeldRecord> chosen;
    std::set<int> missing(given.ids.begin(), given.ids.end());
    for (HeldRecord& record : HeldRecordsOf(profile)) {
        if (!given.ids.empty() && missing.erase(record.id) == 0) continue;
        std::erase_if(record.addresses, [&](const HeldAddress& one) { return !IsCalled(one, given.address); });
        if (given.address.empty() || !record.addresses.empty()) chosen.push_back(std::move(record));
    }
    if (!missing.empty()) {
        throw CommandError(kNotFound, Tr("no message {0} is set aside there", *missing.begin()));
    }
    return chosen;
}

std::vector<HeldChoice> ChoiceOf(const std::vector<HeldRecord>& records) {
    std::vector<HeldChoice> choice;
    for (const HeldRecord& record : records) {
        if (!record.damage.empty()) {
            choice.push_back({record.id, {}, record.digest});
            continue;
        }
        for (const HeldAddress& waiting : record.addresses)
            choice.push_back({record.id, waiting.folder, record.digest});
    }
    return choice;
}

// ---- list and show

std::string NextTry(const HeldAddress& waiting, CTime now) {
    if (waiting.next_try == 0) return Tr("when told");
    return waiting.next_try <= now ? Tr("now") : Tr("in {0}", ShowSpan(waiting.next_try - now));
}

void AddRows(Table& table, const std::string& profile, const HeldRecord& record, CTime now) {
    const std::string id = std::to_string(record.id);
    if (!record.damage.empty()) {
        table.Add({profile, id, "", "", Tr("damaged"), "", "", OneLineOfUtf8(record.damage, kReplyColumns)});
        return;
    }
    for (const HeldAddress& waiting : record.addresses) {
        table.Add({profile, id, ShowText(waiting.address), ShowMoment(record.set_aside), std::string(Word(record.kind)),
                   std::to_string(waiting.tries),
                   record.kind == HeldKind::Refused ? NextTry(waiting, now) : Tr("when told"),
                   OneLine(waiting.reply, kReplyColumns)});
    }
}

int List(const Context& context, const Given& given) {
    CRootPath root;
    OpenTree(root, RootDirectory(context.root_option));
    const CTime now = std::time(nullptr);
    Table table({Tr("PROFILE"), "ID", Tr("ADDRESS"), Tr("SET ASIDE"), Tr("WHY"), Tr("TRIES"), Tr("NEXT TRY"),
                 Tr("THE SERVER SAID")});
    Json json = Json::array();
    bool is_empty = true;
    for (const NamedProfile& named : ChosenProfiles(root, given.profiles)) {
        const std::string name = ShownName(root, named.profile->path);
        for (const HeldRecord& record : Chosen(*named.profile, given)) {
            is_empty = false;
            AddRows(table, name, record, now);
            json.push_back(JsonOf(name, record));
        }
    }
    if (given.json) {
        PrintJson(json);
    } else if (is_empty) {
        std::cout << Tr("No mail is set aside.") << '\n';
    } else {
        table.Print(std::cout);
    }
    return kDone;
}

void PrintAddress(const HeldAddress& waiting, bool is_tried, CTime now) {
    std::cout << '\n' << Tr("waits for  {0} ({1})", ShowText(waiting.address), ShowPath(waiting.folder)) << '\n';
    if (waiting.failure_class != CFailureClass::None) {
        std::cout << Tr("  refused  at {0}, {1}: {2}", Word(waiting.stage), Word(waiting.failure_class),
                        ShowText(waiting.reply))
                  << '\n';
    }
    const std::string next = is_tried ? NextTry(waiting, now) : Tr("when told");
    std::cout << (waiting.last_try == 0 ? Tr("  tries    {0}; next {1}", waiting.tries, next)
                                        : Tr("  tries    {0}, the last at {1}; next {2}", waiting.tries,
                                             ShowTime(waiting.last_try), next))
              << '\n';
    for (const HeldAnswer& answer : waiting.answers) {
        std::cout << "    " << ShowTime(answer.time) << "  " << OneLine(answer.reply, kAnswerColumns) << '\n';
    }
}

int Show(const Context& context, const Given& given) {
    CRootPath root;
    OpenTree(root, RootDirectory(context.root_option));
    const CPopProfile& profile = *FindProfile(root, given.profile).profile;
    const std::string name = ShownName(root, profile.path);
    const HeldRecord record = Chosen(profile, given).front();
    const std::optional<std::string> text = HeldStore(profile.path).Text(record.id);
    const std::string head = text ? ShowHead(*text, kHead_bytes) : "";
    if (given.json) {
        Json json = JsonOf(name, record);
        json["header"] = text ? Json(head) : Json();
        PrintJson(json);
        return kDone;
    }
    std::cout << Tr("message    {0} of {1}, {2}", record.id, name, ShowBytes(record.bytes)) << '\n';
    if (!record.damage.empty()) {
        std::cout << Tr("damaged    {0}", record.damage) << '\n';
    } else {
        std::cout << Tr("set aside  {0} ({1})", ShowTime(record.set_aside), Word(record.kind)) << '\n'
                  << Tr("id         {0}", ShowText(record.uidl)) << '\n';
    }
    const CTime now = std::time(nullptr);
    for (const HeldAddress& waiting : record.addresses) PrintAddress(waiting, record.kind == HeldKind::Refused, now);
    std::cout << '\n' << head;
    return kDone;
}

// ---- send and drop

int SendHere(const std::string& directory, CRootPath& root, const HeldRequest& request, Reply& reply) {
    const CPopProfile& profile = *FindProfile(root, request.profile).profile;
    if (const std::string why = WhyUnreadable(profile); !why.empty()) throw CommandError(kCannotWrite, why);
    CPopProfile copy;
    copy = profile;
    RuleMemory memory(directory, PrintNote);
    Ways ways(root.path);
    const HeldSendingOptions options{std::time(nullptr), [] { return CaughtSignal() != 0; }, &memory,
                                     EndOfDataSeconds(root, profile), &ways};
    const std::vector<HeldResult> results = SendHeld(copy, request.choice, options);
    HistoryWriter(directory, PrintNote).AddMails(copy.path, SentIn(results));
    return TellHeld(results, request.choice.size(), reply);
}

int WorkHere(const std::string& directory, const HeldRequest& request, Reply& reply) {
    CatchTermination();
    CRootPath root;
    OpenTree(root, directory);
    HistoryWriter(directory, PrintNote).AddEdit(EditOfHeld(request, ThisCaller()));
    if (request.verb == HeldVerb::Send) return SendHere(directory, root, request, reply);
    RuleMemory memory(directory, PrintNote);
    return DropHeld(root, FindProfile(root, request.profile).profile->path, request.choice, memory, reply);
}

int SubmitHeld(const Context& context, const HeldRequest& request) {
    const std::string directory = RootDirectory(context.root_option);
    const std::string verb(kHeldVerbs[static_cast<std::size_t>(request.verb)]);
    Reply reply;
    LockOrService access = TakeLockOrService(directory, "held-" + verb);
    auto* const service = std::get_if<std::unique_ptr<ServiceConnection>>(&access);
    const int code = service ? (*service)->Held(request, reply, PrintNote) : WorkHere(directory, request, reply);
    std::cout << reply.printed;
    if (code != kDone) throw CommandError(code, reply.error);
    return code;
}

// What the command is about, as it stands now.
HeldRequest RequestFor(const Context& context, const Given& given, HeldVerb verb, std::vector<HeldRecord>& chosen) {
    const std::string directory = RootDirectory(context.root_option);
    RequireRoot(directory);
    CRootPath root;
    OpenTree(root, directory);
    const CPopProfile& profile = *FindProfile(root, given.profile).profile;
    chosen = Chosen(profile, given);
    return {verb, ShownName(root, profile.path), ChoiceOf(chosen), CallingUser()};
}

int Send(const Context& context, const Given& given) {
    std::vector<HeldRecord> chosen;
    HeldRequest request = RequestFor(context, given, HeldVerb::Send, chosen);
    for (const HeldRecord& record : chosen) {
        if (record.damage.empty()) continue;
        PrintNote(Tr("message {0} is damaged, {1}; it is not sent", record.id, record.damage));
        std::erase_if(request.choice, [&](const HeldChoice& one) { return one.id == record.id; });
    }
    if (request.choice.empty()) {
        std::cout << Tr("There is nothing to send.") << '\n';
        return kDone;
    }
    return SubmitHeld(context, request);
}

int Drop(const Context& context, const Given& given) {
    if (given.ids.empty() && given.address.empty() && !given.all) {
        throw CommandError(kBadUsage, Tr("say which: ids, --address or --all"));
    }
    std::vector<HeldRecord> chosen;
    const HeldRequest request = RequestFor(context, given, HeldVerb::Drop, chosen);
    if (chosen.empty()) {
        std::cout << Tr("There is nothing to drop.") << '\n';
        return kDone;
    }
    const std::string question = TrN("Drop {0} message of {1} that will then never be sent?",
                                     "Drop {0} messages of {1} that will then never be sent?",
                                     static_cast<std::int64_t>(chosen.size()), request.profile);
    if (!given.yes && !AskYes(question)) {
        std::cout << Tr("Nothing was dropped.") << '\n';
        return kDone;
    }
    return SubmitHeld(context, request);
}

// ---- export

fs::path FileFor(const Given& given, const std::string& profile, int id) {
    fs::path path = NativePath(TreePath(given.to));
    std::error_code ignored;
    if (!fs::is_directory(path, ignored)) return path;
    std::string name = profile + '-' + std::to_string(id) + ".eml";
    std::ranges::replace(name, '/', '-');
    return path / name;
}

void WriteOut(const fs::path& path, const std::string& message) {
    std::error_code error;
    const std::string shown = ShowPath(path.string());
    if (fs::symlink_status(path, error).type() != fs::file_type::not_found) {
        throw CommandError(kCannotMake, Tr("there is a file \"{0}\" already", shown));
    }
    std::ofstream file(path, std::ios::binary);
    fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write, error);
    file << message;
    if (!file.flush()) throw CommandError(kCannotWrite, Tr("cannot write \"{0}\"", shown));
}

int Export(const Context& context, const Given& given) {
    CRootPath root;
    OpenTree(root, RootDirectory(context.root_option));
    const CPopProfile& profile = *FindProfile(root, given.profile).profile;
    const std::vector<HeldRecord> chosen = Chosen(profile, given);
    std::error_code ignored;
    if (chosen.size() != 1 && !fs::is_directory(NativePath(TreePath(given.to)), ignored)) {
        throw CommandError(kBadUsage, Tr("several messages need a folder: --to DIR"));
    }
    for (const HeldRecord& record : chosen) {
        const std::optional<std::string> text = HeldStore(profile.path).Text(record.id);
        if (!text) throw CommandError(kCannotWrite, Tr("message {0} cannot be read", record.id));
        if (given.to == "-") {
            PassBytesToOutput();
            std::cout << MessageIn(*text);
        } else {
            WriteOut(FileFor(given, ShownName(root, profile.path), record.id), MessageIn(*text));
        }
    }
    return kDone;
}

// ---- the command line

constexpr const char* kIdsHelp = Marked("Their numbers, as `held list` shows them; without one, all");
constexpr const char* kAddressHelp = Marked("Only for this forwarding address: its mailbox or folder (forwardto0)");

using Command = int (*)(const Context&, const Given&);

CLI::App* AddHeld(CLI::App& group, Context& context, const std::string& name, const std::string& help, Command run,
                  const std::shared_ptr<Given>& given) {
    CLI::App* const command = group.add_subcommand(name, help);
    command->callback(
        [&context, given, run] { context.command = [&context, given, run] { return run(context, *given); }; });
    return command;
}

void AddProfile(CLI::App& command, Given& given) {
    command.add_option("PROFILE", given.profile, Tr("Path, nickname or address of the profile"))
        ->required()
        ->option_text(" ");
}

}  // namespace

int SendSetAside(const Context& context, const std::string& profile, const std::vector<int>& ids,
                 const std::string& address) {
    Given given;
    given.profile = profile;
    given.ids = ids;
    given.address = address;
    return Send(context, given);
}

void AddHeldCommands(CLI::App& app, Context& context) {
    CLI::App* const group =
        app.add_subcommand("held", Tr("Mail that was set aside: a server refused it, or a rule kept it."))
            ->require_subcommand(1);
    auto given = std::make_shared<Given>();

    CLI::App* command = AddHeld(*group, context, "list", Tr("List it."), List, given);
    AddProfileNames(*command, given->profiles);
    command->add_option("--address", given->address, Tr(kAddressHelp))->type_name("ADDRESS");
    command->add_flag("--json", given->json, Tr("Print JSON"));

    command = AddHeld(*group, context, "show", Tr("Show why a message was set aside, and its header."), Show, given);
    AddProfile(*command, *given);
    command->add_option("ID", given->ids, Tr("Its number, as `held list` shows it"))
        ->required()
        ->expected(1)
        ->check(WholeNumber(0, kAnyNumber));
    command->add_flag("--json", given->json, Tr("Print JSON"));

    command = AddHeld(*group, context, "send", Tr("Try to send it now."), Send, given);
    AddProfile(*command, *given);
    command->add_option("ID", given->ids, Tr(kIdsHelp))->check(WholeNumber(0, kAnyNumber));
    command->add_option("--address", given->address, Tr(kAddressHelp))->type_name("ADDRESS");
    command->footer(Tr(
        "What the server takes is gone from the list. Nothing else is lost. Schedules do not matter; an address that "
        "is "
        "switched off gets nothing."));

    command = AddHeld(*group, context, "drop", Tr("Delete it: it will never be sent."), Drop, given);
    AddProfile(*command, *given);
    command->add_option("ID", given->ids, Tr("Their numbers, as `held list` shows them"))
        ->check(WholeNumber(0, kAnyNumber));
    command->add_option("--address", given->address, Tr(kAddressHelp))->type_name("ADDRESS");
    command->add_flag("--all", given->all, Tr("All of the profile"));
    command->add_flag("--yes,-y", given->yes, Tr("Do not ask"));

    command = AddHeld(*group, context, "export", Tr("Write messages as files that mail programs open (.eml)."), Export,
                      given);
    AddProfile(*command, *given);
    command->add_option("ID", given->ids, Tr(kIdsHelp))->check(WholeNumber(0, kAnyNumber));
    command->add_option("--to", given->to, Tr("A new file, or a folder; without it standard output"))
        ->type_name("PATH");
}

}  // namespace tarvex::host
