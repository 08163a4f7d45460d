// The options of tarvex-console on Windows.

#include "console/options.h"

namespace tarvex::console {

const UsualOptions& Usual() {
    // Of the service.
    static constexpr UsualOptions kUsual = {"tarvex-console", "127.0.0.1:8480", false};
    return kUsual;
}

}  // namespace tarvex::console
