#pragma once

// The programs that are measured. Each fetches one mailbox and sends every message on to one address.

#include <filesystem>
#include <string>
#include <vector>

#include "bench/measure.h"
#include "tests/real/servers/real_servers.h"

namespace tarvex::bench {

// What is to be forwarded, and whereto.
struct Task {
    testing::Login mailbox;
    int messages = 0;
    int pop_port = 0;
    int smtp_port = 0;
    int lmtp_port = 0;
};

// One program with its settings. Its state, and so what it remembers of a mailbox, lives in one folder.
class Peer {
public:
    explicit Peer(std::string name) : name_(std::move(name)) {}
    virtual ~Peer() = default;
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    const std::string& Name() const { return name_; }

    // Writes its settings into the folder, which is empty and belongs to AccountForServers.
    virtual void Prepare(const Task& task, const std::filesystem::path& folder) const = 0;

    // What is to be run.
    virtual Program Command(const std::filesystem::path& folder) const = 0;

    // Whether a run with this exit status did its work, given whether there was any new mail.
    virtual bool Succeeded(int status, [[maybe_unused]] bool new_mail) const { return status == 0; }

private:
    std::string name_;
};

class TarvexPeer : public Peer {
public:
    enum class Rules { Without, With };  // those of host.def

    explicit TarvexPeer(Rules rules = Rules::Without)
        : Peer(rules == Rules::With ? "tarvex with rules" : "tarvex"), rules_(rules) {}
    void Prepare(const Task& task, const std::filesystem::path& folder) const override;
    Program Command(const std::filesystem::path& folder) const override;

private:
    Rules rules_;
};

// POP3 with UIDL, one SMTP session for all.
class FetchmailPeer : public Peer {
public:
    enum class Delay { AsItComes, None };  // None: with TCP_NODELAY forced on

    explicit FetchmailPeer(Delay delay)
        : Peer(delay == Delay::None ? "fetchmail, TCP_NODELAY" : "fetchmail"), delay_(delay) {}
    void Prepare(const Task& task, const std::filesystem::path& folder) const override;
    Program Command(const std::filesystem::path& folder) const override;
    bool Succeeded(int status, bool new_mail) const override { return status == (new_mail ? 0 : 1); }

private:
    Delay delay_;
};

// POP3 with a cache of ids, one SMTP session for each message.
class FdmPeer : public Peer {
public:
    FdmPeer() : Peer("fdm") {}
    void Prepare(const Task& task, const std::filesystem::path& folder) const override;
    Program Command(const std::filesystem::path& folder) const override;

    // Another start that fills the cache of ids without sending anything.
    static void PrepareToRemember(const Task& task, const std::filesystem::path& folder);

private:
    static void WriteConfiguration(const Task& task, const std::filesystem::path& folder, const std::string& action);
};

// getmail6, whose only delivery over a network is LMTP, one session for all.
class GetmailPeer : public Peer {
public:
    GetmailPeer() : Peer("getmail6 (LMTP)") {}
    void Prepare(const Task& task, const std::filesystem::path& folder) const override;
    Program Command(const std::filesystem::path& folder) const override;
};

}  // namespace tarvex::bench
