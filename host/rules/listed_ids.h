#pragma once

// The ids of a listing, in an order in which they are found quickly. A server mostly has them in that order already.

#include <algorithm>
#include <ranges>
#include <string_view>
#include <vector>

namespace tarvex::host {

using SortedIds = std::vector<std::string_view>;  // of texts that live elsewhere

inline void Sort(SortedIds& ids) {
    if (!std::ranges::is_sorted(ids)) std::ranges::sort(ids);
}

inline void DropRepeated(SortedIds& ids) {
    const auto repeated = std::ranges::unique(ids);
    ids.erase(repeated.begin(), repeated.end());
}

}  // namespace tarvex::host
