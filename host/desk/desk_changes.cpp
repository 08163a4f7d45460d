// Changes: the same edits and runs that the commands ask for, by the same way, after the rights of the user.

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <optional>

#include "host/desk/asked_edit.h"
#include "host/desk/visit.h"
#include "host/held/held_work.h"
#include "host/language/tr.h"
#include "host/service/service_connection.h"
#include "host/settings/schedule_text.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/program_output.h"
#include "host/tree/names.h"
#include "host/tree/tree_root.h"
#include "host/view/mail_json.h"
#include "host/view/mailbox_ids.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;

constexpr auto kStartPatience = 300ms;
constexpr auto kHeldPatience = 3000ms;
constexpr auto kMostTime = 15min;  // of a job in a process of its own

// What is in the mailbox of the profile that the edit is about, for it to count as handled. A server may be slow: none
// of the few threads that answer questions waits for it. Throws Refusal; what it returns throws CommandError.
std::function<void(EditRequest&)> AddIds(const Visit& visit, const EditRequest& edit) {
    const bool is_address = edit.kind == EditKind::Forward && edit.verb != EditVerb::Add;
    const std::string path = is_address ? edit.name.substr(0, edit.name.rfind('/')) : edit.name;
    visit.ProfileCalled(path);
    return [directory = visit.Directory(), path](EditRequest& request) {
        CRootPath root;
        OpenTree(root, directory);
        if (!HasPath(root, path))
            throw CommandError(kNotFound, Tr("{0} has gone meanwhile; nothing was changed", path));
        request.uidls = IdsOnServer(*FindProfile(root, path).profile, Tr("nothing was changed"));
    };
}

// The words of a command about one profile, or nothing for a word that is none.
std::optional<std::vector<std::string>> CommandOf(const std::string& what, const std::string& profile) {
    if (what == "run") return std::vector<std::string>{"run", "--now", "--verbose", profile};
    if (what == "check") return std::vector<std::string>{"check", profile};
    if (what == "plan") return std::vector<std::string>{"plan", "--subjects", profile};
    return std::nullopt;
}

// In a process of its own, whose errors belong to what it prints.
std::vector<std::string> InShell(const DeskOptions& options, const std::vector<std::string>& command) {
    const char* const locale = SpokenLanguage() == Language::Japanese ? "ja_JP.UTF-8" : "C.UTF-8";
    std::vector<std::string> words = {
        "/bin/sh",   "-c",         "exec \"$@\" 2>&1", "sh",     "/usr/bin/env",   std::string("LC_ALL=") + locale,
        "LANGUAGE=", "NO_COLOR=1", options.program,    "--root", options.directory};
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

// An edit, as the commands know it.
Json AnswerChange(Visit& visit) {
    EditRequest request = AskedEdit(visit);
    const auto password = request.secrets.find("password");
    if (request.kind == EditKind::User && password != request.secrets.end()) RequireGoodPassword(password->second);
    const bool skips_all = request.verb == EditVerb::CatchUp && request.uidls.empty();
    if (!skips_all && !visit.Flag("new_mail_only")) return AnswerEdit(visit, std::move(request));
    const auto add_ids = AddIds(visit, request);
    return AnswerEdit(visit, std::move(request), add_ids);
}

// The week of an address, as a grid of half hours: seven texts of 48 digits from Sunday.
Json AnswerWeek(Visit& visit) {
    const NamedForward named = visit.ForwardCalled(visit.Text("name"));
    const std::vector<std::string> days = visit.List("days");
    Week week;
    if (days.size() != week.size()) throw Refusal{"bad", {}};
    for (std::size_t i = 0; i < week.size(); ++i) {
        if (days[i].size() != kSlotsADay) throw Refusal{"bad", {}};
        for (std::size_t slot = 0; slot < kSlotsADay; ++slot) week[i].set(slot, days[i][slot] == '1');
    }
    const auto& terms = named.forward->schedule.terms;
    const bool has_dates = std::ranges::any_of(terms, [](const auto& term) { return term->kind == TERM_DEFINED_TERM; });
    if (!has_dates && std::ranges::all_of(week, [](const auto& day) { return day.none(); }))
        throw Refusal{"refused", Tr("With no time at all nothing would be forwarded: switch the address off instead.")};
    EditRequest request(EditKind::Schedule, EditVerb::Set, visit.Text("name"));
    for (const CTerm& term : TermsOfWeek(week)) request.terms += WriteTerm(term) + '\n';
    if (request.terms.empty() && has_dates) request.terms = "daily\n";  // without it only the dates would count
    return AnswerEdit(visit, std::move(request));
}

// Sends or drops what is set aside of one profile: messages by their ids.
Json AnswerHeldChange(Visit& visit) {
    const NamedProfile named = visit.ProfileCalled(visit.Text("profile"));
    HeldRequest request;
    request.verb = ChoiceIn<HeldVerb>(visit.Text("verb"), kHeldVerbs);
    request.profile = ShownName(visit.Root(), named.profile->path);
    request.caller = visit.Caller();
    const std::vector<std::string> ids = visit.List("ids");
    for (const HeldRecord& record : HeldRecordsOf(*named.profile)) {
        if (std::ranges::find(ids, std::to_string(record.id)) == ids.end()) continue;
        if (!record.damage.empty()) {
            if (request.verb == HeldVerb::Drop) request.choice.push_back({record.id, {}, record.digest});
            continue;
        }
        for (const HeldAddress& waiting : record.addresses)
            request.choice.push_back({record.id, waiting.folder, record.digest});
    }
    if (request.choice.empty()) throw Refusal{"missing", {}};
    const auto work = [directory = visit.Directory(), request](JobVoice& voice) -> std::pair<int, std::string> {
        const auto service = ServiceConnection::Try(directory);
        if (!service) return {kTryLater, Tr("no service owns the tree")};
        Reply reply;
        const int code = service->Held(request, reply, [&voice](const std::string& note) { voice.Print(note + '\n'); });
        voice.Print(reply.printed);
        return {code, reply.error};
    };
    JobState state;
    state.what = "held " + visit.Text("verb");
    state.about = request.profile;
    const std::string job = visit.Parts().jobs.Begin(visit.WhoPath(), std::move(state), work, kHeldPatience);
    if (job.empty()) throw Refusal{"busy", {}};
    return AnswerJob(visit, job);
}

// A run, a check or a plan of one profile.
Json AnswerStart(Visit& visit) {
    const std::string profile = ShownName(visit.Root(), visit.ProfileCalled(visit.Text("profile")).profile->path);
    const auto command = CommandOf(visit.Text("what"), profile);
    if (!command) throw Refusal{"bad", {}};
    JobState state;
    state.what = visit.Text("what");
    state.about = profile;
    const auto words = InShell(visit.Parts().options, *command);
    const std::string job = visit.Parts().jobs.Begin(
        visit.WhoPath(), std::move(state), [words](JobVoice& voice) { return RunCommand(voice, words); },
        kStartPatience);
    if (job.empty()) throw Refusal{"busy", {}};
    return AnswerJob(visit, job);
}

Json AnswerJobState(Visit& visit) { return AnswerJob(visit, visit.Text("job")); }

}  // namespace tarvex::host
