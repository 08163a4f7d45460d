// Asks the system for its words in UTF-16.

#include "host/system/error_words.h"

#include "host/system/windows/wide.h"

namespace tarvex::host {

std::string WordsOf(const std::error_code& error) {
    const bool is_of_system = error.category() == std::system_category();
    return is_of_system ? SystemMessage(static_cast<DWORD>(error.value())) : error.message();
}

}  // namespace tarvex::host
