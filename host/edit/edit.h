#pragma once

// Changing a tree. An edit is data, so that it can be made by the command itself, or handed to the service that owns
// the tree.

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tarvex/tarvex.h"

namespace tarvex::host {

enum class EditKind { User, Profile, Forward, Schedule, Rules, Tree };
// Schedules are switched; to set one replaces its terms without dates. Rules are added to a tree that has none, and
// set. The last four are of
// profiles and forwarding addresses (host/held/memory_edit.h): a profile that waits may send, what is in the mailbox
// counts as handled (and the profile waits no longer), what was sent goes out again, a profile waits for an answer. A
// tree that is an old copy is accepted or caught up with (host/edit/tree_edit.h).
enum class EditVerb { Add, Set, Remove, SwitchOn, SwitchOff, Accept, CatchUp, Resend, Hold };

// As they are typed, in that order.
inline constexpr std::array<std::string_view, 6> kEditKinds = {"user",     "profile", "forward",
                                                               "schedule", "rules",   "tree"};
inline constexpr std::array<std::string_view, 9> kEditVerbs = {"add",    "set",      "remove", "on",  "off",
                                                               "accept", "catch-up", "resend", "hold"};

// All text is UTF-8; names are found as in host/tree/names.h.
struct EditRequest {
    EditRequest(EditKind new_kind, EditVerb new_verb, std::string new_name)
        : kind(new_kind), verb(new_verb), name(std::move(new_name)) {}

    EditKind kind;
    EditVerb verb;
    std::string name;  // of what is changed; for add, of what it goes into: empty for a user, and
                       // for the rules of the whole tree
    std::map<std::string, std::string> values;   // add, set: as typed, by settings key (host/settings/keys.h)
    std::map<std::string, std::string> secrets;  // add, set: passwords by settings key, as bytes; an empty one clears
    std::map<std::string, std::string> rules;    // of a new profile: as typed, by key of host.def
    bool again = false;                          // add: also what the tree has already
    std::vector<std::string> uidls;              // of a new forwarding address, and to catch up: ids that count as
                                                 // handled; to resend: the one message, or none for all
    std::string terms;                           // of a schedule, add: as ParseTerms reads them; set: a line for each
    std::optional<std::size_t> term_number;      // of a schedule, else: counted from 1; all terms when there is none
    std::string expected;  // remove: what the confirmation prompt said (WhatGoes); nothing is removed when that has
                           // changed since. Empty when nobody was asked
    std::string caller;    // the user who wants it; empty: not known
    std::string expected_held;  // the same of mail that is set aside (host/held/held_work.h)
    bool by_path = false;  // the name is a whole path: where that has gone, nothing else that is called so is meant
};

// "profile set"
std::string EditName(const EditRequest& request);

// What a command that was carried out elsewhere has to say.
struct Reply {
    std::string printed;  // for standard output: lines
    std::string error;    // one sentence without a line end, when the exit code is not 0
};

// Has `apply` fill the reply. Its exceptions become the reply's error and, with a CommandError, its exit code, which is
// returned.
int ReplyOf(Reply& reply, const std::function<void()>& apply);

// Whether the two fetch from the same mailbox: what it holds would be forwarded twice.
bool FetchTheSame(const CPopProfileSetting& one, const CPopProfileSetting& other);

// What a removal takes away, as the person is asked who wants it.
std::string WhatGoes(const CUser& user);
std::string WhatGoes(const CPopProfile& profile);
std::string WhatGoes(const CForwardAddress& forward);

// False when the edit names by its path what is not there.
bool IsThere(const CRootPath& root, const EditRequest& request);

// Applies an edit to the tree in memory and saves it; both stay as they were when it fails. Once it has returned kDone,
// a power failure does not undo it. Where only the last wait for the disk failed, the change stands in memory and on
// disk, and the result is kCannotWrite with an error that says so. Returns the exit code of the command. On the thread
// that owns the tree.
int Edit(CRootPath& root, const EditRequest& request, Reply& reply);

// The paths of the profiles in whose directories the edit writes or deletes: while a worker runs one of them, the edit
// has to wait, or the worker would save the old settings over the new ones. None for an edit that will fail.
std::vector<CString> TouchedProfiles(CRootPath& root, const EditRequest& request);

}  // namespace tarvex::host
