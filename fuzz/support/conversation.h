#pragma once

// What holds of every conversation, whatever the server says.

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "tarvex/log.h"

namespace tarvex::fuzz {

// One line, ended by CR LF, that holds neither CR, LF nor NUL.
inline bool IsCommand(std::string_view sent) {
    return sent.ends_with("\r\n") && sent.find_first_of(std::string_view("\r\n\0", 3)) == sent.size() - 2;
}

// The log without what depends on the chunks in which the server's bytes arrive: how much of what came out of turn was
// there to be shown.
inline std::vector<std::string> Comparable(const CProfileLog& log) {
    std::vector<std::string> entries = log.entries;
    for (std::string& entry : entries) entry.resize(std::min(entry.find("unexpected data"), entry.size()));
    return entries;
}

}  // namespace tarvex::fuzz
