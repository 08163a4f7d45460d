// The program `tarvex-console`: a web console for a Tarvex service. It serves pages; the service decides.

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "console/log.h"
#include "console/options.h"
#include "console/pages/routes.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/memory.h"
#include "host/system/paths.h"
#include "host/system/process.h"

namespace {

using namespace tarvex::console;
using tarvex::host::CommandError;
using tarvex::host::Tr;

void AddOptions(CLI::App& app, TypedOptions& typed) {
    app.add_option("--root", typed.root, Tr("Speak to the service of this data tree"))->type_name("DIR");
    app.add_option("--desk", typed.desk, Tr("Speak to the service at this Unix socket (/run/tarvex/console.sock)"))
        ->type_name("PATH");
    app.add_option("--listen", typed.listen,
                   Tr("Where browsers or a reverse proxy connect: unix:PATH, 127.0.0.1:PORT, or with --certificate "
                      "ADDRESS:PORT (unix:/run/tarvex-console/http.sock)"))
        ->type_name("PLACE");
    app.add_option("--group", typed.group, Tr("Group that may connect to the Unix socket of --listen"))
        ->type_name("NAME");
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

int Run(const TypedOptions& typed) {
    const Options options = Understand(typed);
    const Site site(options.site, Routes());
    const auto listener = ListenAt(options.place, options.group);
    const std::string page = FirstPage(options, PortOf(listener));
    if (page.empty()) {
        std::cout << Tr("Listening at {0}.", options.place.path) << std::endl;
    } else {
        std::cout << Tr("The console is at {0}", page) << std::endl;
    }
    Serve(listener, options.server, site);
    if (!options.place.path.empty()) unlink(options.place.path.c_str());
    return tarvex::host::kDone;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace tarvex::host;

    FillStandardStreams();
    GiveLargeMemoryBackAtOnce();
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
    try {
        app.parse(argc, argv);
        return Run(typed);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
        std::cerr << "tarvex-console: " << Printable(error.what()) << '\n';
        return kBadUsage;
    } catch (const CommandError& error) {
        std::cerr << "tarvex-console: " << error.what() << '\n';
        return error.ExitCode();
    } catch (const std::exception& error) {
        std::cerr << "tarvex-console: " << error.what() << '\n';
        return kBroken;
    }
}
