#pragma once

// How every profile is doing, for whoever tells of it: from its settings, the history of its runs, what is set aside
// and what the rules remember. What only the service knows is added by whoever asks it.

#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/held/held_work.h"
#include "host/history/history.h"
#include "host/memory/memory.h"
#include "host/state/run_now.h"
#include "host/terminal/json.h"
#include "host/tree/names.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

struct ProfileState {
    std::string name;
    std::string address;
    bool switched_on = false;
    bool has_log = false;         // switched on
    bool ran_unrecorded = false;  // before there was a history
    CTime last_due = 0;
    CTime next_due = 0;
    std::optional<RunNow> running;  // by a service
    std::optional<ProfileHistory> history;
    HeldCount held;
    NotesByMatter remembered;   // in a tree with rules
    Json sends_through;         // see JsonOfAccount
    std::string shared_server;  // the same in words, where the account is a shared one
    std::string wants_login;    // why no run begins before `tarvex login`
    std::string clear_login;    // the password goes over the network in clear
    std::string trouble;        // why it is not run, or what of its last run is not on disk
};

// Whom a matter of the rules is about, in words.
struct MatterWords {
    Matter matter;
    const char* json;
    const char* sentence;  // with a place for the subject, where there is one
};
std::span<const MatterWords> ToldMatters();

// What keeps the mail of a profile from going on.
struct Blocking {
    std::string_view rule;  // as the key of host.def is called: "floodguard", "backoff", "token"; empty for none
    CString message;        // the id of the one that the last run stopped at; empty for none
    CTime until = 0;        // 0: it does not pass by itself, or nobody knows
};
std::optional<Blocking> WhatBlocks(const ProfileState& state, CTime now);

// When the profile is tried next by itself, if it is; what is over is now.
std::optional<CTime> NextTry(const ProfileState& state, CTime now);

struct TreeState {
    std::vector<ProfileState> profiles;
    std::string trouble;  // what of it cannot be read, and why; empty when all can
};

// Of these profiles of a loaded tree; `directory` is its root. Throws nothing but std::bad_alloc.
TreeState StateOf(const CRootPath& root, const std::vector<NamedProfile>& profiles, const std::string& directory);

// A person has to do something about it.
bool WantsAPerson(const ProfileState& state);

}  // namespace tarvex::host
