#pragma once

// An alert in words, in the language that is spoken (host/language/tr.h), and as JSON. All text is UTF-8, fit to be
// shown.

#include <string>

#include "host/alerts/decision.h"
#include "host/terminal/json.h"

namespace tarvex::host {

struct AlertText {
    std::string subject;  // one line
    std::string body;     // lines, each ended by a line feed
};

// What is wrong, without whose it is.
std::string Headline(const ProblemKey& key);

AlertText TextOf(const Alert& alert, const std::string& tree);
AlertText TestText(const std::string& tree);

// English but for the text.
Json JsonOf(const Alert& alert, const std::string& tree, const AlertText& text, bool is_test);

}  // namespace tarvex::host
