// `tarvex log`: shows the log of a profile, and what comes to it.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "host/commands/arguments/usage.h"
#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/settings/file_names.h"
#include "host/system/command_error.h"
#include "host/system/paths.h"
#include "host/tree/log_reader.h"
#include "host/tree/names.h"
#include "host/tree/tree_root.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr std::chrono::milliseconds kPoll{200};
constexpr std::chrono::seconds kFresh{3};
constexpr std::size_t kLinesBeforeFollowing = 10;

using Lines = std::vector<std::string>;

void PrintLast(const Lines& lines, std::size_t count) {
    for (std::size_t i = lines.size() - std::min(count, lines.size()); i < lines.size(); ++i) {
        std::cout << ShowLogLine(lines, i) << '\n';
    }
    if (!std::cout.flush()) throw CommandError(kCannotWrite, Tr("cannot write to standard output"));
}

// A run replaces the log as a whole, by a new file of the same name: that the time of the last change is another one
// tells it, since nobody writes into the file that is there.
std::optional<std::filesystem::file_time_type> LastChange(const CString& profile_path) {
    std::error_code error;
    const auto time = std::filesystem::last_write_time(NativePath(FileIn(profile_path, kLogFile)), error);
    return error ? std::nullopt : std::optional(time);
}

// Where times are whole seconds, the next change may have the same one.
bool IsFresh(std::filesystem::file_time_type change) {
    return std::filesystem::file_time_type::clock::now() - change < kFresh;
}

[[noreturn]] void Follow(const CString& profile_path, std::optional<std::filesystem::file_time_type> seen,
                         Lines shown) {
    for (;;) {
        std::this_thread::sleep_for(kPoll);
        const auto change = LastChange(profile_path);
        if (!change || (change == seen && !IsFresh(*change))) continue;
        const std::optional<Lines> now = ReadLog(profile_path);
        if (!now) continue;
        seen = change;
        PrintLast(*now, CountNewLines(shown, *now));
        shown = *now;
    }
}

struct Options {
    std::string name;
    std::optional<std::size_t> count;
    bool follow = false;
};

int Log(const Context& context, const Options& options) {
    CRootPath root;
    OpenTree(root, RootDirectory(context.root_option));
    const CPopProfile& profile = *FindProfile(root, options.name).profile;
    if (profile.setting.logmode == 0) {
        std::cerr << "tarvex: " << Tr("the log of this profile is switched off (logmode 0)") << '\n';
    }
    const auto change = LastChange(profile.path);  // before the log is read, so that nothing is missed
    const std::optional<Lines> lines = ReadLog(profile.path);
    if (!lines && !options.follow) {
        throw CommandError(kNotFound,
                           Tr("{0} has no log yet: a run writes it at its end", ShownName(root, profile.path)));
    }
    const std::size_t all = lines ? lines->size() : 0;
    PrintLast(lines.value_or(Lines()), options.count.value_or(options.follow ? kLinesBeforeFollowing : all));
    if (options.follow) Follow(profile.path, change, lines.value_or(Lines()));
    return kDone;
}

}  // namespace

void AddLogCommand(CLI::App& app, Context& context) {
    CLI::App* const log = app.add_subcommand("log", Tr("Show the log of a profile."));
    auto options = std::make_shared<Options>();
    log->add_option("PROFILE", options->name, Tr("Path, nickname or address of the profile"))->required();
    log->add_option("-n,--lines", options->count, Tr("Only the last N lines"))
        ->check(WholeNumber(0, kAnyNumber))
        ->type_name("N");
    log->add_flag("-f,--follow", options->follow, Tr("Go on showing what each run adds, until interrupted"));
    log->callback([&context, options] { context.command = [&context, options] { return Log(context, *options); }; });
}

}  // namespace tarvex::host
