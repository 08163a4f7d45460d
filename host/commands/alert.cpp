// `tarvex alert`: whether those who are to be told of trouble can be told.

#include <CLI/CLI.hpp>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "host/alerts/alerts.h"
#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/process.h"
#include "host/tree/names.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

int Test(const Context& context, const std::string& profile) {
    CRootPath root;
    OpenTree(root, RootDirectory(context.root_option));
    std::vector<std::string> names;
    if (!profile.empty()) names.push_back(profile);
    CPopProfile copy;
    CatchTermination();
    const Sending sending{copy, [] { return CaughtSignal() != 0; }};
    const std::vector<TestOutcome> outcomes =
        SendTestAlerts(root, ChosenProfiles(root, names), !names.empty(), std::time(nullptr), sending);
    if (CaughtSignal() != 0) return 128 + CaughtSignal();
    if (outcomes.empty()) {
        throw CommandError(kNotFound,
                           Tr("nobody is told of trouble; name somebody with `tarvex rules set --alert_to ADDRESS`"));
    }
    int code = kDone;
    for (const auto& [reader, outcome] : outcomes) {
        if (outcome.why.empty()) {
            std::cout << Tr("{0}: told, through {1}", reader, outcome.through) << '\n';
        } else {
            std::cout << Tr("{0}: not told: {1}", reader, outcome.why) << '\n';
            code = kUnavailable;
        }
    }
    if (code != kDone) throw CommandError(code, Tr("not everybody could be told"));
    return code;
}

}  // namespace

void AddAlertCommands(CLI::App& app, Context& context) {
    CLI::App* const group =
        app.add_subcommand("alert", Tr("Who is told when something is wrong (alert_to and its like in host.def)."))
            ->require_subcommand(1);
    CLI::App* const test = group->add_subcommand("test", Tr("Send a test alert to everybody who is told."));
    auto profile = std::make_shared<std::string>();
    test->add_option("PROFILE", *profile, Tr("Only to those of this profile: its path, nickname or address"))
        ->option_text(" ");
    test->footer(Tr("It ends with 69 when somebody could not be told."));
    test->callback([&context, profile] { context.command = [&context, profile] { return Test(context, *profile); }; });
}

}  // namespace tarvex::host
