#pragma once

// Changing the rules of a tree.

#include <string>

#include "host/edit/edit.h"
#include "host/system/durable_files.h"

namespace tarvex::host {

// Gives a tree its rules, all of them on (add), or changes those of the tree or of the profile that is named (set).
// Nothing has changed when it throws CommandError. Returns what there is to say; sets how it was saved, and where.
std::string EditRules(const CRootPath& root, const EditRequest& request, Saved& saved, CString& directory);

}  // namespace tarvex::host
