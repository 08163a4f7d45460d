// Writes the service's messages to the log of the system, a terminal or a file.

#include "host/service/log/service_log.h"

#include <chrono>
#include <ctime>
#include <utility>

#include "host/terminal/json.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr std::chrono::milliseconds kPatience{100};

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

std::string JsonOf(const LogEntry& entry) {
    const LogFacts& facts = entry.facts;
    Json json = {{"time", ShowIsoTime(std::time(nullptr))}, {"level", Word(entry.level)}, {"message", entry.text}};
    json["message_id"] = MessageId(facts.matter);
    if (!facts.profile.empty()) json["profile"] = facts.profile;
    if (!facts.result.empty()) json["result"] = facts.result;
    if (!facts.addresses.empty()) json["address"] = facts.addresses;
    if (!facts.user.empty()) json["user"] = facts.user;
    if (!facts.keys.empty()) json["key"] = facts.keys;
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

LogFormat Chosen(LogFormat format, bool to_system) {
    if (format != LogFormat::Automatic) return format;
    return to_system ? LogFormat::System : LogFormat::Plain;
}

}  // namespace

const char* MessageId(LogMatter matter) {
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

ServiceLog::ServiceLog(LogFormat format, const std::string& system_log, const std::string& file)
    : to_system_(file.empty() && SystemLog::IsExpected()), format_(Chosen(format, to_system_)) {
    if (format_ == LogFormat::System) system_log_.emplace(system_log);
    if (!file.empty()) file_.emplace(file);
}

void ServiceLog::Say(LogLevel level, const std::string& text, const LogFacts& facts) {
    const LogEntry entry{level, text, facts};
    const std::lock_guard lock(mutex_);
    if (!system_log_ || !system_log_->Take(entry)) Write(LineOf(entry));
}

std::string ServiceLog::LineOf(const LogEntry& entry) const {
    if (format_ == LogFormat::JsonLines) return JsonOf(entry) + '\n';
    return (to_system_ ? SystemLog::LineStart(entry.level) : ShowTime(std::time(nullptr)) + ' ') + entry.text + '\n';
}

void ServiceLog::Write(const std::string& line) {
    std::string lines = line;
    if (lost_ > 0) lines.insert(0, LineOf({LogLevel::Warning, '(' + ShowCount(lost_, "line") + " lost)", {}}));
    if (!file_) return WriteToErrors(lines);
    lost_ = file_->Append(lines) ? 0 : lost_ + 1;
}

void ServiceLog::WriteToErrors(const std::string& whole_lines) {
    if (!errors_.TakesMore(lost_ == 0 ? kPatience : std::chrono::milliseconds(0))) {
        ++lost_;
        return;
    }
    const std::string lines = (torn_ ? "\n" : "") + whole_lines;
    const std::size_t written = errors_.Write(lines);
    if (written == lines.size()) {
        lost_ = 0;
        torn_ = false;
    } else {
        ++lost_;
        torn_ = torn_ || written > 0;
    }
}

}  // namespace tarvex::host
