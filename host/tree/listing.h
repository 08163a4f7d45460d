#pragma once

// What is in a tree, for a person or as JSON, on standard output. Passwords are never shown.

#include <string>
#include <string_view>
#include <vector>

#include "tarvex/tarvex.h"

namespace tarvex::host {

enum class Form { Text, Json };

// What could not be read, a sentence for each thing that is not shown for that, or not as it is.
using Unread = std::vector<std::string>;

// One line, or one object, for each; all of the tree, or those of one parent.
[[nodiscard]] Unread ListUsers(const CRootPath& root, Form form);
[[nodiscard]] Unread ListProfiles(const CRootPath& root, const CUser* only, Form form);
[[nodiscard]] Unread ListForwards(const CRootPath& root, const CPopProfile* only, Form form);

// Every key of one. These throw CommandError where it could not be read.
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
