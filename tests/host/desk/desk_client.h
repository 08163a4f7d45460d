#pragma once

// What asks the desk in a test.

#include <memory>
#include <string>

#include "testing/temp_dir.h"

namespace tarvex::testing {

class DeskClient {
public:
    // What `tarvex serve --console` is told: a socket in the folder, or a pipe of its own.
    static std::string Place(const TempDir& folder);

    // Waits until somebody listens there, not for ever; then fails.
    explicit DeskClient(const std::string& place);
    DeskClient(DeskClient&& other) noexcept;
    ~DeskClient();

    // All that comes back for these bytes; what has come when nothing more does for a long time.
    std::string Exchange(const std::string& bytes);

private:
    struct Connection;
    std::unique_ptr<Connection> connection_;
};

}  // namespace tarvex::testing
