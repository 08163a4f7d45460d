#pragma once

// Every key of the settings files: what it means, what it may hold, and its way from a word of the command line into
// its record and back. The options, the help, `show`, `set` and --json are all made from these tables.

#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tarvex/settings.h"

namespace tarvex::host {

enum class KeyType {
    Text,
    Path,       // in the bytes of the system's own names
    HostName,   // or an address of the Internet protocol
    Login,      // text without control characters
    Mailbox,    // me@example.org
    Recipient,  // also with a display name or a comment
    Mailboxes,  // none, or as many as `highest` says, separated by commas
    Password,
    Number,
    Moment,  // "2026-12-24 18:00", "now", "never"
};

// A word that stands for a number.
struct ValueWord {
    const char* word;
    int value;
};

struct KeyInfo {
    const char* name;         // as in the file, and as an option behind "--"
    const char* group;        // heading in the help
    const char* placeholder;  // what stands behind the option in the help
    const char* meaning;
    KeyType type = KeyType::Text;
    const char* unit = "";                  // of a number
    std::span<const ValueWord> words = {};  // of a number; the first that fits is shown
    int lowest = 0;                         // of a number, as the next
    int highest = 0;
    bool is_needed = false;   // never empty
    bool is_of_root = false;  // of the rules: of the whole tree alone
    bool is_shared = false;   // of the rules: of the tree and of users, not of a profile
    const char* server = "";  // of an account: the key that names its server
};

template <class Record>
struct Key : KeyInfo {
    std::variant<CString Record::*, int Record::*, CTime Record::*, bool Record::*> field;
};

// In the order in which they are shown. For CAppSetting, CUserSetting, CPopProfileSetting, CForwardAddressSetting
// and HostRules (host/settings/host_setting.h).
template <class Record>
std::span<const Key<Record>> Keys();

// Throws CommandError when the record has no such key.
template <class Record>
const Key<Record>& KeyNamed(std::string_view name);

// Whether the words of a number name all its values.
bool WordsAreAll(const KeyInfo& key);

// What the key accepts, for a sentence: "on or off", "0 to 600", "a host name or address".
std::string AllowedValues(const KeyInfo& key);

// The value that a word of the command line (UTF-8) stands for; throws CommandError when the key does not allow it. A
// password takes the bytes as they are: a server compares bytes.
template <class Record>
void SetValue(Record& record, const Key<Record>& key, std::string_view word);

// A value as a person reads it, and writes it; passwords are never shown.
template <class Record>
std::string ShowValue(const Record& record, const Key<Record>& key);

// A value as it stands in the file: numbers as numbers, moments as ISO 8601 local time. Of a password it says only
// whether there is one.
template <class Record>
nlohmann::ordered_json JsonValue(const Record& record, const Key<Record>& key);

// Whether two addresses are the same, whatever display names, comments and letter case they come with.
bool SameMailbox(const CString& left, const CString& right);

// The moment that a text means (see KeyType::Moment), to the minute. Throws CommandError when it is none.
CTime ParseMoment(std::string_view text);

}  // namespace tarvex::host
