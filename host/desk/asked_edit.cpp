// Reads the edit of a question, and judges it.

#include "host/desk/asked_edit.h"

#include "host/desk/rights.h"
#include "host/language/tr.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMostTerms_bytes = 16 << 10;

// Throws Refusal when what the edit names is not there for this user.
void RequireVisible(const Visit& visit, const EditRequest& request) {
    const bool adds = request.verb == EditVerb::Add;
    const std::string& name = request.name;
    switch (request.kind) {
        case EditKind::User:
            if (!adds) visit.UserCalled(name);
            return;
        case EditKind::Profile:
            adds ? static_cast<void>(visit.UserCalled(name)) : static_cast<void>(visit.ProfileCalled(name));
            return;
        case EditKind::Forward:
            adds ? static_cast<void>(visit.ProfileCalled(name)) : static_cast<void>(visit.ForwardCalled(name));
            return;
        case EditKind::Schedule:
            visit.ForwardCalled(name);
            return;
        case EditKind::Rules:
            if (name.find('/') != std::string::npos) {
                visit.ProfileCalled(name);
            } else if (!name.empty()) {
                visit.UserCalled(name);
            }
            return;
        case EditKind::Tree:
            return;
    }
}

void RequireRight(const Visit& visit, const EditRequest& request) {
    switch (RightTo(request, visit.IsAdministrator())) {
        case Right::May:
            return;
        case Right::OnlyAdministrators:
            throw Refusal{"forbidden", Tr("Only an administrator may change that.")};
        case Right::OnlyOnTheMachine:
            throw Refusal{"forbidden", Tr("That is changed on the machine itself, with the command `tarvex`.")};
    }
}

void InheritSecrets(const Visit& visit, EditRequest& request) {
    const auto job = visit.Parts().jobs.Of(visit.WhoPath(), visit.Text("draft"));
    if (!job || !job->draft) return;
    const EditRequest& draft = *job->draft;
    const bool is_same = draft.kind == request.kind && draft.verb == request.verb && draft.name == request.name;
    if (is_same) request.secrets.insert(draft.secrets.begin(), draft.secrets.end());
}

}  // namespace

void RequireAllowed(const Visit& visit, const EditRequest& request) {
    RequireVisible(visit, request);
    RequireRight(visit, request);
    RequireNotOneself(visit, request);
    if (request.kind == EditKind::User && request.verb == EditVerb::Add) RequireNewUsersAllowed();
}

EditRequest AskedEdit(const Visit& visit) {
    EditRequest request(ChoiceIn<EditKind>(visit.Text("kind"), kEditKinds),
                        ChoiceIn<EditVerb>(visit.Text("verb"), kEditVerbs), visit.Text("name"));
    request.values = visit.Texts("values");
    request.secrets = visit.Texts("secrets");
    request.rules = visit.Texts("rules");
    request.terms = visit.Text("terms", kMostTerms_bytes);
    request.again = visit.Flag("again");
    request.expected = visit.Text("expected", kMostTerms_bytes);
    request.expected_held = visit.Text("expected_held");
    if (const std::int64_t number = visit.Number("term_number", 0); number > 0)
        request.term_number = static_cast<std::size_t>(number);
    request.uidls = visit.List("ids");
    InheritSecrets(visit, request);
    RequireAllowed(visit, request);
    return request;
}

Json JsonOfDraft(const EditRequest& draft) {
    Json json = {{"kind", kEditKinds[static_cast<std::size_t>(draft.kind)]},
                 {"verb", kEditVerbs[static_cast<std::size_t>(draft.verb)]},
                 {"name", draft.name},
                 {"values", draft.values},
                 {"rules", draft.rules},
                 {"secrets", Json::array()}};
    for (const auto& [key, secret] : draft.secrets) json["secrets"].push_back(key);
    return json;
}

}  // namespace tarvex::host
