// Gives failures of a conversation the class and the words that a run's result has for them.

#include "transfer/run_failure.h"

#include "platform/os/shield.h"
#include "transfer/failure_meaning.h"
#include "transfer/pop_conversation.h"
#include "transfer/smtp_replies.h"

namespace tarvex {
CFailureClass PopClass(const Refusal& refusal) {
    if (refusal.failure) return MeaningOf(refusal.failure.kind).in_result;
    return IsForNow(refusal.reply) ? CFailureClass::Transient : CFailureClass::Permanent;
}

CFailureClass SmtpClass(const Refusal& refusal) {
    if (refusal.failure) return MeaningOf(refusal.failure.kind).in_result;
    if (IsCode(refusal.reply, "421")) return CFailureClass::Connection;
    if (refusal.reply.starts_with('4')) return CFailureClass::Transient;
    return refusal.reply.starts_with('5') ? CFailureClass::Permanent : CFailureClass::Protocol;
}

CRunStage StageOf(ConnectStep step) {
    switch (step) {
        case ConnectStep::FindServer:
        case ConnectStep::Connect:
            return CRunStage::Connect;
        case ConnectStep::StartTls:
            return CRunStage::Tls;
        case ConnectStep::Greeting:
            break;
    }
    return CRunStage::Greeting;
}

void Fill(CString& text, std::string_view value) noexcept {
    Shielded([&] { text = value; });
}

void Fill(CRunFailure& told, CRunStage stage, CFailureClass failure_class, const Refusal& refusal) noexcept {
    told.stage = stage;
    told.failure_class = failure_class;
    Fill(told.reply, refusal.Words());
    Fill(told.reason, refusal.failure.reason);
}

void FillException(CRunFailure& told, const char* reason) noexcept {
    if (told.failure_class != CFailureClass::None) return;
    told.failure_class = CFailureClass::Local;
    Fill(told.reason, reason);
}

}  // namespace tarvex
