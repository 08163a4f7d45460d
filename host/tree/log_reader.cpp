// Reads profile.log, and finds what came to it.

#include "host/tree/log_reader.h"

#include <algorithm>
#include <fstream>

#include "host/system/paths.h"

namespace tarvex::host {
std::optional<std::vector<std::string>> ReadLog(const CString& profile_path) {
    std::ifstream file(NativePath(profile_path + "\\profile.log"), std::ios::binary);
    if (!file) return std::nullopt;
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        if (line.ends_with('\r')) line.pop_back();
        lines.push_back(std::move(line));
    }
    return lines;
}

// The longest beginning of `now` that `before` ends with is what was there already (Knuth, Morris and Pratt).
std::size_t CountNewLines(const std::vector<std::string>& before, const std::vector<std::string>& now) {
    std::vector<std::size_t> border(now.size() + 1, 0);  // of each beginning of `now`
    for (std::size_t i = 1, length = 0; i < now.size(); ++i) {
        while (length > 0 && now[i] != now[length]) length = border[length];
        if (now[i] == now[length]) ++length;
        border[i + 1] = length;
    }
    std::size_t matched = 0;
    for (const std::string& line : before) {
        while (matched > 0 && (matched == now.size() || now[matched] != line)) matched = border[matched];
        if (matched < now.size() && now[matched] == line) ++matched;
    }
    return now.size() - matched;
}

}  // namespace tarvex::host
