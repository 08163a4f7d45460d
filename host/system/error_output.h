#pragma once

// Standard error of a service: whoever does not read there keeps nobody waiting.

#include <chrono>
#include <cstddef>
#include <memory>
#include <string_view>

namespace tarvex::host {

class ErrorOutput {
public:
    ErrorOutput();
    ~ErrorOutput();
    ErrorOutput(const ErrorOutput&) = delete;
    ErrorOutput& operator=(const ErrorOutput&) = delete;

    // Whether it takes something within so long.
    bool TakesMore(std::chrono::milliseconds patience) const;

    // How much of it was taken, once it takes more.
    std::size_t Write(std::string_view text);

private:
    struct Way;
    std::unique_ptr<Way> way_;
};

}  // namespace tarvex::host
