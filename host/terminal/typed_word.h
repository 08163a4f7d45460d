#pragma once

// What is said about a word that somebody typed.

#include <string>
#include <string_view>
#include <vector>

namespace tarvex::host {

// The word (UTF-8) between quotation marks, shortened where it is long.
std::string Quoted(std::string_view word);

// "set", "show" or "status". At most so many of them.
inline constexpr std::size_t kMostCandidates = 5;
std::string Listed(const std::vector<std::string>& words);

// Those of the words that somebody may have meant, the nearest first: the same but for a few letters that were left
// out, added, exchanged or swapped; five at most.
std::vector<std::string> Nearest(std::string_view typed, const std::vector<std::string>& words);

// The end of a sentence: "; did you mean "set"?".
std::string MeantOneOf(const std::vector<std::string>& words);

// The same of the nearest words; nothing when none is near.
std::string DidYouMean(std::string_view typed, const std::vector<std::string>& words);

}  // namespace tarvex::host
