// The words for every value of a run's result, and the sentence that `status`, the service and `run` print of it.

#include "host/history/run_words.h"

#include <algorithm>
#include <array>

#include "host/language/tr.h"
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

constexpr const char* kCouldNotBegin = Marked("it could not begin: no memory or no thread for it");

// In words for people.
std::string Said(CRunEnding ending) {
    switch (ending) {
        case CRunEnding::NobodyTakesPart:
            return Tr("no address took part");
        case CRunEnding::NothingNew:
            return Tr("nothing new");
        case CRunEnding::KeptBack:
            return Tr("kept back by a rule");
        default:
            return std::string(WordOf(ending));
    }
}

std::string Forwarded(const CRunResult& result) {
    const bool to_some = result.messages_delivered == 0 && result.copies > 0;  // the others lack them
    if (to_some) return TrN("forwarded {0} copy", "forwarded {0} copies", result.copies);
    const std::string messages = TrN("forwarded {0} message", "forwarded {0} messages", result.messages_delivered);
    if (result.copies == result.messages_delivered) return messages;
    return TrN("{1} ({0} copy)", "{1} ({0} copies)", result.copies, messages);
}

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

bool DidSomething(const CRunResult& result) {
    return result.messages_fetched > 0 || result.messages_not_fetched > 0 || result.messages_put_off > 0 ||
           result.copies_set_aside > 0 || result.ending == CRunEnding::KeptBack;
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
    if (result.ending == CRunEnding::CouldNotBegin) return kCouldNotBegin;
    if (result.ending == CRunEnding::Exception) return result.exception;
    const CRunFailure* const failure = FailureOf(result);
    if (!failure) return {};
    CString reason = failure->reply.empty() ? failure->reason : failure->reply.substr(0, failure->reply.find('\r'));
    if (reason.empty()) reason = "an empty answer";
    if (!failure->recipient.empty()) reason += " (" + failure->recipient + ')';
    return reason;
}

std::string ShowReason(const CRunResult& result, std::size_t columns) {
    if (result.ending == CRunEnding::CouldNotBegin) return Tr(kCouldNotBegin);
    return OneLine(ReasonOf(result), columns);
}

std::string HowItEnded(const CRunResult& result, std::int64_t failed_in_a_row, std::size_t columns) {
    if (IsFailure(result.ending)) {
        const std::string reason = ShowReason(result, columns);
        return failed_in_a_row > 1 ? Tr("failed ({0} in a row): {1}", failed_in_a_row, reason)
                                   : Tr("failed: {0}", reason);
    }
    std::string text = result.ending == CRunEnding::Delivered ? Forwarded(result) : Said(result.ending);
    if (result.copies_set_aside > 0)
        text += TrN(", set aside {0} copy", ", set aside {0} copies", result.copies_set_aside);
    if (result.messages_put_off > 0) text += Tr(", left {0} for the next run", result.messages_put_off);
    if (result.messages_not_fetched > 0) text += Tr(", could not fetch {0}", result.messages_not_fetched);
    return text;
}

std::string WhatIsNotSaved(const CRunResult& result) {
    if (result.lists == CSaved::Failed)
        return Tr("what its last run forwarded could not be recorded, and may come again");
    if (result.settings == CSaved::Failed) return Tr("when it last ran could not be recorded");
    if (result.log == CSaved::Failed) return Tr("its log could not be written");
    return {};
}

}  // namespace tarvex::host
