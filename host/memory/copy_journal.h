#pragma once

// The copies that were sent since the memory was written last, in ROOT/.tarvex/sent.recent: a line each, which costs a
// tenth of a transaction and outlives the process just the same.

#include <fstream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/history/root_database.h"
#include "host/memory/mail_digest.h"
#include "tarvex/text.h"

namespace tarvex::host {

struct SentCopy {
    ProfileName profile;
    std::string address;
    MailDigest digest;
    CTime sent = 0;

    bool operator==(const SentCopy&) const = default;
};

class CopyJournal {
public:
    explicit CopyJournal(const std::string& root);

    // What an earlier process left; nothing when it cannot be read. A line that is not whole does not count.
    std::vector<SentCopy> Read();

    // Hands the lines to the system. False when they could not be written, or cannot be read back.
    bool Add(std::span<const SentCopy> copies);

    // Whether it can be written.
    bool Touch();

    void Empty();

private:
    bool Write(std::string_view lines);
    bool Open(std::ios::openmode mode);

    const std::string folder_;
    const std::string path_;
    std::ofstream file_;
    bool is_empty_ = false;
};

}  // namespace tarvex::host
