#pragma once

// Messages to set aside, for the tests of what is set aside.

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "host/held/held_record.h"

namespace tarvex::testing {

inline constexpr CTime kNow = 1'795'315'000;

inline std::string HeldText(const std::string& subject) {
    return "\r\nSubject: " + subject + "\r\n\r\n..text\r\n.\r\n";
}

inline host::HeldRecord SomeRecord(const std::string& address, char digest = 'a') {
    host::HeldRecord record;
    record.uidl = "id-1";
    record.digest = std::string(32, digest);
    record.set_aside = kNow;
    host::HeldAddress waiting;
    waiting.address = address + "@example.net";
    waiting.folder = "forwardto-" + address;
    waiting.route = "relay.example.org:25";
    CountRefusal(waiting, CRunStage::RcptTo, CFailureClass::Transient, "450 later", kNow);
    record.addresses.push_back(waiting);
    return record;
}

inline std::vector<int> Ids(const std::vector<host::HeldRecord>& records) {
    std::vector<int> ids;
    for (const auto& record : records) ids.push_back(record.id);
    return ids;
}

inline std::vector<std::string> NamesIn(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::ranges::sort(names);
    return names;
}

}  // namespace tarvex::testing
