// Commands that look at servers take their time, and may be ended: each is a process of its own, whose errors belong to
// what it prints.

#include <chrono>

#include "host/advice/field_names.h"
#include "host/desk/visit.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/paths.h"
#include "host/system/program_output.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;

constexpr auto kStartPatience = 300ms;
constexpr auto kMostTime = 15min;

std::pair<int, std::string> RunCommand(JobVoice& voice, const std::vector<std::string>& words, Language language) {
    ProgramManner manner;
    const char* const locale = language == Language::Japanese ? "ja_JP.UTF-8" : "C.UTF-8";
    manner.variables = {std::string("LC_ALL=") + locale, "LANGUAGE=", "NO_COLOR=1",
                        std::string(kReaderVariable) + "=console"};
    manner.with_errors = true;
    manner.on_piece = [&voice](std::string_view piece) {
        std::string text(piece);
        std::erase(text, '\r');  // of the line ends of Windows
        voice.Print(text);
    };
    const ProgramOutput output = OutputOf(
        words, kMostTime, Jobs::kMostPrinted_bytes, [&voice] { return voice.Stops(); }, manner);
    return {output.trouble.empty() ? kDone : kSomethingFails, {}};
}

}  // namespace

Json AnswerCommand(Visit& visit, const std::string& what, const std::string& about,
                   const std::vector<std::string>& command) {
    JobState state;
    state.what = what;
    state.about = about;
    const DeskOptions& options = visit.Parts().options;
    std::vector<std::string> words = {options.program, "--root", PathAsUtf8(options.directory)};
    words.insert(words.end(), command.begin(), command.end());
    const std::string job = visit.Parts().jobs.Begin(
        visit.WhoPath(), std::move(state),
        [words, language = SpokenLanguage()](JobVoice& voice) { return RunCommand(voice, words, language); },
        kStartPatience);
    if (job.empty()) throw Refusal{"busy", {}};
    return AnswerJob(visit, job);
}

}  // namespace tarvex::host
