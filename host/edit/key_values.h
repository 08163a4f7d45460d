#pragma once

// The values that an edit gives to the keys of one record.

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/edit/edit.h"
#include "host/edit/survival.h"
#include "host/language/tr.h"
#include "host/settings/keys.h"
#include "host/system/command_error.h"

namespace tarvex::host {

template <class Record>
class KeyValues {
public:
    // Throws CommandError for a key that the record does not have.
    explicit KeyValues(const EditRequest& request) {
        for (const auto& [name, value] : request.values) Take(name, value, false);
        for (const auto& [name, secret] : request.secrets) Take(name, secret, true);
    }

    // Throws CommandError when a value is not allowed, or would not be read back; tries that in the root.
    void SetIn(Record& record, const CString& root) const {
        Assign(record);
        RequireSurvival(record, Keys(), root);
    }

    // For a record without texts. Throws CommandError when a value is not allowed.
    void Assign(Record& record) const {
        for (const auto& [key, value] : values_) SetValue(record, *key, value);
    }

    std::vector<const Key<Record>*> Keys() const {
        std::vector<const Key<Record>*> keys;
        for (const auto& value : values_) keys.push_back(value.first);
        return keys;
    }

    bool Has(std::string_view name) const {
        return std::ranges::any_of(values_, [&](const auto& value) { return value.first->name == name; });
    }

    // What differs, line by line.
    std::string Difference(const Record& before, const Record& after) const {
        std::string lines;
        for (const auto& [key, value] : values_) {
            lines.append("  ").append(key->name).append(": ");
            lines += Change(*key, ShowValue(before, *key), ShowValue(after, *key)) + '\n';
        }
        return lines;
    }

private:
    static std::string Change(const KeyInfo& key, const std::string& before, const std::string& after) {
        if (key.type == KeyType::Password) return after == Tr("(none)") ? Tr("removed") : Tr("stored");
        if (before == after) return Tr("\"{0}\" as before", after);
        return '"' + before + "\" -> \"" + after + '"';
    }

    void Take(const std::string& name, const std::string& value, bool secret) {
        const Key<Record>& key = KeyNamed<Record>(name);
        if ((key.type == KeyType::Password) != secret) {
            throw CommandError(kBadUsage, Tr("{0}: a password is never taken from the command line", key.name));
        }
        values_.emplace_back(&key, value);
    }

    std::vector<std::pair<const Key<Record>*, std::string>> values_;
};

}  // namespace tarvex::host
