#pragma once

// The option --expect-generation.

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>

namespace tarvex::host {

// Adds itself to a command, which must not outlive it.
class ExpectedGeneration {
public:
    explicit ExpectedGeneration(CLI::App& command);

    // Nothing when the option was not given.
    std::optional<std::int64_t> Number() const;

private:
    std::int64_t number_ = 0;
    const CLI::Option* option_;
};

}  // namespace tarvex::host
