#pragma once

// No exception crosses the interface: an exported operation that may allocate runs its work behind this shield.

#include <utility>

namespace tarvex {

// The result of `work`, or `on_failure` when it throws.
template <class Result, class Work>
Result Shielded(Result on_failure, Work&& work) noexcept {
    try {
        return std::forward<Work>(work)();
    } catch (...) {
        return on_failure;
    }
}

// The same for work without a result.
template <class Work>
void Shielded(Work&& work) noexcept {
    try {
        std::forward<Work>(work)();
    } catch (...) {  // the operation's own state says what was done
        return;
    }
}

}  // namespace tarvex
