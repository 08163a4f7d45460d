#pragma once

// What the front door calls a failure of a connection: the class in a run's result (tarvex/result.h), and what the
// probe says (tarvex/probe.h).

#include "platform/net/failure.h"
#include "tarvex/probe.h"
#include "tarvex/result.h"

namespace tarvex {

struct FailureMeaning {
    FailureKind kind;
    CFailureClass in_result;
    CProbeFailure in_probe;
    CProbeReason reason;
};

// For FailureKind::None: an answer came, and it was no.
const FailureMeaning& MeaningOf(FailureKind kind);

}  // namespace tarvex
