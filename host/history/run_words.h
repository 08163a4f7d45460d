#pragma once

// The outcome of a run in words: those that are stored and printed as JSON, and a sentence for people.

#include <cstddef>
#include <string>
#include <string_view>

#include "tarvex/result.h"

namespace tarvex::host {

bool IsFailure(CRunEnding ending);

// Whether there is more to tell of the run than that it was made, though all went well.
bool DidSomething(const CRunResult& result);

std::string_view Word(CRunEnding ending);            // "delivered"
std::string_view Word(CFailureClass failure_class);  // "time-out"
std::string_view Word(CRunStage stage);              // "RCPT TO"
std::string_view Word(CSaved saved);                 // "left alone"

// The value of a word; that of number 0 for one that is none.
template <class Enum>
Enum ValueOf(std::string_view word);

// What ended the run; null when nothing did, or an exception.
const CRunFailure* FailureOf(const CRunResult& result);

// Why the run failed, as bytes: what the server answered, else the engine's own words. Empty when it did not fail.
CString ReasonOf(const CRunResult& result);

// Why it failed, fit to be shown, in at most so many columns.
std::string ShowReason(const CRunResult& result, std::size_t columns);

// "forwarded 2 messages (3 copies)", "nothing new", "failed (3 in a row): 550 no such user". The reason is shortened to
// that many columns.
std::string HowItEnded(const CRunResult& result, std::int64_t failed_in_a_row, std::size_t columns);

// What of the run's state is not on disk, and what follows; empty when all is.
std::string WhatIsNotSaved(const CRunResult& result);

}  // namespace tarvex::host
