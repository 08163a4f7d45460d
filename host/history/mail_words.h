#pragma once

// Text as it is searched: words in a row, between blanks. Languages that write without blanks have a word in each
// character, so that any piece of a text is found.

#include <string>
#include <string_view>

#include "host/history/mail_trace.h"

namespace tarvex::host {

// Of UTF-8. Full-width letters and digits count as their plain forms.
std::string SearchWords(std::string_view utf8);

// Everything by which somebody may look for a message.
std::string SearchWords(const TracedMail& mail);

// The words in a row, the last of them perhaps only begun, as the index wants to be asked. Empty where there is none.
std::string SearchPhrase(std::string_view utf8);

}  // namespace tarvex::host
