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

// Runs a program, found as the shell finds it, without a shell. The words are UTF-8. It reads `input`; its errors go
// where those of this process go. What a program that it has left running prints later does not count. It is killed,
// with its children where the system tells them, when it takes longer than `time`, prints more than `most_bytes`, or
// when `stops`, asked several times a second, says so. Any thread. `on_piece`, when there is one, gets what it prints
// as it comes.
ProgramOutput OutputOf(const std::vector<std::string>& words, std::chrono::milliseconds time, std::size_t most_bytes,
                       const std::function<bool()>& stops, std::string_view input = {},
                       const std::function<void(std::string_view)>& on_piece = {});

}  // namespace tarvex::host
