#pragma once

// Pieces that several answers are made of.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "host/desk/visit.h"
#include "host/history/tables/mail_tables.h"
#include "host/language/tr.h"
#include "host/settings/keys.h"

namespace tarvex::host {

inline constexpr std::size_t kMailsAPage = 50;

// One page of a list: the page that the question names, within what there is.
struct Page {
    Page(const Visit& visit, std::size_t count, std::size_t most)
        : pages(std::max<std::size_t>(1, (count + most - 1) / most)),
          number(static_cast<std::size_t>(
              std::clamp<std::int64_t>(visit.Number("page", 1), 1, static_cast<std::int64_t>(pages)))),
          first((number - 1) * most),
          last(std::min(count, first + most)) {}

    std::size_t pages, number, first, last;

    void AddTo(Json& answer) const {
        answer["page"] = number;
        answer["pages"] = pages;
    }
};

// All keys of a record, with what a form needs to know of each.
template <class Record>
Json JsonOfKeys(const Record& record) {
    Json keys = Json::array();
    for (const Key<Record>& key : Keys<Record>()) {
        Json choices = Json::array();
        for (const ValueWord& word : key.words) choices.push_back(word.word);
        keys.push_back({{"key", key.name},
                        {"group", Tr(key.group)},
                        {"meaning", Tr(key.meaning)},
                        {"unit", *key.unit ? Json(Tr(key.unit)) : Json()},
                        {"secret", key.type == KeyType::Password},
                        {"number", key.type == KeyType::Number},
                        {"words", std::move(choices)},
                        {"only_words", WordsAreAll(key)},
                        {"value", ShowValue(record, key)},
                        {"json", JsonValue(record, key)}});
    }
    return keys;
}

// What became of a message.
Json JsonOfMail(const FoundMail& found);

// The message that the question calls "M12", and its profile where that is still the one that fetched it. Throws
// Refusal
// ("missing") when the user may not see it.
struct CalledMail {
    FoundMail found;
    std::optional<NamedProfile> profile;
};
CalledMail MailCalled(const Visit& visit);

}  // namespace tarvex::host
