#pragma once

// What the tests of the sockets share.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include "platform/net/name_lookup.h"
#include "platform/os/threads.h"
#include "testing/scripted_server.h"
#include "tests/support/black_hole.h"
#include "tests/support/trusted_authority.h"

namespace tarvex::testing {

using std::chrono::milliseconds;

class Stopwatch {
public:
    milliseconds Elapsed() const {
        return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start_);
    }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// Asks this in place of the system for as long as it lives.
class ResolverStandIn {
public:
    explicit ResolverStandIn(NameResolver resolver) { SetNameResolver(std::move(resolver)); }
    explicit ResolverStandIn(std::vector<std::string> addresses)
        : ResolverStandIn([addresses = std::move(addresses)](const std::string&) {
              NameAnswer answer;
              for (const std::string& address : addresses) answer.addresses.push_back(NumericAddress(address).value());
              return answer;
          }) {}
    ~ResolverStandIn() { SetNameResolver(nullptr); }
    ResolverStandIn(const ResolverStandIn&) = delete;
    ResolverStandIn& operator=(const ResolverStandIn&) = delete;
};

// Runs the work on a worker thread and terminates the worker once `reached` is fulfilled. The time-outs of the work
// must be far longer than this is allowed to take.
class InterruptedWorker {
public:
    explicit InterruptedWorker(std::function<void()> work) : work_(std::move(work)) {
        thread_ = AfxBeginThread(
            [](void* self) {
                static_cast<InterruptedWorker*>(self)->work_();
                return 0U;
            },
            this, 0, 0, 0, nullptr);
    }

    milliseconds Terminate() {
        const Stopwatch watch;
        TerminateThread(thread_, 0);
        return watch.Elapsed();
    }

private:
    std::function<void()> work_;
    Thread* thread_;
};

// Waits for an event of another thread, never for ever.
inline bool Happens(std::future<void>& event) {
    return event.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
}

}  // namespace tarvex::testing
