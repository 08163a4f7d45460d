#pragma once

// The tree as the desk has read it. Loading a large one for each question would take longer than all the rest.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "tarvex/tarvex.h"

namespace tarvex::host {

// From any thread.
class ReadTree {
public:
    // When runs have last begun is in the files of the tree, and no change that counts.
    static constexpr std::chrono::seconds kOldest{2};

    // `changes`: how often the tree has been changed by the service that alone changes it.
    ReadTree(std::string directory, std::function<std::uint64_t()> changes)
        : directory_(std::move(directory)), changes_(std::move(changes)) {}

    // Holds every change that the service has confirmed. Nobody writes in it. Throws CommandError.
    std::shared_ptr<const CRootPath> Now();

    void Forget();

private:
    const std::string directory_;
    const std::function<std::uint64_t()> changes_;
    std::mutex mutex_;
    std::shared_ptr<const CRootPath> tree_;
    std::uint64_t changes_then_ = 0;
    std::chrono::steady_clock::time_point read_;
};

}  // namespace tarvex::host
