#pragma once

// Words for numbers that keys of several files share.

#include <array>

#include "host/settings/keys.h"

namespace tarvex::host {

inline constexpr std::array kOnOff = {ValueWord{"on", 1}, ValueWord{"off", 0}};
inline constexpr std::array kSmtpTls = {ValueWord{"plain", 0}, ValueWord{"tls", 1}, ValueWord{"starttls", 2}};
inline constexpr std::array kSmtpMethods = {ValueWord{"best", 0}, ValueWord{"plain", 1}, ValueWord{"login", 2},
                                            ValueWord{"cram-md5", 3}};

}  // namespace tarvex::host
