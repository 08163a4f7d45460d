#pragma once

// Edits as tests write them: words as on the command line.

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "host/edit/edit.h"

namespace tarvex::testing {

// {"profile", "add", "taro", "address=me@example.org"}, {"forward", "remove", "phone", "what goes"},
// {"schedule", "add", "phone", "daily"}, {"schedule", "off", "phone", "2"}, {"schedule", "remove", "phone", "all"}
inline host::EditRequest EditOf(std::vector<std::string> words, std::map<std::string, std::string> secrets = {},
                                std::vector<std::string> uidls = {}) {
    using host::EditKind;
    using host::EditVerb;
    const auto kind = static_cast<EditKind>(std::ranges::find(host::kEditKinds, words[0]) - host::kEditKinds.begin());
    const auto verb = static_cast<EditVerb>(std::ranges::find(host::kEditVerbs, words[1]) - host::kEditVerbs.begin());
    if (kind == EditKind::User && verb == EditVerb::Add) words.insert(words.begin() + 2, "");
    host::EditRequest request(kind, verb, words[2]);
    request.secrets = std::move(secrets);
    request.uidls = std::move(uidls);
    for (const std::string& word : std::vector(words.begin() + 3, words.end())) {
        if (kind == EditKind::Schedule) {
            if (verb == EditVerb::Add)
                request.terms = word;
            else if (word != "all")
                request.term_number = std::stoul(word);
        } else if (word == "--again") {
            request.again = true;
        } else if (verb == EditVerb::Remove) {
            request.expected = word;
        } else {
            request.values[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
        }
    }
    return request;
}

}  // namespace tarvex::testing
