#pragma once

// What became of each message: for every address that was to get a copy, whether it has it, and the server's answer.

#include <cstdint>
#include <string_view>
#include <vector>

#include "tarvex/text.h"

namespace tarvex::host {

enum class CopyFate {
    Waits,       // for a later run
    Sent,        // the SMTP server has taken it
    HadAlready,  // it was sent before, whatever the id says
    Refused,     // and set aside
    Parked,      // set aside unasked, for the address is parked
    Report,      // set aside: a delivery report about an address of the profile
    Loop,        // set aside: it has passed the profile before
};
std::string_view Word(CopyFate fate);  // "sent"
CopyFate FateOf(std::string_view word);

using Milliseconds = std::int64_t;  // since 1970

struct TracedCopy {
    CString address;  // as in its setting; empty: it is about the message as a whole
    CopyFate fate = CopyFate::Waits;
    Milliseconds offered = 0;  // when the server was asked to take it; 0 when it was not
    Milliseconds ended = 0;    // when that came about
    CString words;             // the server's answer, or why; untrusted bytes

    bool operator==(const TracedCopy&) const = default;
};

// A message in one run.
struct TracedMail {
    CString uidl;
    CString header;            // its From, Subject and Message-ID, as they came
    std::int64_t bytes = 0;    // as it was fetched; 0 when it was not
    Milliseconds fetched = 0;  // when the server was asked for it; 0 when that is not known
    std::vector<TracedCopy> copies;

    bool operator==(const TracedMail&) const = default;
};

}  // namespace tarvex::host
