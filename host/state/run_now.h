#pragma once

#include <cstdint>
#include <string>

namespace tarvex::host {

// How far a run is.
struct RunNow {
    std::string profile;  // as ShownName
    std::int64_t bytes_received = 0;
    std::int64_t bytes_sent = 0;
    int messages_to_fetch = 0;
    int messages_fetched = 0;
    int messages_delivered = 0;
};

}  // namespace tarvex::host
