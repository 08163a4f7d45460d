// Writes the service's lines to the journal, a terminal or a file.

#include "host/service/posix/service_log.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "host/terminal/json.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr int kPatienceMs = 100;

// Whether standard error is the stream that JOURNAL_STREAM names.
bool IsJournal() {
    const char* const stream = std::getenv("JOURNAL_STREAM");
    struct stat status {};
    if (!stream || fstat(STDERR_FILENO, &status) != 0) return false;
    return stream == std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
}

// A terminal that says it takes more may take less than a line. Its other users are to wait as ever, so it is opened
// anew.
Descriptor OpenTerminal() {
    if (isatty(STDERR_FILENO) != 1) return Descriptor();
    return Descriptor(open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

// Made once, for good.
constexpr const char* MessageId(LogMatter matter) {
    switch (matter) {
        case LogMatter::Service:
            return "d0db19ba90c945eebf54a806dc926842";
        case LogMatter::RunStarted:
            return "d673410670f74f27b6028d494a6925ab";
        case LogMatter::RunEnded:
            return "1492e50131564114a940a04adf6e1837";
        case LogMatter::RunFailed:
            return "dba51d3afde7414bb652c1862a6f4088";
        case LogMatter::Profile:
            return "66f885ca15344d02a2166f2b9829df79";
        case LogMatter::Edit:
            return "02922ae1acff418380e825422c7bc7c7";
        case LogMatter::Request:
            return "0ffbadea04294debba8c2bbc7fea2b34";
        case LogMatter::Held:
            return "c19884bc322a4841832bfd788b5c2f82";
        case LogMatter::Trouble:
            break;
    }
    return "34840a973c3c481e96c82fd5fca686da";
}

constexpr const char* Word(LogLevel level) {
    switch (level) {
        case LogLevel::Error:
            return "error";
        case LogLevel::Warning:
            return "warning";
        case LogLevel::Notice:
            return "notice";
        case LogLevel::Info:
            return "info";
        case LogLevel::Debug:
            break;
    }
    return "debug";
}

std::string Number(LogLevel level) { return std::to_string(static_cast<int>(level)); }

// A field that has several values is there several times.
JournalFields FieldsOf(LogLevel level, const std::string& text, const LogFacts& facts) {
    JournalFields fields = {{"MESSAGE", text},
                            {"PRIORITY", Number(level)},
                            {"SYSLOG_IDENTIFIER", "tarvex"},
                            {"SYSLOG_PID", std::to_string(getpid())},
                            {"MESSAGE_ID", MessageId(facts.matter)}};
    const auto add = [&fields](const char* name, const std::string& value) {
        if (!value.empty()) fields.emplace_back(name, value);
    };
    add("TARVEX_PROFILE", facts.profile);
    add("TARVEX_RESULT", facts.result);
    for (const std::string& address : facts.addresses) add("TARVEX_ADDRESS", address);
    add("TARVEX_USER", facts.user);
    for (const std::string& key : facts.keys) add("TARVEX_KEY", key);
    return fields;
}

std::string JsonOf(LogLevel level, const std::string& text, const LogFacts& facts) {
    Json json = {{"time", ShowIsoTime(std::time(nullptr))}, {"level", Word(level)}, {"message", text}};
    json["message_id"] = MessageId(facts.matter);
    if (!facts.profile.empty()) json["profile"] = facts.profile;
    if (!facts.result.empty()) json["result"] = facts.result;
    if (!facts.addresses.empty()) json["address"] = facts.addresses;
    if (!facts.user.empty()) json["user"] = facts.user;
    if (!facts.keys.empty()) json["key"] = facts.keys;
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

LogFormat Chosen(LogFormat format, bool is_journal) {
    if (format != LogFormat::Automatic) return format;
    return is_journal ? LogFormat::Journal : LogFormat::Plain;
}

}  // namespace

ServiceLog::ServiceLog(LogFormat format, const std::string& journal_socket)
    : to_journal_(IsJournal()), format_(Chosen(format, to_journal_)), terminal_(OpenTerminal()) {
    if (format_ == LogFormat::Journal) journal_.emplace(journal_socket);
}

void ServiceLog::Say(LogLevel level, const std::string& text, const LogFacts& facts) {
    const std::lock_guard lock(mutex_);
    if (journal_ && journal_->Send(FieldsOf(level, text, facts))) return;
    Write(LineOf(level, text, facts));
}

std::string ServiceLog::LineOf(LogLevel level, const std::string& text, const LogFacts& facts) const {
    if (format_ == LogFormat::JsonLines) return JsonOf(level, text, facts) + '\n';
    return (to_journal_ ? '<' + Number(level) + '>' : ShowTime(std::time(nullptr)) + ' ') + text + '\n';
}

void ServiceLog::Write(const std::string& line) {
    const int output = terminal_.IsOpen() ? terminal_.Get() : STDERR_FILENO;
    pollfd errors{output, POLLOUT, 0};
    if (poll(&errors, 1, lost_ == 0 ? kPatienceMs : 0) != 1) {
        ++lost_;
        return;
    }
    std::string lines = line;
    if (lost_ > 0) lines.insert(0, LineOf(LogLevel::Warning, '(' + ShowCount(lost_, "line") + " lost)", {}));
    if (torn_) lines.insert(0, "\n");
    const ssize_t written = write(output, lines.data(), lines.size());
    if (written == static_cast<ssize_t>(lines.size())) {
        lost_ = 0;
        torn_ = false;
    } else {
        ++lost_;
        torn_ = torn_ || written > 0;
    }
}

}  // namespace tarvex::host
