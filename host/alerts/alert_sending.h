#pragma once

// Telling one reader.

#include <functional>
#include <string>
#include <vector>

#include "host/alerts/alert_text.h"
#include "host/alerts/readers.h"
#include "tarvex/tree.h"

namespace tarvex::host {

// Whose SMTP server an alert may go through where the reader has none of its own: the most promising first.
struct Carrier {
    const CPopProfile* profile;
    HostRules rules;
};

// `copy`: a profile that is used for nothing else, for the conversations: they end when it is interrupted. `stops`:
// whether a program is to be ended.
struct Sending {
    CPopProfile& copy;
    std::function<bool()> stops;
};

struct SendingOutcome {
    std::string through;  // by what way it went; empty: it did not
    std::string why;      // it did not go, in one line that is fit to be shown
};

SendingOutcome SendMailTo(const Reader& reader, const AlertText& text, const std::vector<Carrier>& carriers,
                          const Sending& sending, CTime now);

// The program has 30 s.
SendingOutcome TellProgram(const Reader& reader, const Json& alert, const Sending& sending);

}  // namespace tarvex::host
