// The program `tarvex-console`: a web console for a Tarvex service. It serves pages; the service decides.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "console/log.h"
#include "console/options.h"
#include "console/pages/routes.h"
#include "console/server.h"
#include "console/service_start.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/memory.h"
#include "host/system/paths.h"
#include "host/system/process.h"

namespace {

using namespace tarvex::console;
using tarvex::host::CommandError;
using tarvex::host::Tr;

void AddPlaces(CLI::App& app, TypedOptions& typed) {
    if (!Usual().is_posix) {
        app.add_option("--desk", typed.desk, Tr("Speak to the service at this named pipe (tarvex-console)"))
            ->type_name("NAME");
        app.add_option("--listen", typed.listen,
                       Tr("Where browsers connect: 127.0.0.1:PORT, or with --certificate ADDRESS:PORT "
                          "(127.0.0.1:8480)"))
            ->type_name("PLACE");
        app.add_flag("--service", typed.is_service)->group("");  // what the service manager says
        return;
    }
    app.add_option("--root", typed.root, Tr("Speak to the service of this data tree"))->type_name("DIR");
    app.add_option("--desk", typed.desk, Tr("Speak to the service at this Unix socket (/run/tarvex/console.sock)"))
        ->type_name("PATH");
    app.add_option("--listen", typed.listen,
                   Tr("Where browsers or a reverse proxy connect: unix:PATH, 127.0.0.1:PORT, or with --certificate "
                      "ADDRESS:PORT (unix:/run/tarvex-console/http.sock)"))
        ->type_name("PLACE");
    app.add_option("--group", typed.group, Tr("Group that may connect to the Unix socket of --listen"))
        ->type_name("NAME");
}

void AddOptions(CLI::App& app, TypedOptions& typed) {
    AddPlaces(app, typed);
    app.add_option("--certificate", typed.certificate, Tr("File with the certificate and its chain (PEM)"))
        ->type_name("FILE");
    app.add_option("--key", typed.key, Tr("File with the key of the certificate (PEM)"))->type_name("FILE");
    app.add_option("--host", typed.hosts,
                   Tr("Name in the addresses of this console, beside this machine's own; may be given more than once"))
        ->type_name("NAME")
        ->expected(1)
        ->take_all();
    app.add_option("--trusted-proxies", typed.trusted_proxies,
                   Tr("How many reverse proxies of your own stand before the console (1 at a Unix socket, else 0)"))
        ->type_name("NUMBER")
        ->check(CLI::Range(0, 16));
}

void SayWhere(const Options& options, int port) {
    const std::string page = FirstPage(options, port);
    std::cout << (page.empty() ? Tr("Listening at {0}.", options.server.place.path) : Tr("The console is at {0}", page))
              << std::endl;
}

int Run(const TypedOptions& typed) {
    const Options options = Understand(typed);
    const Site site(options.site, Routes());
    Serve(options.server, site, [&options](int port) { SayWhere(options, port); });
    return tarvex::host::kDone;
}

// Its exit code. What goes wrong is told by `tell`.
int OrTold(const std::function<int()>& work, const std::function<void(const std::string&)>& tell) {
    try {
        return work();
    } catch (const CommandError& error) {
        tell(error.what());
        return error.ExitCode();
    } catch (const std::exception& error) {
        tell(error.what());
        return tarvex::host::kBroken;
    }
}

}  // namespace

int main(int argc, char** argv) {
    using namespace tarvex::host;

    FillStandardStreams();
    GiveLargeMemoryBackAtOnce();
    ShowUtf8();
    UseCatalogues(NativePath(ProgramDirectory() + "\\..\\share\\locale"));
    SpeakTo(UsersLanguage());
    CLI::App app(Tr("A web console for a Tarvex service."), "tarvex-console");
    app.set_help_flag("-h,--help", Tr("Print this help message and exit"));
    app.set_version_flag("--version", "tarvex-console " TARVEX_VERSION,
                         Tr("Display program version information and exit"));
    app.get_formatter()->label("Usage", Tr("Usage"));
    app.get_formatter()->label("OPTIONS", Tr("OPTIONS"));
    TypedOptions typed;
    AddOptions(app, typed);
    const std::vector<std::string> words = Arguments(argc, argv);
    std::string mistake;
    const auto say = [](const std::string& why) { std::cerr << "tarvex-console: " << why << '\n'; };
    try {
        app.parse(std::vector<std::string>(words.rbegin(), words.rend() - 1));  // the last word first
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
        typed.is_service = std::ranges::find(words, "--service") != words.end();
        mistake = Printable(error.what());
    }
    const auto work = [&] {
        if (!mistake.empty()) throw CommandError(kBadUsage, mistake);
        return Run(typed);
    };
    if (!typed.is_service) return OrTold(work, say);
    // Nobody sees the standard error of a service.
    const auto log = [](const std::string& why) { Log(LogLevel::Error, "cannot go on: " + why); };
    return OrTold([&] { return RunAsService([&] { return OrTold(work, log); }); }, say);
}
