// Variables and time zone of the test process on Windows.

#include "tests/support/environment.h"

namespace tarvex::testing {

void SetVariable(const std::string& name, const std::optional<std::string>& value) {
    _putenv((name + "=" + value.value_or("")).c_str());  // without a value it is removed
    _tzset();
}

std::tm BrokenDown(std::time_t moment) {
    std::tm parts{};
    localtime_s(&parts, &moment);
    return parts;
}

}  // namespace tarvex::testing
