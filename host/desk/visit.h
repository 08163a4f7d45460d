#pragma once

// One question, with the tree as it is now and the user who asks. What one may not see is not found: whoever asks for
// it cannot tell whether it is there.

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/desk/desk.h"
#include "host/desk/jobs.h"
#include "host/desk/login/attempts.h"
#include "host/desk/login/sessions.h"
#include "host/desk/read_tree.h"
#include "host/edit/edit.h"
#include "host/terminal/json.h"
#include "host/tree/names.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

struct DeskParts {
    explicit DeskParts(DeskOptions given) : options(std::move(given)), tree(options.directory, options.changes) {}

    const DeskOptions options;
    ReadTree tree;
    Sessions sessions;
    Attempts attempts;
    std::mutex mutex;
    std::map<std::string, std::int64_t> used_codes;  // the newest of each user, by the mutex
    Jobs jobs;                                       // the last: its threads use the others
};

// Ends a question with another status than "ok".
struct Refusal {
    std::string status;
    std::string message;
    bool wants_code = false;  // of an authenticator
};

class Visit {
public:
    // Loads the tree. Throws Refusal.
    Visit(DeskParts& parts, const Json& question);

    DeskParts& Parts() const { return parts_; }
    const std::string& Directory() const { return parts_.options.directory; }
    const CRootPath& Root() const { return *root_; }
    void LoadAgain();  // nobody asks then, until EnterAs

    // Finds out who asks. Throws Refusal ("login").
    void RequireUser();
    void RequireAdministrator() const;  // throws Refusal ("forbidden")
    void RequireFormToken() const;      // throws Refusal ("forbidden")

    const CUser& Who() const { return *who_; }
    std::string WhoPath() const;
    bool IsAdministrator() const { return who_ && who_->setting.administrator != 0; }
    const Session& TheSession() const { return session_; }
    std::string Caller() const;  // for the history: "taro (console)"
    void EnterAs(const CUser& user, Session session);

    // A field of the question; what is missing is empty. Throw Refusal ("bad") for one of another kind or size.
    std::string Text(std::string_view key, std::size_t most_bytes = 1000) const;
    std::int64_t Number(std::string_view key, std::int64_t otherwise) const;
    bool Flag(std::string_view key) const;
    std::map<std::string, std::string> Texts(std::string_view key) const;
    std::vector<std::string> List(std::string_view key) const;

    // What the field names, if the user may see it. Throw Refusal ("missing").
    CUser& UserCalled(const std::string& path) const;
    NamedProfile ProfileCalled(const std::string& path) const;
    NamedForward ForwardCalled(const std::string& path) const;

    // What people call that which has this path: a mail address, or a login name. The path itself where the user sees
    // nothing of it, or it has no such name.
    std::string TitleOf(const std::string& path) const;

    // All profiles that the user may see, in the order of the tree.
    std::vector<NamedProfile> Visible() const;

    // {"status": "ok", "user": ..., "token": ...}
    Json Ok() const;

private:
    const Json* Field(std::string_view key) const;
    bool MaySee(const CUser& user) const { return IsAdministrator() || &user == who_; }

    DeskParts& parts_;
    const Json& question_;
    std::shared_ptr<const CRootPath> root_;
    const CUser* who_ = nullptr;
    Session session_;
};

// What is kept of a stored password in a session.
std::string PasswordMark(const CUser& user);

// Of one that is set at the console. Throws Refusal.
void RequireGoodPassword(const std::string& password);

// Has the service make the edit, in a job where that takes longer; returns the answer. `prepare`, where there is one,
// completes the edit before, in the job: it may take its time, and throw CommandError.
Json AnswerEdit(Visit& visit, EditRequest request, const std::function<void(EditRequest&)>& prepare = {});

// What administrators do not do to themselves. Throws Refusal.
void RequireNotOneself(const Visit& visit, const EditRequest& request);

// Runs a command of `tarvex` in a job that is called `what`. Throws Refusal.
Json AnswerCommand(Visit& visit, const std::string& what, const std::string& about,
                   const std::vector<std::string>& command);

// The state of a job as an answer.
Json AnswerJob(Visit& visit, const std::string& name);

// ---- the answers, by file

using AnswerFunction = Json (*)(Visit&);

// login/desk_login.cpp
Json AnswerLogin(Visit& visit);
Json AnswerFirstLogin(Visit& visit);
Json AnswerLogout(Visit& visit);
Json AnswerAccount(Visit& visit);
Json AnswerSetPassword(Visit& visit);
Json AnswerEndSession(Visit& visit);
Json AnswerBeginCode(Visit& visit);
Json AnswerSetCode(Visit& visit);

// answers/overview.cpp
Json AnswerOverview(Visit& visit);
Json AnswerState(Visit& visit);
Json AnswerProfile(Visit& visit);

// answers/mails.cpp
Json AnswerMails(Visit& visit);
Json AnswerMail(Visit& visit);

// answers/held.cpp
Json AnswerHeld(Visit& visit);
Json AnswerHeldMail(Visit& visit);

// answers/records.cpp
Json AnswerLog(Visit& visit);
Json AnswerHistory(Visit& visit);

// answers/users_and_rules.cpp
Json AnswerUsers(Visit& visit);
Json AnswerRules(Visit& visit);

// answers/tries.cpp
Json AnswerTry(Visit& visit);
Json AnswerSaveTried(Visit& visit);

// answers/people.cpp
Json AnswerRemoval(Visit& visit);
Json AnswerNewProfile(Visit& visit);

// answers/alerts.cpp
Json AnswerAlerts(Visit& visit);
Json AnswerTestAlert(Visit& visit);

// desk_changes.cpp
Json AnswerChange(Visit& visit);
Json AnswerWeek(Visit& visit);
Json AnswerHeldChange(Visit& visit);
Json AnswerResend(Visit& visit);
Json AnswerStart(Visit& visit);
Json AnswerJobState(Visit& visit);

}  // namespace tarvex::host
