// Counts failed logins.

#include "host/desk/login/attempts.h"

#include <algorithm>

namespace tarvex::host {
namespace {

std::string OfName(std::string_view name) { return std::string("name ").append(name.substr(0, 200)); }

// Whoever has one address of a network of IPv6 has all of it: the first four groups count.
std::string OfAddress(std::string_view address) {
    std::string subject("address ");
    if (address.find(':') == std::string_view::npos || address.starts_with("::ffff:"))
        return subject.append(address.substr(0, 100));
    std::size_t end = 0;
    for (int groups = 0; groups < 4 && end != std::string_view::npos; ++groups) {
        end = address.find(':', end == 0 ? 0 : end + 1);
        if (end != std::string_view::npos && address.substr(end).starts_with("::")) break;
    }
    return subject.append(address.substr(0, std::min<std::size_t>(end, 100)));
}

}  // namespace

bool Attempts::Begin(std::string_view name, std::string_view address, Clock::time_point now) {
    const std::lock_guard lock(mutex_);
    MakeRoom(now);
    Failures nobody;
    Failures& of_name = name.empty() ? nobody : Recent(OfName(name), now);
    Failures& of_address = Recent(OfAddress(address), now);
    if (of_name.size() >= kMostFailures || of_address.size() >= kMostFailures) return false;
    of_name.push_back(now);
    of_address.push_back(now);
    return true;
}

void Attempts::TakeBack(std::string_view name, std::string_view address) {
    const std::lock_guard lock(mutex_);
    DropNewest(OfName(name));
    DropNewest(OfAddress(address));
}

void Attempts::Forgive(std::string_view name, std::string_view address) {
    const std::lock_guard lock(mutex_);
    failures_.erase(OfName(name));
    DropNewest(OfAddress(address));
}

void Attempts::DropNewest(const std::string& subject) {
    const auto found = failures_.find(subject);
    if (found != failures_.end() && !found->second.empty()) found->second.pop_back();
}

Attempts::Failures& Attempts::Recent(const std::string& subject, Clock::time_point now) {
    Failures& failures = failures_[subject];
    while (!failures.empty() && now - failures.front() > kWithin) failures.pop_front();
    return failures;
}

void Attempts::MakeRoom(Clock::time_point now) {
    if (failures_.size() < kMostSubjects) return;
    std::erase_if(failures_,
                  [now](const auto& entry) { return entry.second.empty() || now - entry.second.back() > kWithin; });
    while (failures_.size() >= kMostSubjects) {
        failures_.erase(std::ranges::min_element(failures_, {}, [](const auto& e) { return e.second.back(); }));
    }
}

}  // namespace tarvex::host
