#pragma once

// The data tree of the demo.

#include "tarvex/tarvex.h"

namespace tarvex::host {

inline constexpr const char* kDemoUser = "demo";  // also at the two servers
inline constexpr const char* kDemoPassword = "secret";
inline constexpr const char* kDemoPhone = "phone@mobile.example";  // the whole mail
inline constexpr const char* kDemoOffice = "office@work.example";  // likewise, while its schedule is open: now
inline constexpr const char* kDemoPager = "pager@text.example";    // a text mail
inline constexpr int kDemoPagerLimit_bytes = 120;

// In an empty root: the host's rules, and a user with a mailbox and these three addresses, between servers on these
// ports of 127.0.0.1. Throws.
void BuildDemoTree(CRootPath& root, int pop_port, int smtp_port);

}  // namespace tarvex::host
