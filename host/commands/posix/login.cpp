// `tarvex login`: lets a profile in at its provider, and keeps what comes of it.

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/posix/detached_program.h"
#include "host/system/process.h"
#include "host/terminal/wording.h"
#include "host/tokens/posix/provider_login.h"
#include "host/tokens/posix/token_file.h"
#include "host/tokens/posix/token_request.h"
#include "host/tree/names.h"
#include "host/tree/tree_root.h"
#include "tarvex/conversion.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;

constexpr auto kBrowserTime = 10min;

struct Given {
    std::string profile;
    std::string provider = {};
    bool device = false;
    bool browser = false;
};

bool HasDisplay() { return std::getenv("DISPLAY") || std::getenv("WAYLAND_DISPLAY"); }

bool WantsToGoOn(std::chrono::seconds pause) {
    const auto end = std::chrono::steady_clock::now() + pause;
    while (CaughtSignal() == 0 && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(50ms);
    return CaughtSignal() == 0;
}

// The address stands in the output, too, so nothing is lost when there is no such program. It may be the browser itself
// that is started here, and the login is not over when this command is.
void OpenInBrowser(const std::string& url) {
    if (HasDisplay()) StartDetached({"xdg-open", url});
}

// The one that is named, else that of the last login, else the only one.
Provider ChosenProvider(const std::string& root, const std::string& name, const std::optional<StoredToken>& last) {
    if (!name.empty()) return ProviderNamed(root, name);
    if (last) return ProviderNamed(root, last->provider);
    const std::vector<std::string> names = ProviderNames(root);
    if (names.size() > 1) {
        std::string list;
        for (const std::string& one : names) list += (list.empty() ? "" : ", ") + one;
        throw CommandError(kBadUsage, Tr("say which provider with --provider: {0}", list));
    }
    if (names.empty()) {
        throw CommandError(
            kNotFound,
            Tr("no provider is described yet: docs/tokens.md says how, in a file of /etc/tarvex/providers.d"));
    }
    return ProviderNamed(root, names.front());
}

TokenAnswer LogIn(const Provider& provider, const Given& given, const std::string& login) {
    const LoginDialogue dialogue{[](const std::string& line) { std::cout << ShowUtf8Text(line) << std::endl; },
                                 WantsToGoOn, OpenInBrowser, login};
    const bool can_browser = !provider.authorization_endpoint.empty();
    const bool can_device = !provider.device_endpoint.empty();
    const bool browser = given.browser || (!given.device && can_browser && (HasDisplay() || !can_device));
    if (browser ? !can_browser : !can_device) {
        throw CommandError(kBadSettings, Tr("the file of provider {0} has no {1}", provider.name,
                                            browser ? "authorization_endpoint" : "device_endpoint"));
    }
    return browser ? LogInByBrowser(provider, dialogue, kBrowserTime) : LogInByDevice(provider, dialogue);
}

int CodeOf(TokenTroubleKind kind) {
    switch (kind) {
        case TokenTroubleKind::ForNow:
            return kUnavailable;
        case TokenTroubleKind::ForGood:
            return kBadSettings;
        case TokenTroubleKind::NeedsLogin:
            break;
    }
    return kNotAllowed;
}

// A damaged file is replaced.
std::optional<StoredToken> LastLogin(const TokenFile& file) {
    try {
        return file.Read();
    } catch (const TokenTrouble& trouble) {
        if (trouble.Kind() != TokenTroubleKind::NeedsLogin) throw;
        return std::nullopt;
    }
}

void PrintWhatItIsFor(const CRootPath& root, const CPopProfile& profile) {
    const std::optional<HostRules> rules = RulesOf(root.path, profile.path);
    if (rules && (rules->pop_login != 0 || rules->smtp_login != 0)) return;
    const std::string name = ShownName(root, profile.path);
    std::cout << Paragraph(Tr("Runs still log in with the password: `tarvex rules set {0} --pop_login xoauth2 "
                              "--smtp_login xoauth2` has them use the token.",
                              name),
                           0);
}

int Login(const Context& context, const Given& given) {
    CRootPath root;
    OpenTree(root, RootDirectory(context.root_option));
    const CPopProfile& profile = *FindProfile(root, given.profile).profile;
    if (!HasRules(root.path)) throw NoRules();
    CatchTermination();
    const std::string login = Utf8FromText(profile.setting.popuser);
    const TokenFile file(root.path, profile.path);
    try {
        const std::optional<StoredToken> last = LastLogin(file);
        const Provider provider = ChosenProvider(root.path, given.provider, last);
        const TokenAnswer answer = LogIn(provider, given, login);
        StoredToken token;
        token.provider = provider.name;
        token.login = login;
        if (last && last->provider == token.provider && last->login == login && last->refused.empty())
            token.refresh_token = last->refresh_token;  // some providers give one with the first login alone
        Keep(answer, token);
        const Descriptor lock = file.Lock([] { return CaughtSignal() != 0; });
        file.Write(token);
        std::cout << Tr("Logged in at {0} as {1}.", provider.name, ShowUtf8Text(login)) << '\n';
    } catch (const TokenTrouble& trouble) {
        throw CommandError(CodeOf(trouble.Kind()), trouble.what());
    }
    if (file.Read()->refresh_token.empty()) {
        std::cout
            << Tr("The provider gave no refresh token, so the login soon expires: ask for one with another scope, "
                  "often offline_access (docs/tokens.md).")
            << '\n';
    }
    PrintWhatItIsFor(root, profile);
    return kDone;
}

}  // namespace

void RequireProvider(const std::string& root, const std::string& provider) {
    const std::vector<std::string> names = ProviderNames(root);
    if (provider.empty() && names.empty()) {
        throw CommandError(
            kBadSettings,
            Tr("the provider wants tokens and no password: register an application there and describe it in "
               "/etc/tarvex/providers.d/NAME.def (docs/tokens.md), then come back"));
    }
    ChosenProvider(root, provider, std::nullopt);
}

int LogInAtProvider(const Context& context, const std::string& profile, const std::string& provider) {
    return Login(context, {profile, provider});
}

void AddLoginCommand(CLI::App& app, Context& context) {
    CLI::App* const login =
        app.add_subcommand("login", Tr("Log in at a profile's provider, where it wants tokens and no password."));
    const auto given = std::make_shared<Given>();
    login->add_option("PROFILE", given->profile, Tr("Path, nickname or address of the profile"))
        ->required()
        ->option_text(" ");
    login
        ->add_option("--provider", given->provider,
                     Tr("Which file of /etc/tarvex/providers.d or of providers.d in the root describes the provider; "
                        "without it the one of the last login, or the only one"))
        ->type_name("NAME");
    CLI::Option* const browser =
        login->add_flag("--browser", given->browser, Tr("In a browser on this machine, which comes back by itself"));
    login->add_flag("--device", given->device, Tr("With a code that is typed in a browser on whatever machine"))
        ->excludes(browser);
    login->footer(Tr("The service goes on with the new login at once; there is no need to restart it."));
    login->callback([&context, given] { context.command = [&context, given] { return Login(context, *given); }; });
}

}  // namespace tarvex::host
