// `tarvex serve`: the service.

#include <CLI/CLI.hpp>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>

#include "host/commands/arguments/expected_generation.h"
#include "host/commands/arguments/usage.h"
#include "host/commands/commands.h"
#include "host/desk/posix/desk_server.h"
#include "host/language/tr.h"
#include "host/service/posix/service.h"
#include "host/system/command_error.h"
#include "host/system/process.h"
#include "host/terminal/typed_word.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

LogFormat FormatOf(const std::string& word) {
    if (word.empty()) return LogFormat::Automatic;
    if (word == "plain") return LogFormat::Plain;
    if (word == "journal") return LogFormat::Journal;
    if (word == "json") return LogFormat::JsonLines;
    throw CommandError(kBadUsage, Tr("--log-format: plain, journal or json, not {0}", Quoted(word)));
}

DeskOptions OptionsOfDesk(const std::string& directory, Service& service) {
    std::error_code error;
    const std::string program = std::filesystem::read_symlink("/proc/self/exe", error).string();
    if (error) throw CommandError(kBroken, Tr("cannot find this program: {0}", error.message()));
    return {directory, program, [&service](const std::string& sentence) { service.Warn(sentence); },
            [&service] { return service.Changes(); }};
}

}  // namespace

void AddServeCommand(CLI::App& app, Context& context) {
    CLI::App* const serve = app.add_subcommand(
        "serve", Tr("Run every profile whenever it is due, until SIGTERM or SIGINT. SIGHUP loads the tree again."));
    auto every = std::make_shared<double>(10);
    constexpr double kShortest = 0.01;
    constexpr double kLongest = 86400;
    serve
        ->add_option("--every", *every,
                     Tr("Seconds between two checks of what is due (default 10); a profile is never run more often "
                        "than its timer says"))
        ->check(Fraction(kShortest, kLongest, Tr("seconds")))
        ->type_name("SECONDS");
    auto metrics = std::make_shared<std::string>();
    serve
        ->add_option("--metrics", *metrics,
                     Tr("Serve figures for a monitoring system of this machine on unix:PATH, 127.0.0.1:PORT or "
                        "[::1]:PORT, at /metrics"))
        ->type_name("PLACE");
    auto format = std::make_shared<std::string>();
    serve
        ->add_option(
            "--log-format", *format,
            Tr("plain: lines behind the time; journal: entries of the journal with fields; json: a JSON object "
               "a line. Without it journal where standard error is the journal's, else plain"))
        ->type_name("plain|journal|json");
    auto console = std::make_shared<std::string>();
    serve
        ->add_option("--console", *console, Tr("Answer the console in the browser (tarvex-console) on the socket PATH"))
        ->envname("TARVEX_CONSOLE")
        ->type_name("PATH");
    auto group = std::make_shared<std::string>();
    serve->add_option("--console-group", *group, Tr("Who may connect to that socket beside the service's own user"))
        ->type_name("GROUP");
    const auto expected = std::make_shared<ExpectedGeneration>(*serve);
    serve->footer(Tr("Commands that change the tree work while the service runs: they are carried out by it."));
    serve->callback([&context, every, metrics, format, console, group, expected] {
        context.command = [&context, every, metrics, format, console, group, expected] {
            const LogFormat log_format = FormatOf(*format);
            SpeakTo(Language::English);  // in the journal
            RaiseFileLimit();
            const std::chrono::duration<double> seconds(*every);
            const std::string directory = RootDirectory(context.root_option);
            Service service(directory, std::chrono::duration_cast<std::chrono::microseconds>(seconds), *metrics,
                            log_format, kJournalSocket, expected->Number());
            std::optional<DeskServer> desk;
            if (!console->empty()) desk.emplace(OptionsOfDesk(directory, service), *console, *group);
            return service.Run();
        };
    });
}

std::string HowToKeepRunning(const std::string& tarvex) {
    return Tr("{0} serve (with the packages: sudo systemctl enable --now tarvex)", tarvex);
}

}  // namespace tarvex::host
