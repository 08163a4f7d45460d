// Logging in and out, passwords, sessions and the codes of authenticators.

#include <algorithm>
#include <ctime>

#include "host/desk/login/first_login.h"
#include "host/desk/login/one_time_code.h"
#include "host/desk/visit.h"
#include "host/language/tr.h"
#include "host/saving/console_files.h"
#include "host/service/service_connection.h"
#include "host/settings/host_setting.h"
#include "host/settings/login_password.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/protection.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kShortestPassword = 10;  // characters, of one that is set here
constexpr std::size_t kMostPassword_bytes = 200;

// Whose account the question is about: without a word for it one's own.
const CUser& AccountAsked(const Visit& visit) {
    const std::string asked = visit.Text("account");
    return visit.UserCalled(asked.empty() ? visit.WhoPath() : asked);
}

std::string ShowClock(Sessions::Clock::time_point moment) { return ShowIsoTime(Sessions::Clock::to_time_t(moment)); }

[[noreturn]] void Wrong() { throw Refusal{"refused", Tr("The name or the password is wrong.")}; }

[[noreturn]] void TooMany() {
    throw Refusal{"refused",
                  Tr("There were too many failed logins. Try again in {0} minutes.", Attempts::kWithin.count())};
}

// Waits for the service, which has such an edit made at once. Throws Refusal.
void EditNow(const Visit& visit, EditRequest request) {
    request.by_path = true;
    const auto service = ServiceConnection::Try(visit.Directory());
    if (!service) throw Refusal{"busy", {}};
    Reply reply;
    if (service->Edit(request, reply, [](const std::string&) {}) != kDone) throw Refusal{"refused", reply.error};
}

EditRequest PasswordEdit(const std::string& user_path, const std::string& password, std::string caller) {
    EditRequest request(EditKind::User, EditVerb::Set, user_path);
    request.secrets["password"] = password;
    request.caller = std::move(caller);
    return request;
}

// A user who may log in at all; null for none.
const CUser* UserNamed(const Visit& visit, const std::string& name) {
    if (name.empty()) return nullptr;
    const auto& users = visit.Root().users;
    const auto found =
        std::ranges::find_if(users, [&](const auto& user) { return ShowText(user->setting.loginname) == name; });
    const bool may = found != users.end() && (*found)->setting_loaded.whole && (*found)->setting.status != 0;
    return may ? found->get() : nullptr;
}

// The code of the authenticator, where the user has one, after an attempt was begun. Throws Refusal.
void RequireCode(Visit& visit, const std::string& user_path, const std::string& name) {
    const auto kept = ReadConsoleFile(visit.Directory(), CodeFileOf(user_path));
    if (!kept) return;
    const auto secret = Unprotect(*kept);
    if (!secret)
        throw Refusal{"refused",
                      Tr("This machine cannot read the key of the authenticator, which another one has kept; "
                         "`tarvex console init` makes another way in.")};
    DeskParts& parts = visit.Parts();
    const std::string code = visit.Text("code");
    if (code.empty()) {
        parts.attempts.TakeBack(name, visit.Text("address"));
        throw Refusal{"refused", Tr("Type the code that the authenticator shows."), true};
    }
    const std::lock_guard lock(parts.mutex);
    const auto step = StepOfCode(*secret, code, std::time(nullptr), parts.used_codes[user_path]);
    if (!step) throw Refusal{"refused", Tr("The code is wrong, or was used before."), true};
    parts.used_codes[user_path] = *step;
}

// A million codes are few for whoever has stolen a session.
void RequireCodeToTakeItAway(Visit& visit) {
    const std::string name = ShowText(visit.Who().setting.loginname);
    const std::string address = visit.Text("address");
    if (!visit.Parts().attempts.Begin(name, address, Attempts::Clock::now())) TooMany();
    RequireCode(visit, visit.WhoPath(), name);
    visit.Parts().attempts.Forgive(name, address);
}

// Makes the user an administrator with that password. Throws Refusal.
void MakeAdministrator(const Visit& visit, const CUser* known, const std::string& name, const std::string& password) {
    EditRequest request(EditKind::User, known ? EditVerb::Set : EditVerb::Add,
                        known ? ShownName(visit.Root(), known->path) : "");
    if (!known) request.values["loginname"] = name;
    request.values["administrator"] = "on";
    request.secrets["password"] = password;
    request.caller = name + " (console)";
    EditNow(visit, request);
    // Who makes such a link may have lost the authenticator, too.
    if (known) RemoveConsoleFile(visit.Directory(), CodeFileOf(ShownName(visit.Root(), known->path)));
}

// The user is that of the visit's tree.
Json Enter(Visit& visit, const CUser& user) {
    Session session;
    session.user = ShownName(visit.Root(), user.path);
    session.password = PasswordMark(user);
    session.address = visit.Text("address");
    const std::string secret = visit.Parts().sessions.Begin(session, Sessions::Clock::now());
    visit.EnterAs(user, *visit.Parts().sessions.Use(secret, Sessions::Clock::now()));
    Json answer = visit.Ok();
    answer["session"] = secret;
    return answer;
}

void Tell(const Visit& visit, const std::string& sentence) {
    if (visit.Parts().options.tell) visit.Parts().options.tell(sentence);
}

}  // namespace

void RequireGoodPassword(const std::string& password) {
    if (password.size() > kMostPassword_bytes) throw Refusal{"refused", Tr("The password is too long.")};
    const auto characters =
        std::ranges::count_if(password, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; });
    if (characters < static_cast<std::ptrdiff_t>(kShortestPassword))
        throw Refusal{"refused", Tr("A password has at least {0} characters.", kShortestPassword)};
}

Json AnswerLogin(Visit& visit) {
    const std::string name = visit.Text("name");
    const std::string password = visit.Text("password");
    const std::string address = visit.Text("address");
    Attempts& attempts = visit.Parts().attempts;
    if (!attempts.Begin(name, address, Attempts::Clock::now())) {
        Tell(visit, "too many failed logins at the console: \"" + ShowUtf8Text(name.substr(0, 60)) + "\" from " +
                        ShowUtf8Text(address));
        TooMany();
    }
    const CUser* const user = UserNamed(visit, name);
    const bool is_hashed = user && IsHashedPassword(user->setting.password);
    if (!is_hashed || password.empty())
        TakePasswordsTime(password);  // so that the time does not tell which names there are
    if (!user || !FitsPassword(user->setting.password, password)) {
        Tell(visit,
             "failed login at the console: \"" + ShowUtf8Text(name.substr(0, 60)) + "\" from " + ShowUtf8Text(address));
        Wrong();
    }
    const std::string path = ShownName(visit.Root(), user->path);
    RequireCode(visit, path, name);
    attempts.Forgive(name, address);
    if (is_hashed || !HasRules(visit.Root().path)) return Enter(visit, *user);
    EditNow(visit, PasswordEdit(path, password, name + " (console)"));
    visit.LoadAgain();
    const CUser* const with_hash = UserNamed(visit, name);
    if (!with_hash) Wrong();  // removed meanwhile
    return Enter(visit, *with_hash);
}

// Whoever has the code becomes an administrator: a new one, or that user of the name who is there.
Json AnswerFirstLogin(Visit& visit) {
    const std::string name = visit.Text("name");
    const std::string password = visit.Text("password");
    const std::string address = visit.Text("address");
    if (name.empty()) throw Refusal{"refused", Tr("A login name is missing.")};
    RequireGoodPassword(password);
    Attempts& attempts = visit.Parts().attempts;
    if (!attempts.Begin({}, address, Attempts::Clock::now())) TooMany();
    const auto link = TakeFirstLogin(visit.Directory(), visit.Text("code"), std::time(nullptr));
    if (!link)
        throw Refusal{"refused", Tr("This link is not valid, or not any more; `tarvex console init` makes another.")};
    attempts.Forgive({}, address);
    try {
        MakeAdministrator(visit, UserNamed(visit, name), name, password);
    } catch (const Refusal&) {
        GiveFirstLoginBack(visit.Directory(), *link);  // for another try
        throw;
    }
    visit.LoadAgain();
    const CUser* const user = UserNamed(visit, name);
    if (!user) Wrong();
    return Enter(visit, *user);
}

Json AnswerLogout(Visit& visit) {
    visit.Parts().sessions.End(visit.Text("session"));
    return {{"status", "ok"}};
}

// Of the user, or to an administrator of any other.
Json AnswerAccount(Visit& visit) {
    const CUser& user = AccountAsked(visit);
    const std::string path = ShownName(visit.Root(), user.path);
    Json answer = visit.Ok();
    answer["account"] = {{"path", path},
                         {"name", ShowText(user.setting.loginname)},
                         {"administrator", user.setting.administrator != 0},
                         {"on", user.setting.status != 0},
                         {"has_password", !user.setting.password.empty()},
                         {"has_code", ReadConsoleFile(visit.Directory(), CodeFileOf(path)).has_value()},
                         {"profiles", user.profiles.size()}};
    answer["sessions"] = Json::array();
    for (const Session& one : visit.Parts().sessions.Of(path, Sessions::Clock::now())) {
        answer["sessions"].push_back({{"id", one.id},
                                      {"address", one.address},
                                      {"began", ShowClock(one.began)},
                                      {"used", ShowClock(one.used)},
                                      {"this", one.id == visit.TheSession().id}});
    }
    return answer;
}

// One's own with the old one; an administrator sets those of others without.
Json AnswerSetPassword(Visit& visit) {
    const CUser& user = AccountAsked(visit);
    const std::string path = ShownName(visit.Root(), user.path);
    const bool is_own = &user == &visit.Who();
    const std::string name = ShowText(user.setting.loginname);
    if (is_own) {
        const std::string address = visit.Text("address");
        if (!visit.Parts().attempts.Begin(name, address, Attempts::Clock::now())) TooMany();
        if (!FitsPassword(user.setting.password, visit.Text("old")))
            throw Refusal{"refused", Tr("The old password is wrong.")};
        visit.Parts().attempts.Forgive(name, address);
    }
    const std::string password = visit.Text("password");
    RequireGoodPassword(password);
    EditNow(visit, PasswordEdit(path, password, visit.Caller()));
    visit.Parts().sessions.EndAllOf(path);
    if (!is_own) return visit.Ok();
    visit.LoadAgain();
    const CUser* const with_new = UserNamed(visit, name);
    if (!with_new) throw Refusal{"login", {}};  // removed meanwhile
    return Enter(visit, *with_new);
}

Json AnswerEndSession(Visit& visit) {
    const std::string path = ShownName(visit.Root(), AccountAsked(visit).path);
    const std::string id = visit.Text("id");
    if (id == "others") {
        visit.Parts().sessions.EndAllOf(path, visit.TheSession().id);
    } else if (!visit.Parts().sessions.EndById(path, id)) {
        throw Refusal{"missing", {}};
    }
    return visit.Ok();
}

// A secret that counts once a code of it has been given back.
Json AnswerBeginCode(Visit& visit) {
    const std::string secret = NewCodeSecret();
    Json answer = visit.Ok();
    answer["secret"] = secret;
    answer["link"] = CodeLink(secret, ShowText(visit.Who().setting.loginname), visit.Text("place"));
    return answer;
}

// Without a secret: an authenticator is wanted no more. One's own wants a code; an administrator may take away that of
// another who has lost it.
Json AnswerSetCode(Visit& visit) {
    const std::string path = ShownName(visit.Root(), AccountAsked(visit).path);
    const bool is_own = path == visit.WhoPath();
    const std::string secret = visit.Text("secret");
    if (secret.empty()) {
        if (is_own) RequireCodeToTakeItAway(visit);
        RemoveConsoleFile(visit.Directory(), CodeFileOf(path));
        return visit.Ok();
    }
    if (!is_own) throw Refusal{"forbidden", {}};
    if (ReadConsoleFile(visit.Directory(), CodeFileOf(path)))
        throw Refusal{"refused", Tr("There is an authenticator already; take that one away first.")};
    if (!StepOfCode(secret, visit.Text("code"), std::time(nullptr), 0))
        throw Refusal{"refused", Tr("The code is wrong, or was used before.")};
    WriteConsoleFile(visit.Directory(), CodeFileOf(path), Protect(secret));
    return visit.Ok();
}

}  // namespace tarvex::host
