#pragma once

// Finds users, profiles and addresses by name. A name is a path ("user0/from0/forwardto0") or the last parts of one
// ("from0/forwardto0"). A nickname, login name or mail address may replace a directory in it ("taro/shop/phone"). A
// name must be unique. When candidates differ only in letter case, the one written exactly so is taken.

#include <string>
#include <string_view>
#include <vector>

#include "tarvex/tarvex.h"

namespace tarvex::host {

struct NamedProfile {
    CUser* user;
    CPopProfile* profile;
};

struct NamedForward {
    CUser* user;
    CPopProfile* profile;
    CForwardAddress* forward;
};

// As people count: user2 before user10.
bool NaturalLess(std::string_view left, std::string_view right);

// Everything there is, user2 before user10.
std::vector<CUser*> AllUsers(const CRootPath& root);
std::vector<NamedProfile> AllProfiles(const CRootPath& root);
std::vector<NamedForward> AllForwards(const CRootPath& root);

// Names are UTF-8. Throw CommandError: kNotFound says what there is, kBadUsage lists the candidates of an ambiguous
// name.
CUser& FindUser(const CRootPath& root, std::string_view name);
NamedProfile FindProfile(const CRootPath& root, std::string_view name);
NamedForward FindForward(const CRootPath& root, std::string_view name);

// Whether a user, a profile or a forwarding address has this whole path, whatever else is called so.
bool HasPath(const CRootPath& root, std::string_view path);

// The directory of a user or of a profile. Throws CommandError, also where the name is that of both.
CString FindUserOrProfile(const CRootPath& root, std::string_view name);

// The named profiles, each once, in the order of the names; without names all of the tree. Throws CommandError.
std::vector<NamedProfile> ChosenProfiles(const CRootPath& root, const std::vector<std::string>& names);

// The path of something in the tree below its root, fit to be shown: "user0/from0", on Windows, too.
std::string ShownName(const CRootPath& root, const CString& path);

}  // namespace tarvex::host
