#pragma once

// What commands and the service do with mail that was set aside: count it, send it, drop it, and take it away with the
// address that it waits for.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/edit/edit.h"
#include "host/held/held_sending.h"
#include "host/history/tables/edit_tables.h"
#include "tarvex/tree.h"

namespace tarvex::host {

enum class HeldVerb { Send, Drop };
inline constexpr std::array<std::string_view, 2> kHeldVerbs = {"send", "drop"};

// Of one profile. A choice without a folder stands for a damaged message as a whole.
struct HeldRequest {
    HeldVerb verb = HeldVerb::Send;
    std::string profile;  // UTF-8, as host/tree/names.h finds it
    std::vector<HeldChoice> choice;
    std::string caller;  // as in EditRequest
};

// For the history; `by` who wants it.
MadeEdit EditOfHeld(const HeldRequest& request, EditedBy by);

struct HeldCount {
    std::int64_t messages = 0;
    std::int64_t copies = 0;   // a message for an address
    std::int64_t damaged = 0;  // of the messages
    std::int64_t bytes = 0;
    CTime next_try = 0;    // by itself: the earliest, though the time may be over; 0 for none
    bool readable = true;  // false: there may be more

    bool IsEmpty() const { return messages == 0 && readable; }
    void Add(const HeldCount& other);
};

HeldCount CountHeld(const CPopProfile& profile);
HeldCount CountHeld(const CUser& user);
HeldCount CountHeld(const CPopProfile& profile, const CForwardAddress& address);  // what waits for it

// "3 messages set aside"; empty for none.
std::string ShowHeld(const HeldCount& count);

// What is due in a tree with rules that set mail aside; `next_look`: when to ask again. Removes what a crash has left:
// by the holder of the root's lock, and never beside a run of the profile.
std::vector<HeldChoice> DueHeldOf(const CRootPath& root, const CPopProfile& profile, CTime now, CTime& next_look);

// How long the answer to a whole message may take, by the rules of the profile.
int EndOfDataSeconds(const CRootPath& root, const CPopProfile& profile);

// Strikes off what was chosen, which counts as sent from then on. With the last report no address counts as bouncing
// any more. Returns the exit code.
int DropHeld(const CRootPath& root, const CString& profile_path, const std::vector<HeldChoice>& choice,
             RuleMemory& memory, Reply& reply);

// What became of each of so many that were asked for. Returns the exit code.
int TellHeld(const std::vector<HeldResult>& results, std::size_t asked, Reply& reply);

// As Edit. What is removed takes the mail along that waits for it; nothing is removed when that is other mail than the
// request expects.
int EditWithHeld(CRootPath& root, const EditRequest& request, Reply& reply);

}  // namespace tarvex::host
