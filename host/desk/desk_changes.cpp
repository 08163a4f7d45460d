// Changes: the same edits and runs that the commands ask for, by the same way, after the rights of the user.

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <map>
#include <optional>

#include "host/desk/answers/parts.h"
#include "host/desk/asked_edit.h"
#include "host/desk/visit.h"
#include "host/held/held_work.h"
#include "host/language/tr.h"
#include "host/service/service_connection.h"
#include "host/settings/schedule_text.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/tree/names.h"
#include "host/tree/tree_root.h"
#include "host/view/mail_json.h"
#include "host/view/mailbox_ids.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;

constexpr auto kHeldPatience = 3000ms;

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

// For one address, or for all that wait.
HeldRequest HeldRequestOf(const Visit& visit, HeldVerb verb, const CPopProfile& profile,
                          const std::vector<HeldRecord>& records, const CForwardAddress* address) {
    HeldRequest request;
    request.verb = verb;
    request.profile = ShownName(visit.Root(), profile.path);
    request.caller = visit.Caller();
    for (const HeldRecord& record : records) {
        if (!record.damage.empty() && verb == HeldVerb::Drop) request.choice.push_back({record.id, {}, record.digest});
        if (!record.damage.empty()) continue;
        for (const HeldAddress& waiting : record.addresses)
            if (!address || IsOf(waiting, *address))
                request.choice.push_back({record.id, waiting.folder, record.digest});
    }
    return request;
}

// One profile after the other; what goes wrong with one keeps the others from nothing.
std::pair<int, std::string> ChangeHeld(JobVoice& voice, const std::string& directory,
                                       const std::vector<HeldRequest>& requests) {
    std::pair<int, std::string> ended{kDone, {}};
    for (const HeldRequest& request : requests) {
        const auto service = ServiceConnection::Try(directory);
        if (!service) return {kTryLater, Tr("no service owns the tree")};
        Reply reply;
        const int code = service->Held(request, reply, [&voice](const std::string& note) { voice.Print(note + '\n'); });
        voice.Print(reply.printed);
        if (code != kDone) ended = {code, reply.error};
    }
    return ended;
}

Json BeginHeld(Visit& visit, std::vector<HeldRequest> requests) {
    if (requests.empty()) throw Refusal{"missing", {}};
    JobState state;
    state.what = std::string("held ").append(kHeldVerbs[static_cast<std::size_t>(requests.front().verb)]);
    state.about = requests.size() == 1 ? requests.front().profile : "";
    const std::string job = visit.Parts().jobs.Begin(
        visit.WhoPath(), std::move(state),
        [directory = visit.Directory(), requests = std::move(requests)](JobVoice& voice) {
            return ChangeHeld(voice, directory, requests);
        },
        kHeldPatience);
    if (job.empty()) throw Refusal{"busy", {}};
    return AnswerJob(visit, job);
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

// Sends or drops messages that are set aside, "user0/from0/1" each.
Json AnswerHeldChange(Visit& visit) {
    const auto verb = ChoiceIn<HeldVerb>(visit.Text("verb"), kHeldVerbs);
    std::map<std::string, std::vector<std::string>> ids;  // by profile
    for (const std::string& mail : visit.List("mails")) {
        const std::size_t slash = std::min(mail.rfind('/'), mail.size());
        ids[mail.substr(0, slash)].push_back(mail.substr(std::min(slash + 1, mail.size())));
    }
    std::vector<HeldRequest> requests;
    for (const auto& [profile, chosen] : ids) {
        const NamedProfile named = visit.ProfileCalled(profile);
        std::vector<HeldRecord> records = HeldRecordsOf(*named.profile);
        std::erase_if(records, [&, &wanted = chosen](const HeldRecord& record) {
            return std::ranges::find(wanted, std::to_string(record.id)) == wanted.end();
        });
        HeldRequest request = HeldRequestOf(visit, verb, *named.profile, records, nullptr);
        if (!request.choice.empty()) requests.push_back(std::move(request));
    }
    return BeginHeld(visit, std::move(requests));
}

// A message of the history goes out once more, to all or to one address: from where it is set aside, else out of the
// mailbox.
Json AnswerResend(Visit& visit) {
    const CalledMail called = MailCalled(visit);
    const CString& id = called.found.mail.uidl;
    if (!called.profile || id.empty()) throw Refusal{"missing", {}};
    const CPopProfile& profile = *called.profile->profile;
    const std::string path = ShownName(visit.Root(), profile.path);
    const std::string to = visit.Text("to");
    const CForwardAddress* const address = to.empty() ? nullptr : visit.ForwardCalled(to).forward;
    if (address && to.substr(0, to.rfind('/')) != path) throw Refusal{"missing", {}};
    if (const std::vector<HeldRecord> held = HeldOf(profile, id, address); !held.empty())
        return BeginHeld(visit, {HeldRequestOf(visit, HeldVerb::Send, profile, held, address)});
    EditRequest request(address ? EditKind::Forward : EditKind::Profile, EditVerb::Resend, address ? to : path);
    RequireAllowed(visit, request);
    request.uidls = {id};
    const auto require_id = [add_ids = AddIds(visit, request), id](EditRequest& edit) {
        add_ids(edit);
        const bool is_there = std::ranges::find(edit.uidls, id) != edit.uidls.end();
        edit.uidls = {id};
        if (!is_there)
            throw CommandError(kNotFound,
                               Tr("It is neither in the mailbox nor set aside any more: it cannot be sent again."));
    };
    return AnswerEdit(visit, std::move(request), require_id);
}

// A run, a check or a plan of one profile.
Json AnswerStart(Visit& visit) {
    const std::string profile = ShownName(visit.Root(), visit.ProfileCalled(visit.Text("profile")).profile->path);
    const auto command = CommandOf(visit.Text("what"), profile);
    if (!command) throw Refusal{"bad", {}};
    return AnswerCommand(visit, visit.Text("what"), profile, *command);
}

Json AnswerJobState(Visit& visit) { return AnswerJob(visit, visit.Text("job")); }

}  // namespace tarvex::host
