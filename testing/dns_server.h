#pragma once

// A DNS server on a loopback port, UDP and TCP, that answers with the records it was given.

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tarvex::testing {

struct DnsRecord {
    unsigned short type;
    std::string data;
};

DnsRecord TextRecord(const std::vector<std::string>& strings);
DnsRecord ServiceRecordOf(unsigned short priority, unsigned short weight, unsigned short port,
                          const std::string& target);

class DnsServer {
public:
    DnsServer();
    ~DnsServer();

    std::string Address() const;  // "127.0.0.1:PORT"

    // A name that was never added does not exist.
    void Add(const std::string& name, DnsRecord record);
    void Add(const std::string& name, const std::string& text) { Add(name, TextRecord({text})); }

    // Makes of each reply what is sent, one datagram for each piece. Called on the server's thread.
    using Change = std::function<std::vector<std::string>(std::string reply, bool over_tcp)>;
    void Replies(Change change);

    std::vector<std::string> Asked() const;  // names, in the order of the queries

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tarvex::testing
