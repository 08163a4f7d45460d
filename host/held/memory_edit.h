#pragma once

// Edits of what counts as sent: of the lists of ids, and of what the rules remember (host/memory/memory.h).

#include "host/edit/edit.h"
#include "host/memory/memory.h"

namespace tarvex::host {

// As EditWithHeld, and the verbs Accept, CatchUp and Resend of profiles and forwarding addresses. Not beside a run of
// the profile; by the holder of the root's lock, whose memory it is.
int EditWithMemory(CRootPath& root, RuleMemory& memory, const EditRequest& request, Reply& reply);

}  // namespace tarvex::host
