#pragma once

// Changing a tree. An edit is data, so that it can be made by the command itself, or handed to the service that owns
// the tree.

#include <map>
#include <string>
#include <vector>

#include "tarvex/tarvex.h"

namespace tarvex::host {

// All text is UTF-8. The words are one of
//     user add KEY=VALUE...         user set USER KEY=VALUE...         user remove USER [WHAT]
//     profile add USER KEY=VALUE... profile set PROFILE KEY=VALUE...   profile remove PROFILE [WHAT]
//     forward add PROFILE KEY=VALUE... forward set FORWARD KEY=VALUE... forward remove FORWARD [WHAT]
//     schedule add FORWARD TERM     schedule remove|on|off FORWARD NUMBER     (counted from 1, or "all")
// with the settings keys of host/tree/keys.h and names as host/tree/names.h finds them. WHAT is what somebody was told
// that goes, in the words of WhatGoes: nothing is removed when it has become something else.
struct EditRequest {
    std::vector<std::string> words;
    std::map<std::string, std::string> secrets;  // passwords by settings key, as bytes; an empty one clears
    std::vector<std::string> uidls;              // forward add: ids on the server that count as handled already
};

// What a command that was carried out elsewhere has to say.
struct Reply {
    std::string printed;  // for standard output: lines
    std::string error;    // one sentence without a line end, when the exit code is not 0
};

// What a removal takes away, as the person is asked who wants it.
std::string WhatGoes(const CUser& user);
std::string WhatGoes(const CPopProfile& profile);
std::string WhatGoes(const CForwardAddress& forward);

// Applies an edit to the tree in memory and saves it; both stay as they were when it fails. Returns the exit code of
// the command. On the thread that owns the tree.
int Edit(CRootPath& root, const EditRequest& request, Reply& reply);

// The paths of the profiles in whose directories the edit writes or deletes: while a worker runs one of them, the edit
// has to wait, or the worker would save the old settings over the new ones. None for an edit that will fail.
std::vector<CString> TouchedProfiles(CRootPath& root, const EditRequest& request);

}  // namespace tarvex::host
