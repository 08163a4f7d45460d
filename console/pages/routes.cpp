// The list of all pages and changes.

#include "console/pages/routes.h"

#include <array>

#include "console/pages/login.h"
#include "console/pages/overview.h"
#include "console/pages/static_files.h"

namespace tarvex::console {
namespace {

Asked AnswerStaticFile(const HttpRequest& request) { return ServeStaticFile(request); }

constexpr std::array kRoutes{
    Route{"GET", "/", Audience::User, AskOverview, ShowOverview},
    Route{"GET", "/login", Audience::Anybody, ShowLogin},
    Route{"POST", "/login", Audience::Anybody, AskLogin, AfterLogin, LoginRefused},
    Route{"POST", "/logout", Audience::User, AskLogout, AfterLogout},
    Route{"POST", "/language", Audience::Anybody, ChooseLanguage},
    Route{"GET", "/static/{file}", Audience::Anybody, AnswerStaticFile},
};

}  // namespace

std::span<const Route> Routes() { return kRoutes; }

}  // namespace tarvex::console
