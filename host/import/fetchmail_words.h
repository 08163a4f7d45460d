#pragma once

// The words of a fetchmailrc.

#include <string>
#include <string_view>
#include <vector>

namespace tarvex::host {

struct FetchmailWord {
    std::string text;
    int line = 0;
    bool is_quoted = false;  // then it is no keyword
};

// Comments, blanks and the punctuation that means nothing are gone; "=" is a word of its own. Throws CommandError with
// the line of a quote that is not closed, or of a NUL.
std::vector<FetchmailWord> FetchmailWordsOf(std::string_view text);

}  // namespace tarvex::host
