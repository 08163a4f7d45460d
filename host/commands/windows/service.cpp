// `tarvex service`: the service that Windows starts by itself.

#include <CLI/CLI.hpp>
#include <functional>
#include <iostream>
#include <memory>
#include <string>

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

struct LogOptions {
    std::string format;
    std::string file;
};

// What the service is to say besides; without options what it was installed with before.
std::wstring WordsOfLog(const LogOptions& log) {
    if (log.format.empty() && log.file.empty()) {
        const std::wstring former = ServiceCommandLine();
        const std::size_t at = former.find(L" --log-");
        return at == std::wstring::npos ? L"" : former.substr(at);
    }
    std::wstring words;
    if (!log.format.empty()) words += L" --log-format " + Wide(CP_UTF8, log.format);
    if (!log.file.empty()) words += L" --log-file " + InQuotes(NativePath(WholePath(TreePath(log.file))).native());
    return words;
}

int Install(const Context& context, const LogOptions& log) {
    const std::string root = context.root_option ? WholePath(*context.root_option) : ServiceFolder();
    RequireAdministrator();
    MakeServiceFolder(root);
    const std::string unknown = InstallService(
        InQuotes(ProgramFile()) + L" serve --service --root " + InQuotes(NativePath(root).native()) + WordsOfLog(log),
        Wide(CP_UTF8, Tr("Tarvex mail forwarding")),
        Wide(CP_UTF8, Tr("Fetches mail from POP3 mailboxes and forwards every new message over SMTP.")));
    AddEventSource();
    Context tree;
    tree.root_option = root;
    MakeTree(tree);
    std::cout << Tr("The service Tarvex is installed; it starts with Windows, and now by `tarvex service start`.")
              << '\n';
    if (!unknown.empty())
        std::cerr << Tr("This Windows does not know, so the service goes without: {0}", unknown) << '\n';
    return kDone;
}

int Remove() {
    if (AskForService().state != State::Missing) {
        StopInstalledService();
        RemoveInstalledService();
    }
    RemoveEventSource();
    std::cout << Tr("The service Tarvex is removed; its data stay.") << '\n';
    return kDone;
}

int Start() {
    StartInstalledService();
    std::cout << Tr("The service Tarvex runs.") << '\n';
    return kDone;
}

int Stop() {
    StopInstalledService();
    std::cout << Tr("The service Tarvex is stopped.") << '\n';
    return kDone;
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
    std::cout << Tr("Its data tree is {0}.", ShowPath(ServiceRootDirectory())) << '\n';
    return kDone;
}

CLI::App* AddVerb(CLI::App& service, Context& context, const char* name, const std::string& help,
                  const std::function<int()>& action) {
    CLI::App* const verb = service.add_subcommand(name, help);
    verb->callback([&context, action] { context.command = action; });
    return verb;
}

void AddInstall(CLI::App& service, Context& context) {
    const auto log = std::make_shared<LogOptions>();
    CLI::App* const install = AddVerb(service, context, "install",
                                      Tr("Have Windows run `tarvex serve` from its start on; again after an upgrade."),
                                      [&context, log] { return Install(context, *log); });
    install->add_option("--log-format", log->format, Tr("That of `tarvex serve`: eventlog unless it says otherwise"))
        ->check(CLI::IsMember({"plain", "eventlog", "json"}))
        ->type_name("plain|eventlog|json");
    install
        ->add_option("--log-file", log->file,
                     Tr("That of `tarvex serve`; the service's account must be able to write it"))
        ->type_name("FILE");
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
