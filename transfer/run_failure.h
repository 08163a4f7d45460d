#pragma once

// What ended a conversation, or a part of it, in the words of the run's result (tarvex/result.h).

#include <string_view>

#include "platform/net/connect_step.h"
#include "platform/net/failure.h"
#include "tarvex/result.h"

namespace tarvex {

// An answer that was not what the conversation needed: the reply, and the socket's own failure where it made the reply
// up. Both must outlive it.
struct Refusal {
    const Failure& failure;
    std::string_view reply;

    // The server's own words; empty where there are none.
    std::string_view Words() const { return failure ? std::string_view() : reply; }
};

CFailureClass PopClass(const Refusal& refusal);
CFailureClass SmtpClass(const Refusal& refusal);

CRunStage StageOf(ConnectStep step);

// Fills in a text of the result, which stays empty when there is no memory for it.
void Fill(CString& text, std::string_view value) noexcept;

// Fills in all but the message and its addresses.
void Fill(CRunFailure& told, CRunStage stage, CFailureClass failure_class, const Refusal& refusal) noexcept;

// For a conversation that an exception has ended, unless it was refused something before.
void FillException(CRunFailure& told, const char* reason) noexcept;

}  // namespace tarvex
