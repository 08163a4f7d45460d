#pragma once

// The journal of systemd by its own protocol: an entry is a datagram of fields. What they mean stands in
// systemd.journal-fields(7).

#include <sys/socket.h>

#include <string>
#include <utility>
#include <vector>

#include "host/system/posix/descriptor.h"

namespace tarvex::host {

inline constexpr const char* kJournalSocket = "/run/systemd/journal/socket";

using JournalFields = std::vector<std::pair<std::string, std::string>>;

// The fields as the bytes of an entry.
std::string JournalEntry(const JournalFields& fields);

class Journal {
public:
    explicit Journal(std::string path = kJournalSocket);

    // An entry that is too large for a datagram goes as a file in memory. False when the journal does not take it: it
    // is not there, or has not read for a while.
    [[nodiscard]] bool Send(const JournalFields& fields);

private:
    bool Hand(const msghdr& message);
    bool SendAsFile(const std::string& entry);

    std::string path_;
    Descriptor socket_;
    bool is_stuck_ = false;  // it did not read the last entry in time
};

}  // namespace tarvex::host
