#pragma once

// How many bytes the sockets of a thread move over the wire.

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tarvex {

// For as long as it lives, what the sockets of its thread receive and send is added to the counters, which any thread
// may read. Scopes of a thread may be nested; the innermost counts. Must be destroyed on the thread that made it.
class TrafficScope {
public:
    TrafficScope(std::atomic<std::int64_t>& received, std::atomic<std::int64_t>& sent);
    ~TrafficScope();
    TrafficScope(const TrafficScope&) = delete;
    TrafficScope& operator=(const TrafficScope&) = delete;

private:
    friend void CountReceived(std::size_t bytes);
    friend void CountSent(std::size_t bytes);

    std::atomic<std::int64_t>& received_;
    std::atomic<std::int64_t>& sent_;
    TrafficScope* const outer_;
};

void CountReceived(std::size_t bytes);
void CountSent(std::size_t bytes);

}  // namespace tarvex
