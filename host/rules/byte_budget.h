#pragma once

// How much of a common limit the runs of a process use, and whose turn it is when there is not enough for all.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <list>
#include <map>
#include <mutex>
#include <string>

namespace tarvex::host {

inline constexpr std::int64_t kMiB = std::int64_t{1} << 20;

// Thread-safe. A user is a run, by its profile's path, or whatever else keeps messages.
class ByteBudget {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Clock = std::function<Time()>;

    explicit ByteBudget(std::int64_t limit, Clock clock = std::chrono::steady_clock::now);

    // `largest`: what is larger does not fit into the memory, though it be alone.
    void SetLimits(std::int64_t limit, std::int64_t largest);
    std::int64_t Largest() const;

    // Whether the user, who holds so many bytes, may have so many more; then they count as his. Something larger than
    // the limit is let in when nobody else has anything. Who is refused with nothing in hand waits for his turn: what
    // he wants is kept free for him before others get more. But whoever has not asked for two minutes has lost his
    // place, and after ten minutes the others may pass for as long: someone may hold what he waits for during hours.
    // What is more than that counts as soon as it has come: `received` must live until Settle, Hold or Leave.
    bool Ask(const std::string& user, std::int64_t held_bytes, std::int64_t more_bytes,
             const std::atomic<std::int64_t>* received = nullptr);

    // Nothing more is asked for: what has been received counts in the place of what was asked for.
    void Settle(const std::string& user);

    void Hold(const std::string& user, std::int64_t bytes);
    void Leave(const std::string& user) { Hold(user, 0); }

    // Whether the user waits for his turn; whether it has come, or he does not wait. Counts as asking.
    bool IsWaiting(const std::string& user) const;
    bool HasRoomFor(const std::string& user);

    std::int64_t Used() const;

private:
    struct Share {
        std::int64_t held_bytes = 0;
        std::int64_t asked_bytes = 0;
        const std::atomic<std::int64_t>* received = nullptr;
        std::int64_t received_before = 0;

        std::int64_t ReceivedBytes() const { return received ? *received - received_before : 0; }
        std::int64_t Bytes() const;
    };
    struct Waiting {
        std::string user;
        std::int64_t bytes;
        Time since;
        Time last_asked;
    };

    bool Fits(const std::string& user, std::int64_t held_bytes, std::int64_t more_bytes) const;
    std::int64_t UsedByOthers(const std::string& user) const;
    std::int64_t KeptFree(const std::string& user) const;
    std::list<Waiting>::iterator Place(const std::string& user);
    void DropAbsent();

    mutable std::mutex mutex_;
    const Clock clock_;
    std::int64_t limit_;
    std::int64_t largest_ = std::numeric_limits<std::int64_t>::max();
    std::map<std::string, Share> shares_;
    std::list<Waiting> waiting_;  // in the order of their turns
};

}  // namespace tarvex::host
