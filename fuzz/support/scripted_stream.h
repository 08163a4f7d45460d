#pragma once

// In the place of the network: one server whose answers stand in a script. It never looks at what it is sent.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tarvex::fuzz {

// What every TcpStream of the program is connected to as long as this lives. "~" in the script: the answer goes on
// after one thing more has been sent. Where the script has ended the server closes the connection.
class ScriptedServer {
public:
    // `chunk_bytes`: how many bytes arrive at once.
    ScriptedServer(std::string_view script, std::size_t chunk_bytes);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    std::vector<std::string> sent;  // each command, each message

    // For the stream.
    bool Waits();  // for something more to be sent
    bool HasEnded() const { return answers_.size() <= turn_; }
    std::string_view Next(std::size_t max_bytes);  // empty when the server waits or has ended
    void Sent(std::string what);

private:
    std::vector<std::string_view> answers_;
    std::size_t turn_ = 0;     // the answer under way
    std::size_t allowed_ = 1;  // answers that may be given by now
    std::size_t chunk_bytes_;
};

}  // namespace tarvex::fuzz
