// Who waits for a reset connection under wine mostly reads its end next.

#include "tests/support/reset.h"

#include <string_view>

namespace tarvex::testing {

std::string WithResetAsSeen(std::string text) {
    constexpr std::string_view kEnd = "the server closed the connection";
    for (const std::string_view reset : {"connection lost: Connection reset by peer", "Connection reset by peer"}) {
        for (std::size_t at = 0; (at = text.find(reset, at)) != std::string::npos;)
            text.replace(at, reset.size(), kEnd);
    }
    return text;
}

}  // namespace tarvex::testing
