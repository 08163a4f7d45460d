#pragma once

// A small POP3 server and a small SMTP server on loopback that keep their mail in memory: for the demo and for whole
// runs. Both speak their protocol properly (RFC 1939, RFC 5321) and can be told to fail at a chosen step.

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tarvex::loopback {

struct StoredMail {
    std::string uidl;
    std::string text;  // as sent, CR LF line ends, not dot-stuffed
};

// One mailbox behind one login. USER/PASS, APOP, STAT, UIDL, LIST, RETR, TOP (header alone), DELE, NOOP, RSET, QUIT.
// Each login works on the mailbox as it is then; what it deletes goes at QUIT, and stays when it ends otherwise.
class MailboxServer {
public:
    MailboxServer(std::string user, std::string password);
    ~MailboxServer();

    int Port() const;
    void Add(StoredMail mail);
    void Remove(const std::string& uidl);
    std::vector<StoredMail> Mails() const;  // what is in the mailbox now

    void OfferApop(bool offer);  // a timestamp in the greeting; on from the start
    void OfferUidl(bool offer);  // on from the start

    // Called with each command line before it is obeyed, on the server's thread. A non-empty result is sent instead of
    // the answer; the result "close" closes the connection, "stall" says nothing more until the client goes, "lose"
    // obeys the command and closes the connection without the answer. It may ask the server, and keep count in itself.
    void SetFault(std::function<std::string(const std::string& command)> fault);

    // Called with the id of each message that a QUIT is about to delete, on the server's thread.
    void SetOnDelete(std::function<void(const std::string& uidl)> on_delete);

    // How many times each command verb was received, over all connections ("RETR" -> 3).
    int Received(const std::string& verb) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

struct DeliveredMail {
    std::string sender;                   // without brackets
    std::vector<std::string> recipients;  // without brackets
    std::string text;                     // unstuffed, without the terminator
};

// Takes everything. EHLO (SIZE, 8BITMIME, AUTH CRAM-MD5 LOGIN PLAIN when a login is given), HELO, AUTH, MAIL, RCPT,
// DATA, RSET, NOOP, QUIT. With a login, MAIL before AUTH is refused (530).
class SinkServer {
public:
    SinkServer();
    SinkServer(std::string user, std::string password);
    ~SinkServer();

    int Port() const;
    std::vector<DeliveredMail> Delivered(std::size_t first = 0) const;  // without those before the first

    // As MailboxServer::SetFault; called also with the pseudo command "." at the end of each message.
    void SetFault(std::function<std::string(const std::string& command)> fault);

    // Called with each message at its end, on the server's thread. A non-empty result is sent instead of taking it.
    void SetJudge(std::function<std::string(const DeliveredMail& mail)> judge);

    int Received(const std::string& verb) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tarvex::loopback
