// Who users are on POSIX.

#include "host/system/users.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

namespace tarvex::host {

std::int64_t CurrentUser() { return geteuid(); }

std::string UserName(std::int64_t number) {
    std::array<char, 4096> room;
    passwd entry{};
    passwd* found = nullptr;
    const auto user = static_cast<uid_t>(number);
    const bool known = getpwuid_r(user, &entry, room.data(), room.size(), &found) == 0 && found;
    return known ? found->pw_name : std::to_string(number);
}

const std::string& CallingUser() {
    static const std::string caller = [] {
        const char* const before_sudo = std::getenv("SUDO_USER");
        return before_sudo && *before_sudo ? before_sudo : UserName(getuid());
    }();
    return caller;
}

}  // namespace tarvex::host
