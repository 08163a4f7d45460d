#pragma once

// What the settings records have in common. Each record describes itself once, as a table of its keys in the order of
// its file; reading, writing, copying and comparing all walk that table, so a field cannot be forgotten in one of them.
// Unless noexcept, these throw std::bad_alloc and then leave the record as it was.

#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/codec/text.h"
#include "platform/os/clock.h"
#include "store/password.h"
#include "store/settings_file.h"
#include "store/time_text.h"
#include "tarvex/text.h"

namespace tarvex {

// Where a key's value lives in its record, and in which form it stands in the file.
template <class Record>
struct TextField {
    CString Record::*member;
};
template <class Record>
struct PasswordField {
    CString Record::*member;  // plain; scrambled in the file
};
template <class Record>
struct IntegerField {
    int Record::*member;
};
template <class Record>
struct TimeField {
    CTime Record::*member;
};
struct NoField {};  // the value is ignored when it is read, and 0 is written

// Whether assignment copies a field and equality compares it. A copy construction copies every field.
enum class Assigned { Yes, No };

template <class Record>
struct Key {
    std::string_view header;  // with its brackets
    std::variant<TextField<Record>, PasswordField<Record>, IntegerField<Record>, TimeField<Record>, NoField> field;
    Assigned assigned = Assigned::Yes;
};

template <class Record>
struct RecordFormat {
    std::string_view file_name;  // with its leading backslash
    LineTrimming trimming;
    std::span<const Key<Record>> keys;  // in the order of the file
};

template <class... Handlers>
struct Overloaded : Handlers... {
    using Handlers::operator()...;
};
template <class... Handlers>
Overloaded(Handlers...) -> Overloaded<Handlers...>;

// Takes one value line. True when it is a password that was not scrambled.
template <class Record>
bool TakeValue(Record& record, const Key<Record>& key, std::string_view value) {
    const auto take = Overloaded{
        [&](TextField<Record> field) {
            record.*field.member = value;
            return false;
        },
        [&](PasswordField<Record> field) {
            record.*field.member = UnscramblePassword(std::string(value));
            return record.*field.member == value;
        },
        [&](IntegerField<Record> field) {
            record.*field.member = DecimalValue(value);
            return false;
        },
        [&](TimeField<Record> field) {
            record.*field.member = ParseTime(value, CurrentTime());
            return false;
        },
        [](NoField) { return false; },
    };
    return std::visit(take, key.field);
}

template <class Record>
std::string ValueText(const Record& record, const Key<Record>& key) {
    const auto text = Overloaded{
        [&](TextField<Record> field) { return record.*field.member; },
        [&](PasswordField<Record> field) { return ScramblePassword(record.*field.member); },
        [&](IntegerField<Record> field) { return std::to_string(record.*field.member); },
        [&](TimeField<Record> field) { return FormatTime(record.*field.member); },
        [](NoField) { return std::string("0"); },
    };
    return std::visit(text, key.field);
}

// Swaps the values of one field.
template <class Record>
void SwapField(Record& left, Record& right, const Key<Record>& key) noexcept {
    const auto swap = Overloaded{
        [&](auto field) { std::swap(left.*field.member, right.*field.member); },
        [](NoField) {},
    };
    std::visit(swap, key.field);
}

template <class Record>
void SwapAllFields(Record& left, Record& right, const RecordFormat<Record>& format) noexcept {
    for (const Key<Record>& key : format.keys) SwapField(left, right, key);
}

template <class Record>
void CopyAllFields(Record& target, const Record& source, const RecordFormat<Record>& format) {
    Record draft;
    for (const Key<Record>& key : format.keys) {
        const auto copy = Overloaded{
            [&](auto field) { draft.*field.member = source.*field.member; },
            [](NoField) {},
        };
        std::visit(copy, key.field);
    }
    SwapAllFields(target, draft, format);
}

template <class Record>
void AssignFields(Record& target, const Record& source, const RecordFormat<Record>& format) {
    Record draft;
    CopyAllFields(draft, source, format);
    for (const Key<Record>& key : format.keys) {
        if (key.assigned == Assigned::Yes) SwapField(target, draft, key);
    }
}

// Whether the fields that assignment copies are equal.
template <class Record>
bool SameFields(const Record& left, const Record& right, const RecordFormat<Record>& format) noexcept {
    const auto same = Overloaded{
        [&](auto field) { return left.*field.member == right.*field.member; },
        [](NoField) { return true; },
    };
    for (const Key<Record>& key : format.keys) {
        if (key.assigned == Assigned::Yes && !std::visit(same, key.field)) return false;
    }
    return true;
}

// Reads the record's file in the directory: 0 = it cannot be read, 2 = a stored password was not scrambled, else 1.
template <class Record>
int ReadRecord(Record& record, const CString& directory, const RecordFormat<Record>& format, CLoaded& loaded) {
    std::vector<std::string_view> headers;
    headers.reserve(format.keys.size());
    for (const Key<Record>& key : format.keys) headers.push_back(key.header);

    Record draft;
    CopyAllFields(draft, record, format);
    bool rewrite = false;
    const auto take = [&](std::size_t i, std::string_view value) {
        if (TakeValue(draft, format.keys[i], value)) rewrite = true;
    };
    const std::string path = directory + std::string(format.file_name);
    if (!ReadSettingsFile(path, format.trimming, headers, take, loaded)) return 0;
    SwapAllFields(record, draft, format);
    return rewrite ? 2 : 1;
}

// Rewrites the record's file in the directory. False when the directory text is empty or the file cannot be written.
template <class Record>
bool WriteRecord(const Record& record, const CString& directory, const RecordFormat<Record>& format) {
    SettingsText text;
    for (const Key<Record>& key : format.keys) text.Add(key.header, ValueText(record, key));
    return text.WriteTo(directory, format.file_name);
}

}  // namespace tarvex
