// `tarvex schedule`: when a forwarding address takes part.

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstddef>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "host/commands/arguments/key_options.h"
#include "host/commands/arguments/submit.h"
#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/service/service_connection.h"
#include "host/system/command_error.h"
#include "host/terminal/typed_word.h"
#include "host/terminal/wording.h"
#include "host/tree/listing.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

constexpr const char* kForwardHelp =
    Marked("Path (user0/from0/forwardto0), nickname or address of the forwarding address");

struct Given {
    std::string forward;
    std::vector<std::string> words;
    bool json = false;

    // A term need not be quoted.
    std::string Joined() const {
        std::string text;
        for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
        return text;
    }
};

// Of the service where one runs the tree: its zone may be another one.
std::string ZoneOfSchedules(const std::string& directory) {
    try {
        if (const auto service = ServiceConnection::Try(directory)) return service->Report().zone;
    } catch (const CommandError&) {
        // It does not answer: `tarvex status` says so.
    }
    return ShowZone();
}

// Nothing for all of them.
std::optional<std::size_t> TermNumber(const std::string& word) {
    if (word == "all") return std::nullopt;
    std::size_t number = 0;
    const char* const end = word.data() + word.size();
    const auto [rest, error] = std::from_chars(word.data(), end, number);
    if (error == std::errc() && rest == end) return number;
    throw CommandError(kBadUsage,
                       Tr("{0} is no number of a term; write one of `tarvex schedule list`, or all", Quoted(word)));
}

}  // namespace

void AddScheduleCommands(CLI::App& app, Context& context) {
    CLI::App* const group = app.add_subcommand("schedule", Tr("Schedules: when a forwarding address takes part."));
    group->require_subcommand(1);
    group->footer(Tr("An address takes part in a run that begins while one of its terms holds; without terms always."));
    auto given = std::make_shared<Given>();
    const auto add = [&](const char* name, const std::string& help) {
        CLI::App* const command = group->add_subcommand(name, help);
        command->add_option("FORWARD", given->forward, Tr(kForwardHelp))->required()->option_text(" ");
        return command;
    };

    CLI::App* const add_term = add("add", Tr("Add a term, and say what it will do."));
    add_term
        ->add_option("TERM", given->words,
                     Tr("Days and times: mon-fri 9:00-17:30, sat,sun 10:00-12:00, daily 22:00-6:00, sunday; or a "
                        "period: 2026-12-24 18:00 .. 2026-12-26 9:00"))
        ->required()
        ->option_text(" ");
    add_term->callback([&context, given] {
        context.command = [&context, given] {
            EditRequest request(EditKind::Schedule, EditVerb::Add, given->forward);
            request.terms = given->Joined();
            return Submit(context, request);
        };
    });

    CLI::App* const list = add("list", Tr("List the terms, numbered, and say what each does."));
    list->add_flag("--json", given->json, Tr("As JSON"));
    list->callback([&context, given] {
        context.command = [&context, given] {
            CRootPath root;
            OpenTree(root, RootDirectory(context.root_option));
            ListSchedule(root, given->forward, given->json ? Form::Json : Form::Text);
            if (!given->json) std::cout << Tr("Times are in {0}.", ZoneOfSchedules(root.path)) << '\n';
            return kDone;
        };
    });

    const auto add_for_term = [&](EditVerb verb, const std::string& help) {
        CLI::App* const command = add(kEditVerbs[static_cast<std::size_t>(verb)].data(), help);
        command->add_option("NUMBER", given->words, Tr("Its number in the list, or all"))
            ->required()
            ->expected(1)
            ->option_text(" ");
        command->callback([&context, given, verb] {
            context.command = [&context, given, verb] {
                EditRequest request(EditKind::Schedule, verb, given->forward);
                request.term_number = TermNumber(given->Joined());
                return Submit(context, request);
            };
        });
    };
    add_for_term(EditVerb::SwitchOn, Tr("Switch a term on."));
    add_for_term(EditVerb::SwitchOff,
                 Tr("Switch a term off: it stays in the list, and lets the address take part no more."));
    add_for_term(EditVerb::Remove, Tr("Remove a term."));
}

}  // namespace tarvex::host
