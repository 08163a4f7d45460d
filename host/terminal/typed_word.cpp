// Quotes a word that somebody typed, and finds the words that may have been meant.

#include "host/terminal/typed_word.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "host/language/tr.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kLongestWord = 60;

// How many letters must be left out, added, exchanged or swapped with their neighbour (Damerau's distance, each letter
// touched once).
std::size_t Distance(std::string_view a, std::string_view b) {
    std::vector<std::vector<std::size_t>> cost(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) cost[i][0] = i;
    for (std::size_t j = 0; j <= b.size(); ++j) cost[0][j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t exchanged = cost[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, exchanged});
            const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            if (swapped) cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
        }
    }
    return cost[a.size()][b.size()];
}

}  // namespace

std::string Quoted(std::string_view word) { return '"' + OneLineOfUtf8(word, kLongestWord) + '"'; }

std::string Listed(const std::vector<std::string>& words) {
    const std::size_t count = std::min(words.size(), kMostCandidates);
    std::string list;
    for (std::size_t i = 0; i < count; ++i)
        list += (i == 0 ? "" : i + 1 == words.size() ? Tr(" or ") : Tr(", ")) + Quoted(words[i]);
    return count < words.size() ? list + Tr(", ") + "..." : list;
}

std::vector<std::string> Nearest(std::string_view typed, const std::vector<std::string>& words) {
    std::vector<std::pair<std::size_t, std::string>> near;
    if (typed.size() > kLongestWord) return {};
    const std::string lower = Lower(typed);
    const std::size_t farthest = std::max<std::size_t>(1, typed.size() / 3);
    for (const std::string& word : words) {
        const std::string known = Lower(word);
        const bool is_begun = typed.size() > 2 && known.starts_with(lower);
        const bool is_as_long = known.size() <= lower.size() + farthest && lower.size() <= known.size() + farthest;
        if (word.size() > kLongestWord || (!is_begun && !is_as_long)) continue;
        const std::size_t distance = Distance(lower, known);
        if (distance <= farthest || is_begun) near.emplace_back(distance, word);
    }
    std::ranges::sort(near);
    near.erase(std::ranges::unique(near).begin(), near.end());
    std::vector<std::string> nearest;
    for (const auto& [distance, word] : near) {
        const bool is_farther = distance > near.front().first && !Lower(word).starts_with(lower);
        if (nearest.size() < kMostCandidates && !is_farther) nearest.push_back(word);
    }
    return nearest;
}

std::string MeantOneOf(const std::vector<std::string>& words) { return Tr("; did you mean {0}?", Listed(words)); }

std::string DidYouMean(std::string_view typed, const std::vector<std::string>& words) {
    const std::vector<std::string> nearest = Nearest(typed, words);
    return nearest.empty() ? "" : MeantOneOf(nearest);
}

}  // namespace tarvex::host
