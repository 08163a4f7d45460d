// Operations on a UIDL list.

#include "tarvex/uidl.h"

#include <algorithm>
#include <string_view>
#include <unordered_set>

#include "platform/os/shield.h"
#include "tarvex/mail.h"

using tarvex::Shielded;

int FindOrAppendUidl(CStringArray& list, const CString& id) {
    const auto found = std::ranges::find(list, id);
    const auto index = static_cast<int>(found - list.begin());
    if (found != list.end()) return index;
    return Shielded(-1, [&] {
        list.push_back(id);
        return index;
    });
}

int RemoveOneUidl(CStringArray& list, const CString& id) {
    const auto found = std::ranges::find(list, id);
    if (found == list.end()) return 0;
    list.erase(found);
    return 1;
}

void KeepOnlyUidl(CStringArray& list, const CStringArray& other) {
    Shielded([&] {
        const std::unordered_set<std::string_view, CUidlHash> kept(other.begin(), other.end());
        std::erase_if(list, [&](const CString& id) { return !kept.contains(id); });
    });
}

void RemoveAllUidl(CStringArray& list) { CStringArray().swap(list); }
