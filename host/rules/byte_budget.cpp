// Counts what the runs of a process hold in memory, and lets them in by turns.

#include "host/rules/byte_budget.h"

#include <algorithm>
#include <utility>

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;

constexpr auto kLosesItsPlaceAfter = 2min;
constexpr auto kKeptFreeFor = 10min;

}  // namespace

std::int64_t ByteBudget::Share::Bytes() const { return held_bytes + std::max(asked_bytes, ReceivedBytes()); }

ByteBudget::ByteBudget(std::int64_t limit, Clock clock) : clock_(std::move(clock)), limit_(limit) {}

void ByteBudget::SetLimits(std::int64_t limit, std::int64_t largest) {
    const std::lock_guard lock(mutex_);
    limit_ = limit;
    largest_ = largest;
}

std::int64_t ByteBudget::Largest() const {
    const std::lock_guard lock(mutex_);
    return largest_;
}

bool ByteBudget::Ask(const std::string& user, std::int64_t held_bytes, std::int64_t more_bytes,
                     const std::atomic<std::int64_t>* received) {
    const std::lock_guard lock(mutex_);
    DropAbsent();
    const auto place = Place(user);
    const bool fits = Fits(user, held_bytes, more_bytes);
    if (fits) {
        shares_[user] = {held_bytes, more_bytes, received, received ? received->load() : 0};
        if (place != waiting_.end()) waiting_.erase(place);
        return true;
    }
    shares_[user] = {held_bytes};
    if (place != waiting_.end()) {
        place->bytes = more_bytes;
        place->last_asked = clock_();
    } else if (held_bytes == 0) {
        waiting_.push_back({user, more_bytes, clock_(), clock_()});
    }
    return false;
}

void ByteBudget::Settle(const std::string& user) {
    const std::lock_guard lock(mutex_);
    const auto share = shares_.find(user);
    if (share == shares_.end() || !share->second.received) return;
    share->second = {share->second.held_bytes + share->second.ReceivedBytes()};
}

void ByteBudget::Hold(const std::string& user, std::int64_t bytes) {
    const std::lock_guard lock(mutex_);
    if (bytes == 0) {
        shares_.erase(user);
    } else {
        shares_[user] = {bytes};
    }
}

bool ByteBudget::IsWaiting(const std::string& user) const {
    const std::lock_guard lock(mutex_);
    return std::ranges::count(waiting_, user, &Waiting::user) != 0;
}

bool ByteBudget::HasRoomFor(const std::string& user) {
    const std::lock_guard lock(mutex_);
    DropAbsent();
    const auto place = Place(user);
    if (place == waiting_.end()) return true;
    place->last_asked = clock_();
    return Fits(user, 0, place->bytes);
}

std::int64_t ByteBudget::Used() const {
    const std::lock_guard lock(mutex_);
    return UsedByOthers({});
}

bool ByteBudget::Fits(const std::string& user, std::int64_t held_bytes, std::int64_t more_bytes) const {
    const std::int64_t used = UsedByOthers(user) + held_bytes + KeptFree(user);
    return used == 0 || used + more_bytes <= limit_;
}

std::int64_t ByteBudget::UsedByOthers(const std::string& user) const {
    std::int64_t used = 0;
    for (const auto& [other, share] : shares_) used += other == user ? 0 : share.Bytes();
    return used;
}

// For those before the user.
std::int64_t ByteBudget::KeptFree(const std::string& user) const {
    const Time now = clock_();
    std::int64_t kept_free = 0;
    for (const Waiting& other : waiting_) {
        if (other.user == user) break;
        if ((now - other.since) / kKeptFreeFor % 2 == 0) kept_free += other.bytes;
    }
    return kept_free;
}

std::list<ByteBudget::Waiting>::iterator ByteBudget::Place(const std::string& user) {
    return std::ranges::find(waiting_, user, &Waiting::user);
}

void ByteBudget::DropAbsent() {
    std::erase_if(waiting_,
                  [now = clock_()](const Waiting& one) { return now > one.last_asked + kLosesItsPlaceAfter; });
}

}  // namespace tarvex::host
