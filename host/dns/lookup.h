#pragma once

// Looks records up in the DNS: services (SRV) and texts (TXT).

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace tarvex::host {

struct ServiceRecord {
    std::string target;  // a host's name, without a dot at its end
    unsigned short port = 0;
    unsigned short priority = 0, weight = 0;
};

enum class DnsEnding {
    Found,
    NoSuchRecord,  // the DNS says so: the name does not exist, or has no such record
    NotOffered,    // of a service: the domain says that it does not have it
    Failed,        // no answer in time, or one that is none
};

template <class Record>
struct DnsAnswer {
    DnsEnding ending = DnsEnding::Failed;
    std::vector<Record> records;  // when found: one at least
    std::string reason;           // when failed: a line for people, and nothing of what the server sent
};

using ServiceAnswer = DnsAnswer<ServiceRecord>;
using TextAnswer = DnsAnswer<std::string>;

struct DnsSettings {
    std::chrono::milliseconds timeout{2000};  // of one look-up, from its beginning to its end
    // Who is asked, "ADDRESS" or "ADDRESS:PORT" ("[ADDRESS]:PORT" for IPv6); empty: the system's servers. On Windows
    // only these can be asked, and every look-up fails that wants another.
    std::string server = {};
};

// Each looks one name up, which is complete as it stands, waits no longer than the timeout, and throws only when there
// is no memory. On any thread.

// The records of one service, "_pop3s._tcp.example.com", in the order in which they are to be tried (RFC 2782).
[[nodiscard]] ServiceAnswer LookUpServices(const std::string& name, const DnsSettings& settings);

// Texts in the order of the answer; one that came in several strings is joined. They are a stranger's bytes.
[[nodiscard]] TextAnswer LookUpTexts(const std::string& name, const DnsSettings& settings);

// By priority, and records of one priority by chance: each comes first as often as its weight says. `draw` returns a
// number from 0 to the one given.
[[nodiscard]] std::vector<ServiceRecord> InOrderOfTrial(std::vector<ServiceRecord> records,
                                                        const std::function<unsigned(unsigned)>& draw);

}  // namespace tarvex::host
