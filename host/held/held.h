#pragma once

// Mail that was set aside: kept in the folder held/ of its profile until every address has it, or a person drops it.
//
//     held/7.mail      the bytes as they came from the POP3 server
//     held/7.def       the record (held_record.h); the message counts from the moment that this file is there
//     held/7.def.tmp   a record that is being written
//
// A crash leaves a message with its record or without what makes it count. One writer at a time for each profile: its
// run, or else the holder of the root's lock. Any thread and any process may read meanwhile.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/held/held_record.h"
#include "host/system/private_folder.h"

namespace tarvex::host {

// Of all messages that one profile has set aside. Reports and loops may have a quarter: strangers can make many.
struct HeldLimits {
    std::int64_t messages = 1000;
    std::int64_t bytes = std::int64_t{1} << 30;
};

enum class HoldOutcome {
    Held,     // it survives a power failure from now on
    AtLimit,  // it would be too many or too much; nothing was written
    Failed,   // no room, or another failure of the disk; nothing is left behind as far as the disk allows
};

class HeldStore {
public:
    explicit HeldStore(const CString& profile_directory) : folder_(profile_directory + "\\held") {}

    // Sets a message aside for the record's addresses. Where a whole message of the same kind and digest is held
    // already, those of the addresses that do not wait for it yet are added to its record instead, unless the folder
    // of one of them is in there as that of another address.
    [[nodiscard]] HoldOutcome Hold(std::string_view text, HeldRecord record, const HeldLimits& limits) const;

    // By their ids, damaged ones as well. Nothing when the folder cannot be read.
    std::optional<std::vector<HeldRecord>> List() const;

    std::optional<HeldRecord> Find(int id) const;  // nothing when there is no such record

    // The message as it was fetched, or as much of its beginning. Nothing when it cannot be read.
    std::optional<std::string> Text(int id, std::size_t most_bytes = std::string::npos) const;

    // Writes the record of a message that is held. False when the old one may still be there after a power failure.
    [[nodiscard]] bool Update(const HeldRecord& record) const;

    // Record and message. False when they may still be there after a power failure.
    [[nodiscard]] bool Remove(int id) const;

    // Removes what a crash has left that does not count.
    void CleanUp() const;

private:
    // The bytes of a message, -1 when it is not there.
    std::int64_t MailBytes(int id) const;

    // Nothing when the record is not there.
    std::optional<HeldRecord> RecordOf(int id, std::int64_t mail_bytes) const;
    bool HoldNew(int id, std::string_view text, const HeldRecord& record) const;
    bool WriteRecord(const HeldRecord& record) const;

    PrivateFolder folder_;
};

}  // namespace tarvex::host
