// Commands that look at servers take their time, and may be ended: each is a process of its own.

#include <chrono>

#include "host/advice/field_names.h"
#include "host/desk/visit.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/program_output.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;

constexpr auto kStartPatience = 300ms;
constexpr auto kMostTime = 15min;

// In a process of its own, whose errors belong to what it prints.
std::vector<std::string> InShell(const DeskOptions& options, const std::vector<std::string>& command) {
    const char* const locale = SpokenLanguage() == Language::Japanese ? "ja_JP.UTF-8" : "C.UTF-8";
    std::vector<std::string> words = {"/bin/sh",
                                      "-c",
                                      "exec \"$@\" 2>&1",
                                      "sh",
                                      "/usr/bin/env",
                                      std::string("LC_ALL=") + locale,
                                      "LANGUAGE=",
                                      "NO_COLOR=1",
                                      std::string(kReaderVariable) + "=console",
                                      options.program,
                                      "--root",
                                      options.directory};
    words.insert(words.end(), command.begin(), command.end());
    return words;
}

std::pair<int, std::string> RunCommand(JobVoice& voice, const std::vector<std::string>& words) {
    const ProgramOutput output = OutputOf(
        words, kMostTime, Jobs::kMostPrinted_bytes, [&voice] { return voice.Stops(); }, {},
        [&voice](std::string_view piece) { voice.Print(piece); });
    return {output.trouble.empty() ? kDone : kSomethingFails, {}};
}

}  // namespace

Json AnswerCommand(Visit& visit, const std::string& what, const std::string& about,
                   const std::vector<std::string>& command) {
    JobState state;
    state.what = what;
    state.about = about;
    const auto words = InShell(visit.Parts().options, command);
    const std::string job = visit.Parts().jobs.Begin(
        visit.WhoPath(), std::move(state), [words](JobVoice& voice) { return RunCommand(voice, words); },
        kStartPatience);
    if (job.empty()) throw Refusal{"busy", {}};
    return AnswerJob(visit, job);
}

}  // namespace tarvex::host
