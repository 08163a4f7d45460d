// Takes the options of a service from the command line.

#include "host/commands/arguments/serve_options.h"

#include <chrono>
#include <optional>

#include "host/commands/arguments/usage.h"
#include "host/desk/desk_server.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/paths.h"
#include "host/system/process.h"
#include "host/terminal/typed_word.h"

namespace tarvex::host {

ServeOptions::ServeOptions(CLI::App& serve, const Texts& texts) : system_log_(texts.system_log), expected_(serve) {
    constexpr double kShortest = 0.01;
    constexpr double kLongest = 86400;
    serve
        .add_option("--every", every_,
                    Tr("Seconds between two checks of what is due (default 10); a profile is never run more often "
                       "than its timer says"))
        ->check(Fraction(kShortest, kLongest, Tr("seconds")))
        ->type_name("SECONDS");
    serve
        .add_option("--metrics", metrics_,
                    Tr("Serve figures for a monitoring system of this machine on unix:PATH, 127.0.0.1:PORT or "
                       "[::1]:PORT, at /metrics"))
        ->type_name("PLACE");
    serve.add_option("--log-format", format_, texts.formats)->type_name("plain|" + system_log_ + "|json");
    serve
        .add_option("--log-file", log_file_,
                    Tr("Write the lines of the log to FILE in place of standard error. At 10 MB it becomes FILE.1, and "
                       "that FILE.2, up to FILE.5"))
        ->type_name("FILE");
    serve.add_option("--console", console_, texts.console)->envname("TARVEX_CONSOLE")->type_name(texts.place);
    serve.footer(Tr("Commands that change the tree work while the service runs: they are carried out by it."));
}

void ServeOptions::AddConsoleGroup(CLI::App& serve) {
    serve
        .add_option("--console-group", console_group_,
                    Tr("Who may connect to that socket beside the service's own user"))
        ->type_name("GROUP");
}

int ServeOptions::Serve(const std::string& directory, bool also_without_console) const {
    const std::unique_ptr<Service> service = MakeService(directory);
    std::optional<DeskServer> desk;
    const auto tell = [&service](const std::string& sentence) { service->Warn(sentence); };
    const auto changes = [&service] { return service->Changes(); };
    try {
        if (!console_.empty())
            desk.emplace(DeskOptions{directory, ProgramPath(), tell, changes}, console_, console_group_);
    } catch (const CommandError& error) {
        if (!also_without_console) throw;
        service->Warn(error.what());
    }
    return service->Run();
}

LogFormat ServeOptions::Format() const {
    if (format_.empty()) return LogFormat::Automatic;
    if (format_ == "plain") return LogFormat::Plain;
    if (format_ == system_log_) return LogFormat::System;
    if (format_ == "json") return LogFormat::JsonLines;
    throw CommandError(kBadUsage, Tr("--log-format: plain, {0} or json, not {1}", system_log_, Quoted(format_)));
}

std::unique_ptr<Service> ServeOptions::MakeService(const std::string& directory) const {
    const LogFormat format = Format();
    if (format == LogFormat::System && !log_file_.empty())
        throw CommandError(kBadUsage, Tr("--log-file: with --log-format plain or json"));
    SpeakTo(Language::English);  // in the log
    RaiseFileLimit();
    const auto every = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::duration<double>(every_));
    return std::make_unique<Service>(directory, every, metrics_, format, "",
                                     log_file_.empty() ? "" : WholePath(TreePath(log_file_)), expected_.Number());
}

}  // namespace tarvex::host
