#pragma once

// A desk that answers as the test wants, on a Unix socket.

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "host/system/posix/descriptor.h"

namespace tarvex::testing {

// One connection to it.
class DeskTalk {
public:
    explicit DeskTalk(host::Descriptor socket) : socket_(std::move(socket)) {}

    std::string ReadQuestion() const;          // JSON; empty when none comes whole
    void Send(std::string_view bytes) const;   // as they are
    void Answer(std::string_view json) const;  // behind its length
    void WaitForEnd() const;                   // until the console closes, at most a minute

private:
    host::Descriptor socket_;
};

class ScriptedDesk {
public:
    // Each connection on a thread of its own.
    ScriptedDesk(const std::string& path, std::function<void(const DeskTalk&)> script);
    ~ScriptedDesk();  // waits for the connections
    ScriptedDesk(const ScriptedDesk&) = delete;
    ScriptedDesk& operator=(const ScriptedDesk&) = delete;

private:
    void Serve();

    std::function<void(const DeskTalk&)> script_;
    host::Descriptor socket_;
    std::vector<std::thread> talks_;
    std::thread thread_;
};

}  // namespace tarvex::testing
