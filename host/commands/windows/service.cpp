// `tarvex service`: the service that Windows starts by itself.

#include <CLI/CLI.hpp>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/service/log/windows/event_source.h"
#include "host/service/windows/installed_service.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/tree_owner.h"
#include "host/system/windows/managed_process.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

using State = InstalledService::State;

// The way of a path with spaces into a command line; at its end a backslash would take the quotation mark with it.
std::wstring InQuotes(const std::wstring& path) { return L'"' + path + L'"'; }

struct InstallOptions {
    std::string log_format;
    std::string log_file;
    bool without_console = false;
    std::optional<std::string> console_options;
};

// What follows `start` in what a service was installed to run before; with it. Empty when it is not there.
std::wstring FormerWords(const wchar_t* service, std::wstring_view start) {
    const std::wstring former = ServiceCommandLine(service);
    const std::size_t at = former.find(start);
    return at == std::wstring::npos ? L"" : former.substr(at);
}

// What the service is to say besides; without options what it was installed with before.
std::wstring WordsOfLog(const InstallOptions& options) {
    if (options.log_format.empty() && options.log_file.empty()) return FormerWords(kServiceName, L" --log-");
    std::wstring words;
    if (!options.log_format.empty()) words += L" --log-format " + Wide(CP_UTF8, options.log_format);
    if (!options.log_file.empty())
        words += L" --log-file " + InQuotes(NativePath(WholePath(TreePath(options.log_file))).native());
    return words;
}

// Beside this program; empty where it is not installed.
std::wstring ConsoleProgram() {
    const std::filesystem::path file = std::filesystem::path(ProgramFile()).parent_path() / L"tarvex-console.exe";
    std::error_code error;
    return std::filesystem::exists(file, error) ? file.native() : std::wstring();
}

std::wstring WordsOfConsole(const InstallOptions& options) {
    constexpr std::wstring_view kStart = L" --service";
    if (options.console_options) return std::wstring(kStart) + L' ' + Wide(CP_UTF8, *options.console_options);
    const std::wstring former = FormerWords(kConsoleServiceName, kStart);
    return former.empty() ? std::wstring(kStart) : former;
}

bool HasConsole() { return AskForService(kConsoleServiceName).state != State::Missing; }

void RemoveConsole() {
    if (!HasConsole()) return;
    StopInstalledService(kConsoleServiceName);
    RemoveInstalledService(kConsoleServiceName);
}

void ShowUnknown(const std::string& unknown) {
    if (!unknown.empty())
        std::cerr << Tr("This Windows does not know, so the service goes without: {0}", unknown) << '\n';
}

int Install(const Context& context, const InstallOptions& options) {
    const std::string root = context.root_option ? WholePath(*context.root_option) : ServiceFolder();
    RequireAdministrator();
    if (!NativePath(root).has_relative_path())
        throw CommandError(kBadUsage, Tr("\"{0}\" is a whole drive; name a folder of it", ShowPath(root)));
    MakeServiceFolder(root);
    const std::wstring console = options.without_console ? L"" : ConsoleProgram();
    const std::wstring pipe = console.empty() ? L"" : L" --console tarvex-console";
    const std::string unknown = InstallService(
        kServiceName,
        {InQuotes(ProgramFile()) + L" serve --service --root " + InQuotes(NativePath(root).native()) + pipe +
             WordsOfLog(options),
         Wide(CP_UTF8, Tr("Tarvex mail forwarding")),
         Wide(CP_UTF8, Tr("Fetches mail from POP3 mailboxes and forwards every new message over SMTP."))});
    if (console.empty()) {
        RemoveConsole();
    } else {
        (void)InstallService(kConsoleServiceName,  // this Windows does not know the same
                             {InQuotes(console) + WordsOfConsole(options), Wide(CP_UTF8, Tr("Tarvex console")),
                              Wide(CP_UTF8, Tr("Serves the pages of Tarvex mail forwarding for the browser."))});
    }
    AddEventSource();
    Context tree;
    tree.root_option = root;
    MakeTree(tree);
    std::cout << Tr("The service Tarvex is installed; it starts with Windows, and now by `tarvex service start`.")
              << '\n';
    if (!console.empty()) std::cout << Tr("So is the console in the browser, as the service TarvexConsole.") << '\n';
    ShowUnknown(unknown);
    return kDone;
}

int Remove() {
    RemoveConsole();
    if (AskForService().state != State::Missing) {
        StopInstalledService(kServiceName);
        RemoveInstalledService(kServiceName);
    }
    RemoveEventSource();
    std::cout << Tr("The service Tarvex is removed; its data stay.") << '\n';
    return kDone;
}

int Start() {
    StartInstalledService(kServiceName);
    std::cout << Tr("The service Tarvex runs.") << '\n';
    try {
        if (HasConsole()) StartInstalledService(kConsoleServiceName);
    } catch (const CommandError& error) {  // mail is forwarded all the same
        std::cerr << Tr("The console in the browser does not run.") << '\n' << error.what() << '\n';
    }
    return kDone;
}

int Stop() {
    if (HasConsole()) StopInstalledService(kConsoleServiceName);
    StopInstalledService(kServiceName);
    std::cout << Tr("The service Tarvex is stopped.") << '\n';
    return kDone;
}

std::string WordsOfConsoleState() {
    switch (AskForService(kConsoleServiceName).state) {
        case State::Missing:
            return Tr("The console in the browser is not installed.");
        case State::Running:
        case State::Starting:
            return Tr("The console in the browser runs.");
        default:
            return Tr("The console in the browser does not run.");
    }
}

int ShowStatus() {
    const InstalledService service = AskForService();
    switch (service.state) {
        case State::Missing:
            throw CommandError(kNotFound, Tr("the service is not installed; `tarvex service install` does that"));
        case State::Stopped:
            std::cout << (service.exit_code == 0 ? Tr("The service Tarvex is stopped.")
                                                 : Tr("The service Tarvex is stopped; it ended with code {0}.",
                                                      std::to_string(service.exit_code)))
                      << '\n';
            return kSomethingFails;
        case State::Starting:
            std::cout << Tr("The service Tarvex starts.") << '\n';
            break;
        case State::Stopping:
            std::cout << Tr("The service Tarvex stops.") << '\n';
            break;
        case State::Paused:
            std::cout << Tr("The service Tarvex is paused: no run starts.") << '\n';
            break;
        case State::Running:
            std::cout << Tr("The service Tarvex runs, as process {0}.", std::to_string(service.process)) << '\n';
    }
    std::cout << Tr("Its data tree is {0}.", ShowPath(ServiceRootDirectory())) << '\n' << WordsOfConsoleState() << '\n';
    return kDone;
}

CLI::App* AddVerb(CLI::App& service, Context& context, const char* name, const std::string& help,
                  const std::function<int()>& action) {
    CLI::App* const verb = service.add_subcommand(name, help);
    verb->callback([&context, action] { context.command = action; });
    return verb;
}

void AddInstall(CLI::App& service, Context& context) {
    const auto options = std::make_shared<InstallOptions>();
    CLI::App* const install = AddVerb(service, context, "install",
                                      Tr("Have Windows run `tarvex serve` from its start on; again after an upgrade."),
                                      [&context, options] { return Install(context, *options); });
    install
        ->add_option("--log-format", options->log_format,
                     Tr("That of `tarvex serve`: eventlog unless it says otherwise"))
        ->check(CLI::IsMember({"plain", "eventlog", "json"}))
        ->type_name("plain|eventlog|json");
    install
        ->add_option("--log-file", options->log_file,
                     Tr("That of `tarvex serve`; the service's account must be able to write it"))
        ->type_name("FILE");
    install->add_flag("--no-console", options->without_console, Tr("Without the console in the browser"));
    install
        ->add_option("--console-options", options->console_options,
                     Tr("What tarvex-console is told, in quotes: \"--listen 127.0.0.1:8480\""))
        ->type_name("OPTIONS");
}

}  // namespace

void AddServiceCommands(CLI::App& app, Context& context) {
    CLI::App* const service =
        app.add_subcommand("service", Tr("The service that Windows runs: install it, start it, stop it."))
            ->require_subcommand(1);
    AddInstall(*service, context);
    AddVerb(*service, context, "remove", Tr("Stop the service and take it out of Windows; its data stay."), Remove);
    AddVerb(*service, context, "start", Tr("Start it, and wait until it runs."), Start);
    AddVerb(*service, context, "stop", Tr("Stop it, and wait until its state is saved."), Stop);
    AddVerb(*service, context, "status", Tr("Say whether it runs."), ShowStatus);
    service->footer(Tr("Only an administrator may use these, except for status."));
}

}  // namespace tarvex::host
