// The table of questions, and what all of them go through.

#include "host/desk/desk.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "host/desk/asked_edit.h"
#include "host/desk/visit.h"
#include "host/language/tr.h"
#include "host/settings/login_password.h"
#include "host/system/command_error.h"

namespace tarvex::host {
namespace {

enum class For { Anybody, Users, Administrators };

struct Question {
    std::string_view name;
    For whom;
    bool changes;  // wants the token of a form
    AnswerFunction answer;
};

// Also the list that the tests of rights walk.
constexpr std::array kQuestions = {
    Question{"login", For::Anybody, false, AnswerLogin},
    Question{"first-login", For::Anybody, false, AnswerFirstLogin},
    Question{"logout", For::Users, true, AnswerLogout},
    Question{"account", For::Users, false, AnswerAccount},
    Question{"set-password", For::Users, true, AnswerSetPassword},
    Question{"end-session", For::Users, true, AnswerEndSession},
    Question{"begin-code", For::Users, true, AnswerBeginCode},
    Question{"set-code", For::Users, true, AnswerSetCode},
    Question{"overview", For::Users, false, AnswerOverview},
    Question{"state", For::Users, false, AnswerState},
    Question{"profile", For::Users, false, AnswerProfile},
    Question{"log", For::Users, false, AnswerLog},
    Question{"mails", For::Users, false, AnswerMails},
    Question{"mail", For::Users, false, AnswerMail},
    Question{"held", For::Users, false, AnswerHeld},
    Question{"held-mail", For::Users, false, AnswerHeldMail},
    Question{"history", For::Users, false, AnswerHistory},
    Question{"users", For::Administrators, false, AnswerUsers},
    Question{"rules", For::Administrators, false, AnswerRules},
    Question{"removal", For::Users, false, AnswerRemoval},
    Question{"new-profile", For::Administrators, false, AnswerNewProfile},
    Question{"alerts", For::Users, false, AnswerAlerts},
    Question{"test-alert", For::Administrators, true, AnswerTestAlert},
    Question{"change", For::Users, true, AnswerChange},
    Question{"week", For::Users, true, AnswerWeek},
    Question{"held-change", For::Users, true, AnswerHeldChange},
    Question{"resend", For::Users, true, AnswerResend},
    Question{"start", For::Users, true, AnswerStart},
    Question{"try", For::Users, true, AnswerTry},
    Question{"save-tried", For::Users, true, AnswerSaveTried},
    Question{"job", For::Users, false, AnswerJobState},
};

// Any question may name a job: what was typed for it comes with the answer, for a form that goes on with it.
void AddDraft(const Visit& visit, Json& answer) {
    const std::string name = visit.Text("draft");
    if (name.empty() || visit.TheSession().user.empty()) return;
    const auto job = visit.Parts().jobs.Of(visit.WhoPath(), name);
    if (job && job->draft) answer["draft"] = JsonOfDraft(*job->draft);
}

Json AnswerAs(const Question& asked, Visit& visit) {
    if (asked.whom != For::Anybody) visit.RequireUser();
    if (asked.whom == For::Administrators || visit.Flag("administrators")) visit.RequireAdministrator();
    if (asked.changes) visit.RequireFormToken();
    Json answer = asked.answer(visit);
    AddDraft(visit, answer);
    return answer;
}

// Who is logged in is told all the same.
Json Refused(const std::optional<Visit>& visit, const std::string& status, const std::string& message) {
    Json answer = visit ? visit->Ok() : Json::object();
    answer["status"] = status;
    answer["message"] = message;
    return answer;
}

}  // namespace

struct Desk::Parts : DeskParts {
    using DeskParts::DeskParts;
};

Desk::Desk(DeskOptions options) : parts_(std::make_unique<Parts>(std::move(options))) {
    TakePasswordsTime({});  // the first time takes twice as long
}

Desk::~Desk() = default;

void Desk::Rest() {
    parts_->tree.Forget();
    parts_->jobs.ForgetOld();
}

Json Desk::Answer(const Json& question) {
    std::optional<Visit> visit;
    try {
        const auto* const asked = std::ranges::find(kQuestions, question.at("ask").get<std::string>(), &Question::name);
        if (asked == kQuestions.end()) return Refused(visit, "bad", {});
        const bool in_japanese = question.value("language", std::string()) == "ja";
        const Speaking in(in_japanese ? Language::Japanese : Language::English);
        try {
            return AnswerAs(*asked, visit.emplace(*parts_, question));
        } catch (const CommandError& error) {
            return Refused(visit, "refused", error.what());
        }
    } catch (const Refusal& refusal) {
        Json answer = Refused(visit, refusal.status, refusal.message);
        if (refusal.wants_code) answer["code"] = true;
        return answer;
    } catch (const Json::exception&) {
        return Refused(visit, "bad", {});
    }
}

}  // namespace tarvex::host
