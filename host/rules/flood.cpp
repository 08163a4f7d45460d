// Tells a flood from new mail.
//
// A list of ids tells what is new as long as most of it is still in the mailbox. It tells nothing when it is lost, or
// when the mailbox was renumbered or was listed as empty once. Of an empty list, the history of runs knows whether its
// address has had mail.

#include "host/rules/flood.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "host/history/history.h"
#include "host/system/paths.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

struct Compared {
    std::size_t fresh = 0;
    std::size_t known = 0;
    std::size_t gone = 0;  // of the known
};

Compared Compare(const CForwardAddress& address, const SortedIds& listed) {
    SortedIds known(address.uidls.begin(), address.uidls.end());
    Sort(known);
    DropRepeated(known);
    auto next = known.begin();
    const auto is_known = [&](std::string_view uidl) {
        while (next != known.end() && *next < uidl) ++next;
        return next != known.end() && *next == uidl;
    };
    const auto still_there = static_cast<std::size_t>(std::ranges::count_if(listed, is_known));
    return {listed.size() - still_there, known.size(), known.size() - std::min(known.size(), still_there)};
}

bool HasHadCopies(const std::string& root, const CPopProfile& profile, const CString& address) {
    try {
        return HistoryReader(root).HasHadCopies(profile.path, address);
    } catch (const DatabaseError&) {
        return false;  // nothing is known of it
    }
}

// Where messages are deleted when they were sent, a list that is there is often empty.
bool HasLostItsList(const CPopProfile& profile, const CForwardAddress& address, const std::string& root) {
    std::error_code ignored;
    const bool is_there = std::filesystem::exists(NativePath(address.path + "\\uidl.def"), ignored);
    return (!is_there || profile.setting.deletemail == 0) && HasHadCopies(root, profile, address.setting.address);
}

std::string Words(const Compared& ids, const CString& to) {
    const std::string fresh = ShowCount(static_cast<std::int64_t>(ids.fresh), "message");
    const std::string known = ShowCount(static_cast<std::int64_t>(ids.known), "message");
    const std::string why = ids.known == 0 ? "nothing is known any more of what it had"
                                           : std::to_string(ids.gone) + " of the " + known + " that it had are gone";
    return "the server lists " + fresh + " that " + to + " would get, and " + why;
}

}  // namespace

std::optional<std::string> WhyFlood(const CPopProfile& profile, const SortedIds& listed, const HostRules& rules,
                                    ProfileMemory& memory, const std::string& root) {
    for (const auto& address : profile.forward_addresses) {
        if (!address->takes_part) continue;
        const Compared ids = Compare(*address, listed);
        if (ids.fresh <= static_cast<std::size_t>(rules.floodlimit) || ids.gone * 5 < ids.known * 4) continue;
        const CString& to = address->setting.address;
        if (rules.sentonce && memory.HasSentAny(to)) continue;
        if (ids.known == 0 && !HasLostItsList(profile, *address, root)) continue;
        return Words(ids, to);
    }
    return std::nullopt;
}

bool HasUsedAnswer(const CRunResult& result) {
    if (result.lists == CSaved::Failed) return false;
    const bool found_nothing = result.ending == CRunEnding::NothingNew && result.messages_listed > 0 &&
                               result.messages_put_off == 0 && result.messages_not_fetched == 0;
    return result.ending == CRunEnding::Delivered || result.copies > 0 || result.copies_set_aside > 0 || found_nothing;
}

}  // namespace tarvex::host
