// The words for every value of a run's result, and the sentence that `status`, the service and `run` print of it.

#include "host/history/run_words.h"

#include <algorithm>
#include <array>

#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

using namespace std::literals;

template <class Enum>
struct Worded {
    Enum value;
    std::string_view word;
};

// What stands for no value comes first.
constexpr std::array kEndings = {
    Worded{CRunEnding::NotEnded, "not ended"sv},
    Worded{CRunEnding::CouldNotBegin, "could not begin"sv},
    Worded{CRunEnding::NobodyTakesPart, "no address took part"sv},
    Worded{CRunEnding::MailboxFailed, "mailbox failed"sv},
    Worded{CRunEnding::NothingNew, "nothing new"sv},
    Worded{CRunEnding::Delivered, "delivered"sv},
    Worded{CRunEnding::DeliveryFailed, "delivery failed"sv},
    Worded{CRunEnding::Exception, "exception"sv},
    Worded{CRunEnding::KeptBack, "kept back"sv},
};
constexpr std::array kClasses = {
    Worded{CFailureClass::None, "none"sv},           Worded{CFailureClass::Permanent, "permanent"sv},
    Worded{CFailureClass::Transient, "transient"sv}, Worded{CFailureClass::Connection, "connection"sv},
    Worded{CFailureClass::TimeOut, "time-out"sv},    Worded{CFailureClass::Protocol, "protocol"sv},
    Worded{CFailureClass::Local, "local"sv},
};
constexpr std::array kStages = {
    Worded{CRunStage::None, "none"sv},
    Worded{CRunStage::Connect, "connect"sv},
    Worded{CRunStage::Tls, "TLS"sv},
    Worded{CRunStage::Greeting, "greeting"sv},
    Worded{CRunStage::Login, "login"sv},
    Worded{CRunStage::List, "list"sv},
    Worded{CRunStage::Delete, "DELE"sv},
    Worded{CRunStage::Retrieve, "RETR"sv},
    Worded{CRunStage::MailFrom, "MAIL FROM"sv},
    Worded{CRunStage::RcptTo, "RCPT TO"sv},
    Worded{CRunStage::Data, "DATA"sv},
    Worded{CRunStage::EndOfData, "end of data"sv},
};
constexpr std::array kSaved = {
    Worded{CSaved::NotTried, "not tried"sv},
    Worded{CSaved::Saved, "saved"sv},
    Worded{CSaved::LeftAlone, "left alone"sv},
    Worded{CSaved::Failed, "failed"sv},
};

constexpr const auto& TableOf(CRunEnding) { return kEndings; }
constexpr const auto& TableOf(CFailureClass) { return kClasses; }
constexpr const auto& TableOf(CRunStage) { return kStages; }
constexpr const auto& TableOf(CSaved) { return kSaved; }

template <class Enum>
std::string_view WordOf(Enum value) {
    const auto& table = TableOf(value);
    const auto found = std::ranges::find(table, value, &Worded<Enum>::value);
    return (found == table.end() ? table.begin() : found)->word;
}

std::string Copies(int count) { return std::to_string(count) + (count == 1 ? " copy" : " copies"); }

}  // namespace

bool IsFailure(CRunEnding ending) {
    switch (ending) {
        case CRunEnding::NobodyTakesPart:
        case CRunEnding::NothingNew:
        case CRunEnding::Delivered:
        case CRunEnding::KeptBack:
            return false;
        default:
            return true;
    }
}

std::string_view Word(CRunEnding ending) { return WordOf(ending); }
std::string_view Word(CFailureClass failure_class) { return WordOf(failure_class); }
std::string_view Word(CRunStage stage) { return WordOf(stage); }
std::string_view Word(CSaved saved) { return WordOf(saved); }

template <class Enum>
Enum ValueOf(std::string_view word) {
    const auto& table = TableOf(Enum{});
    const auto found = std::ranges::find(table, word, &Worded<Enum>::word);
    return (found == table.end() ? table.begin() : found)->value;
}

template CRunEnding ValueOf<CRunEnding>(std::string_view);
template CFailureClass ValueOf<CFailureClass>(std::string_view);
template CRunStage ValueOf<CRunStage>(std::string_view);
template CSaved ValueOf<CSaved>(std::string_view);

const CRunFailure* FailureOf(const CRunResult& result) {
    if (result.ending == CRunEnding::MailboxFailed) return &result.mailbox;
    if (result.ending == CRunEnding::DeliveryFailed) return &result.delivery;
    return nullptr;
}

CString ReasonOf(const CRunResult& result) {
    if (result.ending == CRunEnding::CouldNotBegin) return "it could not begin: no memory or no thread for it";
    if (result.ending == CRunEnding::Exception) return result.exception;
    const CRunFailure* const failure = FailureOf(result);
    if (!failure) return {};
    CString reason = failure->reply.empty() ? failure->reason : failure->reply.substr(0, failure->reply.find('\r'));
    if (reason.empty()) reason = "an empty answer";
    if (!failure->recipient.empty()) reason += " (" + failure->recipient + ')';
    return reason;
}

std::string HowItEnded(const CRunResult& result, std::int64_t failed_in_a_row, std::size_t columns) {
    if (IsFailure(result.ending)) {
        const std::string times = failed_in_a_row > 1 ? " (" + std::to_string(failed_in_a_row) + " in a row)" : "";
        return "failed" + times + ": " + OneLine(ReasonOf(result), columns);
    }
    std::string text(Word(result.ending));
    if (result.ending == CRunEnding::Delivered) {
        const bool to_some = result.messages_delivered == 0 && result.copies > 0;  // the others lack them
        text = "forwarded " + (to_some ? Copies(result.copies) : ShowCount(result.messages_delivered, "message"));
        if (!to_some && result.copies != result.messages_delivered) text += " (" + Copies(result.copies) + ')';
    }
    if (result.ending == CRunEnding::KeptBack) text = "kept back by a rule";
    if (result.copies_set_aside > 0) text += ", set aside " + Copies(result.copies_set_aside);
    if (result.messages_put_off > 0) text += ", left " + std::to_string(result.messages_put_off) + " for the next run";
    if (result.messages_not_fetched > 0) text += ", could not fetch " + std::to_string(result.messages_not_fetched);
    return text;
}

std::string WhatIsNotSaved(const CRunResult& result) {
    if (result.lists == CSaved::Failed) return "what its last run forwarded could not be recorded, and may come again";
    if (result.settings == CSaved::Failed) return "when it last ran could not be recorded";
    if (result.log == CSaved::Failed) return "its log could not be written";
    return {};
}

}  // namespace tarvex::host
