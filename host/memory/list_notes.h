#pragma once

// What the lists of ids of a profile held after the run that saved them last: the newest ids of each. By that a list is
// known that is older, because somebody brought it back from a backup or copied half a tree.
//
// A note is never newer than its list: a list is on disk before it is noted, and what a run is about to take off a list
// is struck from the note before. So no crash makes a list look older than its note. What a list has in addition says
// nothing.

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/memory/memory.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

class Database;

// Belongs to one profile, as its memory.
class ListNotes {
public:
    explicit ListNotes(ProfileMemory& memory) : memory_(memory) {}

    // Why a list is older than what is noted of it: it lacks ids that it held, and that the server lists. Nothing when
    // none is, and of a list that is empty: that one is lost, not old.
    std::optional<std::string> WhyOlder(const CPopProfile& profile, std::span<const CMailOnServer> listing) const;

    // Before a run that goes on: strikes what it will take off the lists, because the server lists it no more.
    // `listed`: the ids of the listing, sorted.
    void BeforeRun(const CPopProfile& profile, std::span<const std::string_view> listed, CTime now);

    // Before a message is deleted: the run takes its id off the lists, and the server may keep it all the same.
    void BeforeDeletion(const CPopProfile& profile, std::string_view id, CTime now);

    // Of a copy whose run has ended: notes the lists that are on disk. That is on disk with the next RuleMemory::Save.
    void AfterRun(const CPopProfile& copy, CTime now);

    // The profile has these addresses now: what is noted of others goes.
    void KeepNotesOf(const CPopProfile& profile, CTime now);

    // The list of the address may lose what it holds.
    void Forget(const CForwardAddress& address, CTime now);

private:
    ProfileMemory& memory_;
};

// Strikes all such notes from a copy of the memory: in a backup the lists are older than the memory.
void ForgetLists(Database& copy);

}  // namespace tarvex::host
