// Counts the bytes that a thread's sockets move.

#include "platform/net/traffic.h"

namespace tarvex {

namespace {

thread_local TrafficScope* innermost = nullptr;

// The numbers are for showing alone, so nothing has to wait for them.
void Add(std::atomic<std::int64_t>& counter, std::size_t bytes) {
    counter.fetch_add(static_cast<std::int64_t>(bytes), std::memory_order_relaxed);
}

}  // namespace

TrafficScope::TrafficScope(std::atomic<std::int64_t>& received, std::atomic<std::int64_t>& sent)
    : received_(received), sent_(sent), outer_(innermost) {
    innermost = this;
}

TrafficScope::~TrafficScope() { innermost = outer_; }

void CountReceived(std::size_t bytes) {
    if (innermost != nullptr) Add(innermost->received_, bytes);
}

void CountSent(std::size_t bytes) {
    if (innermost != nullptr) Add(innermost->sent_, bytes);
}

}  // namespace tarvex
