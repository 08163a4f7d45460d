#pragma once

// The sockets of the server of figures, in which the systems differ. Nothing here waits but MetricsListener::Wait.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/system/command_error.h"

namespace tarvex::host {

// A socket that is closed with its object.
class MetricsSocket {
public:
    static constexpr std::intptr_t kNone = -1;

    explicit MetricsSocket(std::intptr_t number = kNone) : number_(number) {}
    ~MetricsSocket() {
        if (IsOpen()) Close();
    }
    MetricsSocket(MetricsSocket&& other) noexcept : number_(std::exchange(other.number_, kNone)) {}
    MetricsSocket& operator=(MetricsSocket&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }

    std::intptr_t Number() const { return number_; }
    bool IsOpen() const { return number_ != kNone; }

    // How many bytes were moved; 0: none can be now. Nothing: the other side has gone.
    std::optional<std::size_t> Receive(std::span<char> room) const;
    std::optional<std::size_t> Send(std::string_view bytes) const;

private:
    void Close() const;

    std::intptr_t number_;
};

// A place on the loopback: "127.0.0.1:PORT" or "[::1]:PORT".
struct LoopbackPlace {
    std::string host;
    std::uint16_t port = 0;

    bool IsSix() const { return host == "[::1]"; }
    std::string Url() const;
};

LoopbackPlace ReadLoopbackPlace(const std::string& place);  // throws CommandError

CommandError CannotListen(const std::string& place, const std::string& why);
CommandError BadPlace(const std::string& place);

inline constexpr int kMetricsBacklog = 16;
inline constexpr std::string_view kUnixStart = "unix:";

class MetricsListener {
public:
    explicit MetricsListener(const std::string& place);  // throws CommandError
    ~MetricsListener();
    MetricsListener(const MetricsListener&) = delete;
    MetricsListener& operator=(const MetricsListener&) = delete;

    const std::string& Place() const;

    // None when nobody more has connected. Pauses for a moment when the system has no socket to spare.
    MetricsSocket Accept();

    struct Watched {
        std::intptr_t socket = MetricsSocket::kNone;
        bool to_send = false;  // else to receive
    };

    // Until somebody connects, one of these sockets can go on, or the time is over. Sockets are watched that have been
    // used until they could not go on. False, and at once, after Stop.
    bool Wait(bool for_more, const std::vector<Watched>& watched, std::chrono::milliseconds time);

    void Stop();  // on any thread

private:
    struct Sockets;
    std::unique_ptr<Sockets> sockets_;
};

}  // namespace tarvex::host
