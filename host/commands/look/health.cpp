// `tarvex health`: one line and an exit code for a monitoring system, a cluster manager or a container.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "host/commands/arguments/profile_arguments.h"
#include "host/commands/arguments/submit.h"
#include "host/commands/arguments/usage.h"
#include "host/commands/commands.h"
#include "host/history/run_words.h"
#include "host/language/tr.h"
#include "host/service/service_connection.h"
#include "host/system/command_error.h"
#include "host/terminal/wording.h"
#include "host/tree/tree_root.h"
#include "host/view/asked_state.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 1200ms;  // with the service: all is said within 2 s
constexpr std::int64_t kManyFailures = 3;
constexpr CTime kMinute = 60;
constexpr std::size_t kMostNamed = 3;
constexpr std::size_t kReasonColumns = 60;

// As monitoring plugins have it.
enum class Health { Ok = 0, Warning = 1, Critical = 2, Unknown = 3 };
constexpr std::array kHealthWords = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};

struct Options {
    std::vector<std::string> names;
    int max_age_minutes = 0;  // 0: three intervals of each profile, and ten minutes
    bool service_alone = false;
};

struct Finding {
    Health health = Health::Ok;
    std::string words;
};

// Whether it should have run well by now. How often a profile runs at every call, nobody knows but who makes the calls.
bool IsLate(const ProfileState& state, ServiceState service, const Options& options, CTime now) {
    const CTime interval = std::max<CTime>(state.next_due - state.last_due, 0);
    if (interval == 0 && service == ServiceState::None && options.max_age_minutes == 0) return false;
    const CTime most = options.max_age_minutes > 0 ? options.max_age_minutes * kMinute : 3 * interval + 10 * kMinute;
    const CTime last_good = state.history ? state.history->last_good : 0;
    const CTime since = last_good != 0 ? last_good : state.last_due;
    return !state.running && since != 0 && since <= now && now - since > most;
}

Finding Judge(const ProfileState& state, ServiceState service, const Options& options, CTime now) {
    if (!state.switched_on) return {};
    if (!state.trouble.empty()) return {Health::Critical, state.name + ": " + state.trouble};
    const std::int64_t failed = state.history ? state.history->failed_in_a_row : 0;
    const bool is_late = IsLate(state, service, options, now);
    if (failed > 0) {
        return {failed >= kManyFailures || is_late ? Health::Critical : Health::Warning,
                Tr("{0} fails since {1}: {2}", state.name, ShowTime(state.history->failing_since),
                   ShowReason(state.history->last.result, kReasonColumns))};
    }
    if (is_late) return {Health::Critical, Tr("{0} has not run when it was due", state.name)};
    if (WantsAPerson(state)) return {Health::Warning, Tr("{0} waits for a person", state.name)};
    if (!state.held.IsEmpty()) return {Health::Warning, state.name + ": " + ShowHeld(state.held)};
    return {};
}

void Say(Health health, const std::string& words, const std::string& figures = {}) {
    std::cout << "TARVEX " << kHealthWords[static_cast<std::size_t>(health)] << " - " << words;
    if (!figures.empty()) std::cout << " | " << figures;
    std::cout << '\n';
}

// The worst first.
std::string WordsOf(std::vector<Finding> findings, std::size_t profiles) {
    if (findings.empty()) return TrN("{0} profile", "{0} profiles", static_cast<std::int64_t>(profiles));
    std::ranges::stable_sort(findings, std::greater(), &Finding::health);
    std::string words;
    for (std::size_t i = 0; i < std::min(findings.size(), kMostNamed); ++i)
        words += (i == 0 ? "" : "; ") + findings[i].words;
    if (findings.size() > kMostNamed) words += Tr("; and {0} more", findings.size() - kMostNamed);
    std::ranges::replace(words, '|', '/');  // behind which the figures stand
    return words;
}

Health Look(const Context& context, const Options& options) {
    CRootPath root;
    const std::string directory = RootDirectory(context.root_option);
    OpenTree(root, directory);
    const AskedState tree = AskForState(root, options.names, directory, kPatience);
    const CTime now = std::time(nullptr);
    std::vector<Finding> findings;
    if (tree.service == ServiceState::Silent) findings.push_back({Health::Critical, Tr("the service does not answer")});
    if (!tree.held_back.empty()) findings.push_back({Health::Critical, tree.held_back});
    if (!tree.trouble.empty()) findings.push_back({Health::Warning, tree.trouble});
    std::size_t failing = 0;
    std::int64_t held = 0;
    for (const ProfileState& state : tree.profiles) {
        const bool is_told = !tree.held_back.empty() && state.trouble == tree.held_back;
        Finding finding = is_told ? Finding() : Judge(state, tree.service, options, now);
        if (finding.health != Health::Ok) findings.push_back(std::move(finding));
        failing += state.history && state.history->failed_in_a_row > 0 ? 1 : 0;
        held += state.held.messages;
    }
    const Health worst = findings.empty() ? Health::Ok : std::ranges::max(findings, {}, &Finding::health).health;
    Say(worst, WordsOf(std::move(findings), tree.profiles.size()),
        "profiles=" + std::to_string(tree.profiles.size()) + " failing=" + std::to_string(failing) +
            " held=" + std::to_string(held));
    return worst;
}

// What a cluster manager or a container asks before it starts the service anew: that mends no mailbox.
Finding JudgeService(const std::string& directory) {
    try {
        const auto service = ServiceConnection::Try(directory);
        if (!service) return {Health::Critical, Tr("no service runs the tree")};
        static_cast<void>(service->Report(kPatience));
        return {Health::Ok, Tr("the service answers")};
    } catch (const CommandError& error) {
        if (error.ExitCode() != kTryLater) throw;
        return {Health::Critical, Tr("the service does not answer")};
    }
}

Health LookAtService(const Context& context) {
    const Finding finding = JudgeService(RootDirectory(context.root_option));
    Say(finding.health, finding.words);
    return finding.health;
}

// What is listed below a sentence, behind it.
std::string InOneLine(std::string text) {
    for (std::size_t end = 0; (end = text.find("\n  ")) != std::string::npos;)
        text.replace(end, 3, text[end - 1] == ':' ? " " : ", ");
    return text;
}

int ShowHealth(const Context& context, const Options& options) {
    const Speaking english(Language::English);  // as monitoring has it
    try {
        return static_cast<int>(options.service_alone ? LookAtService(context) : Look(context, options));
    } catch (const CommandError& error) {
        Say(Health::Unknown, InOneLine(error.what()));
        return static_cast<int>(Health::Unknown);
    }
}

}  // namespace

void AddHealthCommand(CLI::App& app, Context& context) {
    CLI::App* const health =
        app.add_subcommand("health", Tr("Say in one line whether all is well, for monitoring systems."));
    health->footer(Tr(
        "It ends with 0 when all is well; with 1 when a run has failed, mail is set aside or a profile waits for a "
        "person; with 2 when a profile has failed three times in a row, is not run or has not run when it was due, or "
        "the service does not answer; with 3 when the tree cannot be looked at. Within two seconds, also when the "
        "service is halted."));
    auto options = std::make_shared<Options>();
    AddProfileNames(*health, options->names);
    CLI::Option* const age =
        health
            ->add_option("--max-age", options->max_age_minutes,
                         Tr("How long ago the last good run may be; without it three intervals and ten minutes"))
            ->type_name("MINUTES")
            ->check(WholeNumber(1, 1'000'000, Tr("minutes")));
    health
        ->add_flag("--service", options->service_alone,
                   Tr("Only whether the service answers, whatever its mailboxes do: 0, or 2 when there is none"))
        ->excludes(age);
    health->callback(
        [&context, options] { context.command = [&context, options] { return ShowHealth(context, *options); }; });
}

}  // namespace tarvex::host
