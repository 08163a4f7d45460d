#pragma once

// Why a connection cannot be used.

#include <string>
#include <utility>

namespace tarvex {

enum class FailureKind { None, Disconnected, TimedOut };

struct Failure {
    FailureKind kind = FailureKind::None;
    std::string reason;

    explicit operator bool() const { return kind != FailureKind::None; }
};

inline Failure Disconnected(std::string reason) { return {FailureKind::Disconnected, std::move(reason)}; }
inline Failure TimedOut(std::string reason) { return {FailureKind::TimedOut, std::move(reason)}; }
inline Failure Interrupted() { return Disconnected("interrupted"); }

}  // namespace tarvex
