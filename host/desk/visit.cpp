// Reads a question, and finds what it names among what its user may see.

#include "host/desk/visit.h"

#include <algorithm>
#include <filesystem>

#include "host/desk/asked_edit.h"
#include "host/desk/server_talk.h"
#include "host/language/tr.h"
#include "host/service/service_connection.h"
#include "host/system/command_error.h"
#include "host/system/display.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMostFields = 200;
constexpr std::size_t kMostValue_bytes = 64 << 10;
constexpr std::chrono::milliseconds kEditPatience{3000};

[[noreturn]] void Bad() { throw Refusal{"bad", {}}; }

[[noreturn]] void Missing() { throw Refusal{"missing", {}}; }

const std::string& StringIn(const Json& json, std::size_t most_bytes) {
    if (!json.is_string()) Bad();
    const auto& text = json.get_ref<const std::string&>();
    if (text.size() > most_bytes) Bad();
    return text;
}

// Where on disk the tree is, is nobody's business in the browser: paths begin below it, and have slashes.
std::string WithoutRoot(std::string text, const CRootPath& root) {
    const std::string start = ShowPath(root.path) + static_cast<char>(std::filesystem::path::preferred_separator);
    for (std::size_t at = 0; (at = text.find(start, at)) != std::string::npos;) {
        text.erase(at, start.size());
        const std::size_t end = std::min(text.find_first_of(" :\"\n", at), text.size());
        std::replace(text.begin() + static_cast<std::ptrdiff_t>(at), text.begin() + static_cast<std::ptrdiff_t>(end),
                     start.back(), '/');
    }
    return text;
}

}  // namespace

Visit::Visit(DeskParts& parts, const Json& question) : parts_(parts), question_(question) { LoadAgain(); }

void Visit::LoadAgain() {
    who_ = nullptr;
    try {
        root_ = parts_.tree.Now();
    } catch (const CommandError& error) {
        throw Refusal{"refused", error.what()};
    }
}

void Visit::RequireUser() {
    const auto session = parts_.sessions.Use(Text("session"), Sessions::Clock::now());
    if (!session) throw Refusal{"login", {}};
    for (const auto& user : root_->users) {
        if (ShownName(*root_, user->path) != session->user) continue;
        const bool may =
            user->setting_loaded.whole && user->setting.status != 0 && PasswordMark(*user) == session->password;
        if (!may) break;
        who_ = user.get();
        session_ = *session;
        return;
    }
    parts_.sessions.End(Text("session"));
    throw Refusal{"login", {}};
}

void Visit::RequireAdministrator() const {
    if (!IsAdministrator()) throw Refusal{"forbidden", {}};
}

void Visit::RequireFormToken() const {
    if (!AreSame(Text("token"), session_.form_token)) throw Refusal{"forbidden", {}};
}

std::string Visit::WhoPath() const { return ShownName(*root_, who_->path); }

std::string Visit::Caller() const { return ShowText(who_->setting.loginname) + " (console)"; }

void Visit::EnterAs(const CUser& user, Session session) {
    who_ = &user;
    session_ = std::move(session);
}

const Json* Visit::Field(std::string_view key) const {
    const auto found = question_.find(std::string(key));
    return found == question_.end() || found->is_null() ? nullptr : &*found;
}

std::string Visit::Text(std::string_view key, std::size_t most_bytes) const {
    const Json* const field = Field(key);
    return field ? StringIn(*field, most_bytes) : "";
}

std::int64_t Visit::Number(std::string_view key, std::int64_t otherwise) const {
    const Json* const field = Field(key);
    if (!field) return otherwise;
    if (!field->is_number_integer()) Bad();
    return field->get<std::int64_t>();
}

bool Visit::Flag(std::string_view key) const {
    const Json* const field = Field(key);
    if (!field) return false;
    if (!field->is_boolean()) Bad();
    return field->get<bool>();
}

std::map<std::string, std::string> Visit::Texts(std::string_view key) const {
    const Json* const field = Field(key);
    if (!field) return {};
    if (!field->is_object() || field->size() > kMostFields) Bad();
    std::map<std::string, std::string> texts;
    for (const auto& [name, value] : field->items()) texts[name] = StringIn(value, kMostValue_bytes);
    return texts;
}

std::vector<std::string> Visit::List(std::string_view key) const {
    const Json* const field = Field(key);
    if (!field) return {};
    if (!field->is_array() || field->size() > kMostFields) Bad();
    std::vector<std::string> list;
    for (const Json& one : *field) list.push_back(StringIn(one, kMostValue_bytes));
    return list;
}

CUser& Visit::UserCalled(const std::string& path) const {
    for (const auto& user : root_->users) {
        if (MaySee(*user) && ShownName(*root_, user->path) == path) return *user;
    }
    Missing();
}

NamedProfile Visit::ProfileCalled(const std::string& path) const {
    for (const auto& user : root_->users) {
        if (!MaySee(*user)) continue;
        for (const auto& profile : user->profiles) {
            if (ShownName(*root_, profile->path) == path) return {user.get(), profile.get()};
        }
    }
    Missing();
}

NamedForward Visit::ForwardCalled(const std::string& path) const {
    const auto [user, profile] = ProfileCalled(path.substr(0, path.rfind('/')));
    for (const auto& forward : profile->forward_addresses) {
        if (ShownName(*root_, forward->path) == path) return {user, profile, forward.get()};
    }
    Missing();
}

std::string Visit::TitleOf(const std::string& path) const {
    const auto titled = [&](const auto& about, const CString& name) {
        return ShownName(*root_, about.path) == path && !name.empty();
    };
    for (const auto& user : root_->users) {
        if (!MaySee(*user) || !path.starts_with(ShownName(*root_, user->path))) continue;
        if (titled(*user, user->setting.loginname)) return ShowText(user->setting.loginname);
        for (const auto& profile : user->profiles) {
            if (titled(*profile, profile->setting.address)) return ShowText(profile->setting.address);
            for (const auto& forward : profile->forward_addresses)
                if (titled(*forward, forward->setting.address)) return ShowText(forward->setting.address);
        }
    }
    return path;
}

std::vector<NamedProfile> Visit::Visible() const {
    std::vector<NamedProfile> visible = AllProfiles(*root_);
    std::erase_if(visible, [this](const NamedProfile& named) { return !MaySee(*named.user); });
    return visible;
}

Json Visit::Ok() const {
    Json answer = {{"status", "ok"}};
    if (who_) {
        answer["user"] = {
            {"name", ShowText(who_->setting.loginname)}, {"path", WhoPath()}, {"administrator", IsAdministrator()}};
        answer["token"] = session_.form_token;
    }
    return answer;
}

std::string PasswordMark(const CUser& user) { return DigestOf(user.setting.password); }

Json AnswerEdit(Visit& visit, EditRequest request, const std::function<void(EditRequest&)>& prepare) {
    request.caller = visit.Caller();
    request.by_path = true;  // what was judged here, and nothing that takes its name
    JobState state;
    state.what = EditName(request);
    state.about = request.name;
    const auto make = [directory = visit.Directory(), request,
                       prepare](JobVoice& voice) mutable -> std::pair<int, std::string> {
        if (prepare) TalkToServers(voice, [&] { prepare(request); });
        const auto service = ServiceConnection::Try(directory);
        if (!service) return {kTryLater, Tr("no service owns the tree")};
        Reply reply;
        const int code = service->Edit(request, reply, [&voice](const std::string& note) { voice.Print(note + '\n'); });
        voice.Print(reply.printed);
        return {code, reply.error};
    };
    const std::string job = visit.Parts().jobs.Begin(visit.WhoPath(), std::move(state), make, kEditPatience);
    if (job.empty()) throw Refusal{"busy", {}};
    return AnswerJob(visit, job);
}

Json AnswerJob(Visit& visit, const std::string& name) {
    const auto state = visit.Parts().jobs.Of(visit.WhoPath(), name);
    if (!state) throw Refusal{"missing", {}};
    Json answer = visit.Ok();
    if (!state->done) answer["status"] = "working";
    if (state->done && state->exit_code != kDone && !state->error.empty()) answer["status"] = "refused";
    answer["job"] = name;
    answer["what"] = state->what;
    answer["about"] = state->about;
    answer["title"] = visit.TitleOf(state->about);
    answer["printed"] = WithoutRoot(state->printed, visit.Root());
    answer["begun"] = state->done ? "" : state->begun;
    answer["exit_code"] = state->exit_code;
    answer["message"] = WithoutRoot(state->error, visit.Root());
    answer["found"] = state->found;
    if (state->draft) answer["draft"] = JsonOfDraft(*state->draft);
    return answer;
}

}  // namespace tarvex::host
