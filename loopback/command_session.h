#pragma once

// What the POP3 and the SMTP server have in common: commands that are counted and that a test can make fail.

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "loopback/line_session.h"

namespace tarvex::loopback {

std::string_view WithoutLineEnd(std::string_view line);

// The first word of the command in capitals; the rest without the blanks before it.
std::string Verb(std::string_view command);
std::string_view Argument(std::string_view command);

// Shared by a server's sessions and the test. Thread-safe.
class CommandDesk {
public:
    using Fault = std::function<std::string(const std::string& command)>;

    void SetFault(Fault fault);
    int Received(const std::string& verb) const;

    // Counts the command and returns what the test wants to happen instead of it.
    std::string Register(const std::string& command);

private:
    mutable std::mutex mutex_;
    std::shared_ptr<Fault> fault_;  // called without the lock, so that a test may ask the server from within
    std::map<std::string, int> received_;
};

class CommandSession : public LineSession {
public:
    CommandSession(asio::ip::tcp::socket socket, CommandDesk& desk) : LineSession(std::move(socket)), desk_(desk) {}

protected:
    void OnLine(std::string_view line) override { OnCommand(std::string(WithoutLineEnd(line))); }
    void OnCommand(const std::string& command);

    // Does what the command asks for and returns the answer.
    virtual std::string Obey(const std::string& command) = 0;

private:
    CommandDesk& desk_;
};

}  // namespace tarvex::loopback
