#pragma once

// When the ids of a mailbox cannot be trusted to tell what is new.

#include <optional>
#include <string>

#include "host/memory/memory.h"
#include "host/rules/listed_ids.h"
#include "host/settings/host_setting.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

// Why a person is to be asked before all that looks new goes out; nothing where there is no flood, or where what an
// address was sent is remembered: then its messages are known by their bytes. `listed`: one for each message. `root`:
// the directory of the tree.
std::optional<std::string> WhyFlood(const CPopProfile& profile, const SortedIds& listed, const HostRules& rules,
                                    ProfileMemory& memory, const std::string& root);

// Whether a person's answer has served its purpose: the lists hold what the run has forwarded.
bool HasUsedAnswer(const CRunResult& result);

}  // namespace tarvex::host
