#pragma once

// No exception crosses the interface: an exported operation that may allocate runs its work behind this shield.

#include <exception>
#include <utility>

namespace tarvex {

// The result of `work`, or `on_failure` when it throws. `report` is told why, in English; what it throws is dropped.
template <class Result, class Work, class Report>
Result Shielded(Result on_failure, Work&& work, Report&& report) noexcept {
    const auto tell = [&report](const char* reason) noexcept {
        try {
            report(reason);
        } catch (...) {  // there is nobody left to tell
            return;
        }
    };
    try {
        return std::forward<Work>(work)();
    } catch (const std::exception& error) {
        tell(error.what());
    } catch (...) {
        tell("unknown exception");
    }
    return on_failure;
}

template <class Result, class Work>
Result Shielded(Result on_failure, Work&& work) noexcept {
    return Shielded(on_failure, std::forward<Work>(work), [](const char*) {});
}

// For work without a result: true when it did not throw.
template <class Work>
bool Shielded(Work&& work) noexcept {
    return Shielded(false, [&work] {
        work();
        return true;
    });
}

}  // namespace tarvex
