#pragma once

#include "tarvex/text.h"

namespace tarvex {

// The plain recipient of a forwarding address: without blanks, display name and comment, without brackets. A pair whose
// closing character comes first counts as missing.
CString PlainRecipient(CString address);

}  // namespace tarvex
