// Decides what is done with a request: who may send it, which page it is, what the desk is asked, and what its answer
// becomes.

#include "console/site.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "console/http/client.h"
#include "console/http/cookies.h"
#include "console/http/security_headers.h"
#include "console/log.h"
#include "console/pages/frame.h"
#include "console/pages/people/login.h"
#include "host/language/tr.h"

namespace tarvex::console {
namespace {

constexpr std::size_t kTokenLetters = 64;

// The desk's tokens: 32 bytes as hex. What else a cookie holds need not be asked about.
bool IsToken(std::string_view text) {
    return text.size() == kTokenLetters && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

int StatusOf(DeskTrouble trouble) {
    switch (trouble) {
        case DeskTrouble::NotThere:
            return 503;
        case DeskTrouble::Silent:
            return 504;
        case DeskTrouble::Wrong:
            break;
    }
    return 502;
}

HttpResponse AfterRefusal(const Work& work, const Json& answer) {
    if (work.route->render_refusal) return work.route->render_refusal(work.request, answer);
    return ErrorPage(work.request, 422, ViewerOf(answer), TextOf(answer, "message"));
}

HttpResponse Busy(const HttpRequest& request, const Json& answer) {
    HttpResponse response = ErrorPage(request, 503, ViewerOf(answer), TextOf(answer, "message"));
    response.headers.push_back({"Retry-After", "5"});
    return response;
}

HttpResponse Rendered(const Work& work, const Json& answer) {
    const std::string status = TextOf(answer, "status");
    if (status == "ok" || status == "working") return work.route->render(work.request, answer);
    if (status == "refused") return AfterRefusal(work, answer);
    if (status == "login") return LoginFirst(work.request);
    if (status == "busy") return Busy(work.request, answer);
    constexpr std::pair<std::string_view, int> kErrors[] = {{"forbidden", 403}, {"missing", 404}, {"bad", 400}};
    const auto* const error = std::ranges::find(kErrors, status, &std::pair<std::string_view, int>::first);
    const int code = error == std::end(kErrors) ? 502 : error->second;
    return ErrorPage(work.request, code, ViewerOf(answer), code == 502 ? "" : TextOf(answer, "message"));
}

bool IsWorthALine(const Work& work) {
    const int status = work.response.status;
    if (status == 404 || status == 405) return false;  // whoever looks around would fill the journal
    return status >= 400 || work.request.method == "POST";
}

}  // namespace

Site::Site(Settings settings, std::span<const Route> routes) : settings_(std::move(settings)), routes_(routes) {}

Work Site::Begin(const RawRequest& raw) const {
    Work work;
    const auto refusal = Understand(raw, work.request);
    Recognise(raw.headers, raw.peer, work.request);
    const host::Speaking speaking(work.request.language);
    if (AllOf(raw.headers, "host").size() != 1) {
        work.response = ErrorPage(work.request, 400);
    } else if (!IsForUs(raw.headers, settings_.names)) {
        work.response = ErrorPage(work.request, 421);
    } else if (refusal) {
        work.response = ErrorPage(work.request, refusal->status);
    } else {
        Decide(raw, work);
    }
    if (work.question.empty()) Complete(work, "");
    return work;
}

// Who sends it.
void Site::Recognise(const Fields& headers, std::string_view peer, HttpRequest& request) const {
    request.language = PageLanguage(request.Cookie(kLanguageCookie), ValueOf(headers, "accept-language"));
    request.address = ClientAddress(headers, peer, settings_.trusted_proxies);
}

void Site::Decide(const RawRequest& raw, Work& work) const {
    Match match = FindRoute(routes_, work.request.method, work.request.segments);
    if (!match.route) {
        work.response = ErrorPage(work.request, match.allowed.empty() ? 404 : 405);
        if (!match.allowed.empty()) work.response.headers.push_back({"Allow", match.allowed});
        return;
    }
    if (work.request.method != "GET" && !IsFromOurPage(raw.headers)) {
        work.response = ErrorPage(work.request, 403);
        return;
    }
    work.route = match.route;
    work.request.places = std::move(match.places);
    try {
        AskDesk(work);
    } catch (const std::exception& error) {
        work.response = ErrorPage(work.request, 500);
        work.log = "the console failed (" + Printable(error.what()) + "): ";
    }
}

void Site::AskDesk(Work& work) const {
    auto asked = work.route->ask(work.request);
    if (auto* const response = std::get_if<HttpResponse>(&asked)) {
        work.response = std::move(*response);
        return;
    }
    Json& question = std::get<Json>(asked);
    const std::string_view session = work.request.Cookie(kSessionCookie);
    question["session"] = IsToken(session) ? session : "";
    question["token"] = work.request.Form("token");
    question["address"] = work.request.address;
    if (work.route->audience == Audience::Administrator) question["administrators"] = true;
    question["language"] = host::LanguageCode(work.request.language);
    if (auto message = DeskMessage(question)) {
        work.question = *std::move(message);
    } else {
        work.response = ErrorPage(work.request, 413);
    }
}

void Site::Finish(Work& work, const DeskOutcome& outcome) const {
    const host::Speaking speaking(work.request.language);
    if (const auto* const trouble = std::get_if<DeskTrouble>(&outcome)) {
        work.response = ErrorPage(work.request, StatusOf(*trouble));
        Complete(work, "");
        return;
    }
    const Json& answer = std::get<Json>(outcome);
    try {
        work.response = Rendered(work, answer);
    } catch (const std::exception& error) {
        work.response = ErrorPage(work.request, 502);
        work.log = "the desk's answer is not as it should be (" + Printable(error.what()) + "): ";
    }
    const std::string session = TextOf(answer, "session");
    if (IsToken(session)) work.response.headers.push_back(KeepCookie(kSessionCookie, session));
    Complete(work, ViewerOf(answer).name);
}

void Site::Complete(Work& work, std::string_view user) const {
    AddSecurityHeaders(work.response, settings_.is_encrypted);
    if (!IsWorthALine(work)) return;
    const HttpRequest& request = work.request;
    work.log += request.path.empty() ? "a request" : Printable(request.method) + ' ' + Printable(request.path);
    if (!user.empty()) work.log += " by " + Printable(user);
    if (!request.address.empty()) work.log += " from " + request.address;
    work.log += ": " + std::to_string(work.response.status);
}

Work Site::TurnAway(int status, const Fields& headers, std::string_view peer) const {
    Work work;
    work.request.cookies = ParseCookies(headers);
    Recognise(headers, peer, work.request);
    const host::Speaking speaking(work.request.language);
    work.response = ErrorPage(work.request, status);
    Complete(work, "");
    return work;
}

}  // namespace tarvex::console
