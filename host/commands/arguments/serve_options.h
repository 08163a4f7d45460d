#pragma once

// The options that `tarvex serve` has on every system.

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>

#include "host/commands/arguments/expected_generation.h"
#include "host/service/service.h"

namespace tarvex::host {

class ServeOptions {
public:
    // `system_log`: the word of --log-format for the log that the system keeps. `formats`: what the option's help says.
    ServeOptions(CLI::App& serve, std::string system_log, const std::string& formats);
    ServeOptions(const ServeOptions&) = delete;
    ServeOptions& operator=(const ServeOptions&) = delete;

    // Throws CommandError.
    std::unique_ptr<Service> MakeService(const std::string& directory) const;

private:
    LogFormat Format() const;

    double every_ = 10;
    std::string metrics_;
    std::string system_log_;
    std::string format_;
    std::string log_file_;
    ExpectedGeneration expected_;
};

}  // namespace tarvex::host
