#pragma once

// What `tarvex serve` does on every system, and the options for it.

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "host/commands/arguments/expected_generation.h"
#include "host/service/service.h"

namespace tarvex::host {

class ServeOptions {
public:
    // In which the systems differ.
    struct Texts {
        std::string system_log;  // the word of --log-format for the log that the system keeps
        std::string formats;     // the help of that option
        std::string console;     // the help of --console
        std::string place;       // what its value is: "PATH"
    };

    ServeOptions(CLI::App& serve, const Texts& texts);
    ServeOptions(const ServeOptions&) = delete;
    ServeOptions& operator=(const ServeOptions&) = delete;

    void AddConsoleGroup(CLI::App& serve);

    // Serves the tree, and the console where it is to, until an order to stop. The exit code. Throws CommandError;
    // where mail matters more, not for a console that cannot be served.
    int Serve(const std::string& directory, bool also_without_console = false) const;

private:
    LogFormat Format() const;
    std::unique_ptr<Service> MakeService(const std::string& directory) const;

    double every_ = 10;
    std::string metrics_;
    std::string system_log_;
    std::string format_;
    std::string log_file_;
    std::string console_;
    std::string console_group_;
    ExpectedGeneration expected_;
};

}  // namespace tarvex::host
