#pragma once

// The calls by which the test program changes a file system: recorded, made to fail, or made the last thing that the
// process does.

#include <cstddef>
#include <string>
#include <vector>

namespace tarvex::testing {

struct SystemCalls {
    bool recording = false;
    std::vector<std::string> calls;  // "sync file", "sync directory", "rename", "make", "delete NAME"
    std::string failing;
    std::string deadly;
    std::size_t deadly_number = 0;  // counted from 1
};

extern SystemCalls system_calls;

}  // namespace tarvex::testing
