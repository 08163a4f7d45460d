#pragma once

// The edit that a question describes.

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "host/desk/visit.h"
#include "host/edit/edit.h"

namespace tarvex::host {

// The place of a word among those that there are. Throws Refusal.
template <class Choice, std::size_t kCount>
Choice ChoiceIn(const std::string& word, const std::array<std::string_view, kCount>& words) {
    const auto found = std::ranges::find(words, word);
    if (found == words.end()) throw Refusal{"bad", {}};
    return static_cast<Choice>(found - words.begin());
}

// Of this user, who may make it. Throws Refusal. Passwords that were typed before into the form of a job ("draft"),
// about the same, count where the question brings none.
EditRequest AskedEdit(const Visit& visit);

// Throws Refusal when what the edit names is not there for this user, or the user may not make it.
void RequireAllowed(const Visit& visit, const EditRequest& request);

// As an answer says it; of passwords only which there are.
Json JsonOfDraft(const EditRequest& draft);

}  // namespace tarvex::host
