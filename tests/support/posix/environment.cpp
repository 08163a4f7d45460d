// Variables and time zone of the test process on POSIX.

#include "tests/support/environment.h"

namespace tarvex::testing {

void SetVariable(const std::string& name, const std::optional<std::string>& value) {
    if (value) {
        setenv(name.c_str(), value->c_str(), 1);
    } else {
        unsetenv(name.c_str());
    }
    tzset();  // localtime_r alone reads TZ once
}

std::tm BrokenDown(std::time_t moment) {
    std::tm parts{};
    localtime_r(&moment, &parts);
    return parts;
}

}  // namespace tarvex::testing
