#pragma once

// Another program, and what it prints.

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tarvex::host {

struct ProgramOutput {
    std::string printed;  // to its standard output; no more than was asked for
    std::string trouble;  // why it counts for nothing, for a sentence: "ended with code 3"; empty when it went well
};

// How it is run beside its words.
struct ProgramManner {
    std::string_view input{};              // what it can read
    std::vector<std::string> variables{};  // "NAME=value", in the place of those of this process
    bool with_errors = false;              // what it prints as errors counts as printed; else it goes where ours goes
    std::function<void(std::string_view)> on_piece{};  // gets what it prints as it comes; none is fine
};

// Runs a program, found as the shell finds it, without a shell. The words are UTF-8. What a program that it has left
// running prints later does not count. It is killed, with its children where the system tells them, when it takes
// longer than `time`, prints more than `most_bytes`, or when `stops`, asked several times a second, says so. Any
// thread.
ProgramOutput OutputOf(const std::vector<std::string>& words, std::chrono::milliseconds time, std::size_t most_bytes,
                       const std::function<bool()>& stops, const ProgramManner& manner = {});

}  // namespace tarvex::host
