#pragma once

// The way by which the console reaches the desk: on POSIX a Unix socket, on Windows a named pipe. From any thread.

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "host/system/command_error.h"

namespace tarvex::host {

// A connection of the console.
class DeskConnection {
public:
    using Clock = std::chrono::steady_clock;

    virtual ~DeskConnection() = default;

    // Reads on until the text has so many bytes. False when they have not come until then, or the other side has gone.
    virtual bool Read(std::size_t bytes, Clock::time_point deadline, std::string& text) = 0;

    // Until the other side has taken all, has gone, or it is too late.
    virtual void Write(std::string_view text, Clock::time_point deadline) = 0;
};

class DeskListener {
public:
    // `place`: the path of the socket, in the place of one that was left over; on Windows the name of the pipe.
    // `group`: of POSIX: who may connect beside the own user, empty for nobody; on Windows administrators may and the
    // account of the console's service. Throws CommandError.
    DeskListener(const std::string& place, const std::string& group);
    ~DeskListener();
    DeskListener(const DeskListener&) = delete;
    DeskListener& operator=(const DeskListener&) = delete;

    // Waits for the next one, and calls `rest` each time that nobody has come for so long. Null after Stop. Throws
    // std::bad_alloc.
    std::unique_ptr<DeskConnection> Accept(std::chrono::milliseconds time, const std::function<void()>& rest);

    void Stop();

private:
    struct Way;
    std::unique_ptr<Way> way_;
};

CommandError CannotListenForConsole(const std::string& place, const std::string& why);

}  // namespace tarvex::host
