// The system's words are UTF-8 already.

#include "host/system/error_words.h"

namespace tarvex::host {

std::string WordsOf(const std::error_code& error) { return error.message(); }

}  // namespace tarvex::host
