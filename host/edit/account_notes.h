#pragma once

// What a change of rules means for the SMTP accounts of profiles.

#include <string>

#include "host/edit/key_values.h"
#include "host/settings/host_setting.h"
#include "tarvex/tree.h"

namespace tarvex::host {

// Lines to be told when these rules of the tree, a user or a profile have been set, by its directory; empty for none.
std::string NotesOnAccount(const CRootPath& root, const CString& directory, const KeyValues<HostRules>& values);

}  // namespace tarvex::host
