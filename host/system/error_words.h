#pragma once

#include <string>
#include <system_error>

namespace tarvex::host {

// What the system says of an error, as UTF-8: std::error_code::message() has it on Windows in the code page.
std::string WordsOf(const std::error_code& error);

}  // namespace tarvex::host
