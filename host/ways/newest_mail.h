#pragma once

// The newest message of a mailbox, to be looked at.

#include <cstdint>
#include <optional>
#include <string>

#include "host/settings/host_setting.h"
#include "tarvex/tree.h"

namespace tarvex::host {

struct NewestMail {
    std::optional<CString> text;  // as it was fetched; nothing: see the others
    bool is_empty = false;        // the mailbox
    bool is_too_large = false;    // the message
    CRunFailure why;              // of anything else
};

// Fetches it the way that these rules want, and nothing else; deletes nothing, and nothing counts as handled by it. On
// a profile that is used for nothing else: its settings are changed for it. No step takes longer than half a minute.
// Any thread.
NewestMail FetchNewest(CPopProfile& profile, const HostRules& rules, std::int64_t most_bytes);

}  // namespace tarvex::host
