#pragma once

// Mail servers whose packages conflict with Postfix and Dovecot: Exim, OpenSMTPD and Solid POP3, with the settings of
// their packages but for what is said here. fetch.sh has unpacked them into a small root directory; each server runs in
// a copy of it, by chroot, started by root.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/real/servers/real_servers.h"

namespace tarvex::testing {

class RootedServer {
public:
    // Why none of them can run here; empty when they can.
    static std::string Missing();

    int Port() const { return port_; }
    std::string Output() const;  // what it has printed

protected:
    RootedServer();
    std::filesystem::path operator/(const std::string& name) const { return folder_ / ("root/" + name); }
    // Runs a script in the root directory, as root, that becomes the server; waits for its greeting.
    void Start(const std::string& script, const std::string& greeting);

    ServerFolder folder_;

private:
    int port_;
    std::unique_ptr<ServerProcess> process_;
};

// Relays all mail to another server on this machine. More settings go before those of the package.
class EximServer : public RootedServer {
public:
    explicit EximServer(int relay_port, const std::string& settings = "");
};

class OpenSmtpdServer : public RootedServer {
public:
    explicit OpenSmtpdServer(int relay_port, const std::string& settings = "");
};

// One mailbox, that of kAlice; any password will do.
class SolidPopServer : public RootedServer {
public:
    enum class Mailbox {
        Maildir,  // its ids come from the names of the files
        File,     // in mbox format; its ids come from the headers
    };
    explicit SolidPopServer(Mailbox kind);

    void Deliver(const std::vector<GeneratedMail>& mails);
    // From now on the server cannot remove anything.
    void ForbidWriting() const;
    int Count() const;  // messages in a Maildir

private:
    std::filesystem::path Path() const { return *this / "home/alice/mail"; }

    Mailbox kind_;
};

}  // namespace tarvex::testing
