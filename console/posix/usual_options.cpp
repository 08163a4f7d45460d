// The options of tarvex-console on POSIX.

#include "console/options.h"

namespace tarvex::console {

const UsualOptions& Usual() {
    // Of the packages.
    static constexpr UsualOptions kUsual = {"/run/tarvex/console.sock", "unix:/run/tarvex-console/http.sock", true};
    return kUsual;
}

}  // namespace tarvex::console
