#pragma once

// The calls by which the test program changes a file system: recorded, made to fail, or made the last thing that the
// process does. And those by which it looks at one: made to fail for one path, for the superuser as well.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace tarvex::testing {

struct SystemCalls {
    bool recording = false;
    // "sync file", "sync directory", "rename", "make", "delete NAME"; with `contents` also "create NAME" and "write"
    std::vector<std::string> calls;
    std::string failing;
    std::string deadly;
    std::size_t deadly_number = 0;                          // counted from 1
    std::function<bool(int descriptor)> on_sync = nullptr;  // before each sync, which fails when it says false
    bool contents = false;
    std::size_t failing_number = 0;  // counted from 1
};

extern SystemCalls system_calls;

enum class Look { Open, Stat, Read, List };

// While it lives, each look of that kind at a path with that end fails with that errno.
class RefusedLook {
public:
    RefusedLook(Look look, std::string path_end, int error);
    ~RefusedLook();
    RefusedLook(const RefusedLook&) = delete;
    RefusedLook& operator=(const RefusedLook&) = delete;
};

}  // namespace tarvex::testing
