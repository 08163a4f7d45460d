#pragma once

// A text mail as the phone shows it.

#include <cstddef>
#include <string>

#include "tarvex/tree.h"

namespace tarvex::host {

struct PhoneText {
    std::string from;  // UTF-8, fit to be shown
    std::string subject;
    std::string text;       // with \n at the ends of lines
    std::size_t bytes = 0;  // of all the text, as the limit of a text mail counts them
};

// Of what CPopProfile::TextMailOf returns; no more of the text than so many bytes.
PhoneText PhoneTextOf(const CString& text_mail, std::size_t most_bytes);

}  // namespace tarvex::host
