#pragma once

// Questions of a command on its terminal, and what a person types.

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "testing/child_process.h"

namespace tarvex::testing {

// What is shown, and what is typed then, if anything. What is typed in front of the question for a password is lost.
using Dialogue = std::vector<std::pair<std::string, std::optional<std::string>>>;

// Types each answer when its question is there, behind the one before.
inline void Converse(ChildProcess& command, const Dialogue& dialogue) {
    std::size_t seen = 0;
    for (const auto& [question, answer] : dialogue) {
        ASSERT_TRUE(command.WaitForOutput(question, std::chrono::seconds(30), seen))
            << "not asked: " << question << "\nbut: " << command.Printed();
        seen = command.Printed().find(question, seen) + question.size();
        if (answer) command.Type(*answer + "\n");
    }
}

}  // namespace tarvex::testing
