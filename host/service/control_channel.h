#pragma once

// The way by which commands reach the service that owns a tree, as the service has it: on POSIX a Unix socket in the
// root, on Windows a named pipe. Nothing here waits but Wait.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/system/orders.h"

namespace tarvex::host {

inline constexpr std::size_t kMaxRequest_bytes = 16 << 20;  // the ids of some hundred thousand messages

// Who is at the other end.
struct ControlPeer {
    std::int64_t uid = -1;  // -1: users have no numbers, or it is not known
    std::string name;       // UTF-8
};

// A connection of a command.
class ControlConnection {
public:
    virtual ~ControlConnection() = default;

    enum class Taken { Some, Nothing, Gone };  // Gone: the other side has closed it, or it failed

    // Adds what has come, a piece at most, so that no client keeps the others waiting.
    virtual Taken Read(std::string& bytes) = 0;

    // Takes away from the front what has been sent. False: Gone.
    virtual bool Write(std::string& bytes) = 0;

    virtual bool HasLeft() = 0;

    // Whether the other side may ask anything: it is the service's own user or one that rules over the machine. Nothing
    // where the system cannot tell before something has come.
    virtual std::optional<bool> IsAllowed() = 0;

    virtual ControlPeer Peer() = 0;
};

class ControlChannel {
public:
    using Clock = std::chrono::steady_clock;

    // Listens in the place of what was left over: by whoever holds the lock of the root, and before there are other
    // threads. Throws CommandError.
    ControlChannel(const std::string& root, const Orders& orders);
    ~ControlChannel();
    ControlChannel(const ControlChannel&) = delete;
    ControlChannel& operator=(const ControlChannel&) = delete;

    // Null when nobody more has connected. Throws std::system_error when the system has no room for one.
    std::unique_ptr<ControlConnection> Accept();

    struct Watched {
        ControlConnection* connection = nullptr;
        bool to_read = false;
        bool to_write = false;
    };

    // Until somebody connects, one of these connections can go on, there is an order, or it is time.
    void Wait(bool for_more, const std::vector<Watched>& watched, Clock::time_point until);

    // Nobody is listened to any more.
    void Close();

private:
    struct Listener;
    std::unique_ptr<Listener> listener_;
};

}  // namespace tarvex::host
