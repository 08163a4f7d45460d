// `tarvex schedule`: when a forwarding address takes part.

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "host/commands/commands.h"
#include "host/commands/key_options.h"
#include "host/commands/submit.h"
#include "host/system/command_error.h"
#include "host/tree/listing.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

constexpr const char* kForwardHelp = "Path (user0/from0/forwardto0), nickname or address of the forwarding address";

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

}  // namespace

void AddScheduleCommands(CLI::App& app, Context& context) {
    CLI::App* const group = app.add_subcommand("schedule", "Schedules: when a forwarding address takes part.");
    group->require_subcommand(1);
    group->footer("An address takes part in a run that begins while one of its terms holds; without terms always.");
    auto given = std::make_shared<Given>();
    const auto add = [&](const char* name, const char* help) {
        CLI::App* const command = group->add_subcommand(name, help);
        command->add_option("FORWARD", given->forward, kForwardHelp)->required()->option_text(" ");
        return command;
    };

    CLI::App* const add_term = add("add", "Add a term, and say what it will do.");
    add_term
        ->add_option("TERM", given->words,
                     "Days and times: mon-fri 9:00-17:30, sat,sun 10:00-12:00, daily 22:00-6:00, sunday; or a "
                     "period: 2026-12-24 18:00 .. 2026-12-26 9:00")
        ->required()
        ->option_text(" ");
    add_term->callback([&context, given] {
        context.command = [&context, given] {
            return Submit(context, {{"schedule", "add", given->forward, given->Joined()}, {}, {}});
        };
    });

    CLI::App* const list = add("list", "List the terms, numbered, and say what each does.");
    list->add_flag("--json", given->json, "As JSON");
    list->callback([&context, given] {
        context.command = [&context, given] {
            CRootPath root;
            OpenTree(root, RootDirectory(context.root_option));
            ListSchedule(root, given->forward, given->json ? Form::Json : Form::Text);
            return kDone;
        };
    });

    const auto add_for_term = [&](const char* name, const char* help) {
        CLI::App* const command = add(name, help);
        command->add_option("NUMBER", given->words, "Its number in the list, or all")
            ->required()
            ->expected(1)
            ->option_text(" ");
        command->callback([&context, given, name] {
            context.command = [&context, given, name] {
                return Submit(context, {{"schedule", name, given->forward, given->Joined()}, {}, {}});
            };
        });
    };
    add_for_term("on", "Switch a term on.");
    add_for_term("off", "Switch a term off: it stays in the list, and lets the address take part no more.");
    add_for_term("remove", "Remove a term.");
}

}  // namespace tarvex::host
