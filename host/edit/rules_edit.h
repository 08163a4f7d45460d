#pragma once

// Changing the rules of a tree.

#include <map>
#include <string>

#include "host/edit/edit.h"
#include "host/system/durable_files.h"

namespace tarvex::host {

// Gives a tree its rules, all of them on (add), or changes those of the tree or of the profile that is named (set).
// Nothing has changed when it throws CommandError. Returns what there is to say; sets how it was saved, and where.
std::string EditRules(const CRootPath& root, const EditRequest& request, Saved& saved, CString& directory);

// Writes the host.def of a profile that is being made, with these values by key. Throws CommandError when the tree has
// no rules or a value is not allowed.
Saved SaveNewRules(const CRootPath& root, const CString& directory, const std::map<std::string, std::string>& given);

}  // namespace tarvex::host
