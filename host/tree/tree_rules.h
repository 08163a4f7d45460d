#pragma once

// What the rules of a tree (host/settings/host_setting.h) say about loading it and about what takes part in runs.

#include <string>

#include "tarvex/tree.h"

namespace tarvex::host {

// For what has just been loaded: in a tree with rules the children stand in the order of their numbers, and what was
// cut short counts as not loaded: the user, and each profile of which a file or that of its user cannot be relied on.
void ApplyRules(CRootPath& root);
void ApplyRules(CUser& user);  // without its profiles
void ApplyRules(CPopProfile& profile);

// The children in the order of their numbers. The engine keeps the order in which the system lists them.
void OrderByNumber(CRootPath& root);

// Whether mail can go to the address: it has an "@". With the rule `keyless` a run sends nothing to one that has none;
// a forwardaddress.def without a value yields the folder's name.
bool HasMailbox(const CForwardAddress& forward);

// "switched off (status 0)", or the same of its user, which counts in a tree with rules; empty when it is on.
std::string WhySwitchedOff(const CUser& user, const CPopProfile& profile);
inline bool IsSwitchedOn(const CUser& user, const CPopProfile& profile) {
    return WhySwitchedOff(user, profile).empty();
}

}  // namespace tarvex::host
