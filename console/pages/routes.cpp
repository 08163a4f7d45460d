// The list of all pages and changes.

#include "console/pages/routes.h"

#include <array>

#include "console/pages/mailboxes/address.h"
#include "console/pages/mailboxes/jobs.h"
#include "console/pages/mailboxes/overview.h"
#include "console/pages/mailboxes/profile.h"
#include "console/pages/mailboxes/settings.h"
#include "console/pages/mailboxes/tries.h"
#include "console/pages/mails/held.h"
#include "console/pages/mails/mail.h"
#include "console/pages/mails/mails.h"
#include "console/pages/people/account.h"
#include "console/pages/people/first.h"
#include "console/pages/people/login.h"
#include "console/pages/people/users.h"
#include "console/pages/removal.h"
#include "console/pages/rules/alerts.h"
#include "console/pages/rules/rules.h"
#include "console/pages/rules/servers.h"
#include "console/pages/static_files.h"

namespace tarvex::console {
namespace {

Asked AnswerStaticFile(const HttpRequest& request) { return ServeStaticFile(request); }

constexpr auto kAnybody = Audience::Anybody;
constexpr auto kUser = Audience::User;
constexpr auto kAdministrator = Audience::Administrator;

constexpr std::array kRoutes{
    Route{"GET", "/", kUser, AskOverview, ShowOverview},
    Route{"GET", "/login", kAnybody, ShowLogin},
    Route{"POST", "/login", kAnybody, AskLogin, AfterLogin, LoginRefused},
    Route{"POST", "/logout", kUser, AskLogout, AfterLogout},
    Route{"POST", "/language", kAnybody, ChooseLanguage},
    Route{"GET", "/static/{file}", kAnybody, AnswerStaticFile},
    Route{"GET", "/first", kAnybody, ShowFirst},
    Route{"POST", "/first", kAnybody, AskFirst, AfterFirst, FirstRefused},

    Route{"GET", "/profiles/{user}/{profile}", kUser, AskProfile, ShowProfile},
    Route{"POST", "/profiles/{user}/{profile}/switch", kUser, AskSwitchProfile, AfterSwitchProfile},
    Route{"POST", "/profiles/{user}/{profile}/decide", kUser, AskDecide, AfterDecide},
    Route{"POST", "/profiles/{user}/{profile}/start/{what}", kUser, AskStart, AfterStart},
    Route{"GET", "/profiles/{user}/{profile}/log", kUser, AskLog, ShowLog},
    Route{"GET", "/profiles/{user}/{profile}/settings", kUser, AskSettings, ShowSettings},
    Route{"POST", "/profiles/{user}/{profile}/settings", kUser, AskSetSettings, AfterSetSettings, SettingsRefused},
    Route{"POST", "/profiles/{user}/{profile}/settings/check", kUser, AskTrySettings, AfterStart, SettingsRefused},
    Route{"GET", "/profiles/{user}/{profile}/add", kUser, AskProfile, ShowNewAddress},
    Route{"POST", "/profiles/{user}/{profile}/addresses", kUser, AskAddAddress, AfterAddAddress, AddAddressRefused},
    Route{"GET", "/profiles/{user}/{profile}/remove", kAdministrator, AskRemoval, ShowRemoval},
    Route{"POST", "/profiles/{user}/{profile}/remove", kAdministrator, AskRemove, AfterRemove, RemoveRefused},

    Route{"GET", "/profiles/{user}/{profile}/to/{address}", kUser, AskAddress, ShowAddress},
    Route{"POST", "/profiles/{user}/{profile}/to/{address}/week", kUser, AskSetWeek, AfterSetWeek, WeekRefused},
    Route{"POST", "/profiles/{user}/{profile}/to/{address}/terms", kUser, AskAddTerm, AfterSetWeek, AddTermRefused},
    Route{"POST", "/profiles/{user}/{profile}/to/{address}/terms/remove", kUser, AskRemoveTerm, AfterSetWeek},
    Route{"POST", "/profiles/{user}/{profile}/to/{address}/options", kUser, AskSetAddress, AfterSetAddress,
          SetAddressRefused},
    Route{"POST", "/profiles/{user}/{profile}/to/{address}/preview", kUser, AskPreview, AfterStart, SetAddressRefused},
    Route{"POST", "/profiles/{user}/{profile}/to/{address}/switch", kUser, AskSwitchAddress, AfterSwitchAddress},
    Route{"GET", "/profiles/{user}/{profile}/to/{address}/remove", kUser, AskRemoval, ShowRemoval},
    Route{"POST", "/profiles/{user}/{profile}/to/{address}/remove", kUser, AskRemove, AfterRemove, RemoveRefused},

    Route{"GET", "/held", kUser, AskHeld, ShowHeld},
    Route{"POST", "/held/selected", kUser, AskSelected, AfterSelected},
    Route{"GET", "/held/{user}/{profile}/{id}", kUser, AskHeldMail, ShowHeldMail},
    Route{"GET", "/held/{user}/{profile}/{id}/message.eml", kUser, AskHeldFile, GiveHeldFile},
    Route{"POST", "/held/{user}/{profile}/{id}/send", kUser, AskSendHeld, AfterSendHeld},
    Route{"GET", "/held/{user}/{profile}/{id}/drop", kUser, AskHeldMail, ShowDropHeld},
    Route{"POST", "/held/{user}/{profile}/{id}/drop", kUser, AskDropHeld, AfterDropHeld},

    Route{"GET", "/mails", kUser, AskMails, ShowMails},
    Route{"GET", "/mails/{message}", kUser, AskMail, ShowMail},
    Route{"POST", "/mails/{message}/resend", kUser, AskResend, AfterResend},
    Route{"GET", "/history", kUser, AskHistory, ShowHistory},
    Route{"GET", "/jobs/{job}", kUser, AskJob, ShowJob, ShowJob},
    Route{"POST", "/jobs/{job}/save", kUser, AskSaveTried, AfterSaveTried},

    Route{"GET", "/account", kUser, AskAccount, ShowAccount},
    Route{"POST", "/account/password", kUser, AskSetPassword, AfterSetPassword, PasswordRefused},
    Route{"POST", "/account/sessions/end", kUser, AskEndSession, AfterEndSession},
    Route{"POST", "/account/code", kUser, AskBeginCode, ShowBegunCode},
    Route{"POST", "/account/code/set", kUser, AskSetCode, AfterSetCode, CodeRefused},
    Route{"POST", "/account/code/remove", kUser, AskRemoveCode, AfterRemoveCode, CodeRefused},

    Route{"GET", "/users", kAdministrator, AskUsers, ShowUsers},
    Route{"POST", "/users", kAdministrator, AskAddUser, AfterAddUser, AddUserRefused},
    Route{"GET", "/users/{user}", kAdministrator, AskAccount, ShowAccount},
    Route{"POST", "/users/{user}/rights", kAdministrator, AskSetUser, AfterSetUser, SetUserRefused},
    Route{"POST", "/users/{user}/password", kAdministrator, AskSetPassword, AfterSetPassword, PasswordRefused},
    Route{"POST", "/users/{user}/sessions/end", kAdministrator, AskEndSession, AfterEndSession},
    Route{"POST", "/users/{user}/code/remove", kAdministrator, AskRemoveCode, AfterRemoveCode, CodeRefused},
    Route{"GET", "/users/{user}/remove", kAdministrator, AskRemoval, ShowRemoval},
    Route{"POST", "/users/{user}/remove", kAdministrator, AskRemove, AfterRemove, RemoveRefused},
    Route{"GET", "/users/{user}/profiles", kAdministrator, AskNewProfile, ShowNewProfile},
    Route{"POST", "/users/{user}/profiles", kAdministrator, AskAddProfile, AfterAddProfile, AddProfileRefused},
    Route{"POST", "/users/{user}/profiles/check", kAdministrator, AskTryNewProfile, AfterStart, AddProfileRefused},

    Route{"GET", "/rules", kAdministrator, AskRules, ShowRules},
    Route{"GET", "/rules/{key}", kAdministrator, AskRules, ShowRule},
    Route{"POST", "/rules/{key}", kAdministrator, AskSetRule, AfterSetRule, RuleRefused},
    Route{"GET", "/servers", kAdministrator, AskRules, ShowServers},
    Route{"POST", "/servers", kAdministrator, AskSetServers, AfterSetServers, ServersRefused},

    Route{"GET", "/alerts", kUser, AskAlerts, ShowAlerts},
    Route{"POST", "/alerts", kAdministrator, AskSetAlerts, AfterSetAlerts, AlertsRefused},
    Route{"POST", "/alerts/test", kAdministrator, AskTestAlert, AfterTestAlert},
};

}  // namespace

std::span<const Route> Routes() { return kRoutes; }

}  // namespace tarvex::console
