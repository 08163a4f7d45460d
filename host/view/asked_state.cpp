// Asks the service, where there is one, and adds what it says to what the files say.

#include "host/view/asked_state.h"

#include <algorithm>

#include "host/history/run_words.h"
#include "host/language/tr.h"
#include "host/service/service_connection.h"
#include "host/system/command_error.h"

namespace tarvex::host {
namespace {

void AddReport(const std::string& directory, std::chrono::milliseconds patience, AskedState& tree) {
    ServiceReport report;
    try {
        const auto service = ServiceConnection::Try(directory);
        if (!service) return;
        tree.service = ServiceState::Silent;
        report = service->Report(patience);
        tree.service = ServiceState::Answers;
    } catch (const CommandError& error) {
        if (error.ExitCode() == kTryLater) tree.service = ServiceState::Silent;
        return;
    }
    if (report.is_paused) tree.held_back = Tr(kServiceIsPaused);
    if (report.old_copy) tree.held_back = WhyHeldBack(*report.old_copy);
    for (ProfileState& state : tree.profiles) {
        if (state.switched_on && state.trouble.empty()) state.trouble = tree.held_back;
        const auto run = std::ranges::find(report.runs, state.name, &RunNow::profile);
        if (run != report.runs.end()) state.running = *run;
        const auto trouble = report.troubles.find(state.name);
        if (trouble == report.troubles.end()) continue;
        state.trouble = trouble->second;
        const std::string unsaved = state.history ? WhatIsNotSaved(state.history->last.result) : "";
        if (!unsaved.empty()) state.trouble += " (" + unsaved + ')';
    }
}

}  // namespace

AskedState AskForState(const CRootPath& root, const std::vector<std::string>& names, const std::string& directory,
                       std::chrono::milliseconds patience) {
    return AskForState(root, ChosenProfiles(root, names), directory, patience);
}

AskedState AskForState(const CRootPath& root, const std::vector<NamedProfile>& profiles, const std::string& directory,
                       std::chrono::milliseconds patience) {
    AskedState tree{StateOf(root, profiles, directory)};
    AddReport(directory, patience, tree);
    return tree;
}

}  // namespace tarvex::host
