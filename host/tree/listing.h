#pragma once

// What is in a tree, for a person or as JSON, on standard output. Passwords are never shown.

#include <string_view>

#include "tarvex/tarvex.h"

namespace tarvex::host {

enum class Form { Text, Json };

// One line, or one object, for each; all of the tree, or those of one parent.
void ListUsers(const CRootPath& root, Form form);
void ListProfiles(const CRootPath& root, const CUser* only, Form form);
void ListForwards(const CRootPath& root, const CPopProfile* only, Form form);

// Every key of one.
void ShowUser(const CRootPath& root, std::string_view name, Form form);
void ShowProfile(const CRootPath& root, std::string_view name, Form form);
void ShowForward(const CRootPath& root, std::string_view name, Form form);

// The terms of an address, numbered, with what each does.
void ListSchedule(const CRootPath& root, std::string_view name, Form form);

// The rules as they hold for the profile, or for the whole tree when its name is empty. Throws CommandError when there
// are none.
void ShowRules(const CRootPath& root, std::string_view profile, Form form);

// The settings of appset.def.
void ShowSettings(const CAppSetting& setting, Form form);

}  // namespace tarvex::host
