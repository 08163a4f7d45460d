// Reads profile.log, finds what came to it, and shows it.

#include "host/tree/log_reader.h"

#include <algorithm>
#include <fstream>
#include <string_view>

#include "host/settings/file_names.h"
#include "host/system/display.h"
#include "host/system/paths.h"

namespace tarvex::host {
namespace {

using Lines = std::vector<std::string>;

bool IsStart(std::string_view line) { return line.starts_with(kRunStart); }
bool IsEnd(std::string_view line) { return line.starts_with("---- End Operation at "); }

// A run begins its log with an empty line and the start line, and closes it with the end line. The oldest lines may
// have gone.
bool RunBeginsAt(const Lines& lines, std::size_t i) {
    if (i == 0) return true;
    return lines[i - 1].empty() && (i == 1 || IsEnd(lines[i - 2]));
}

bool RunEndsAt(const Lines& lines, std::size_t i) {
    if (i + 1 == lines.size()) return true;
    return lines[i + 1].empty() && i + 2 < lines.size() && IsStart(lines[i + 2]);
}

bool IsForged(const Lines& lines, std::size_t i) {
    if (IsStart(lines[i])) return !RunBeginsAt(lines, i);
    if (IsEnd(lines[i])) return !RunEndsAt(lines, i);
    return lines[i].starts_with(kReportHeading);  // stands above a log, never in it
}

}  // namespace

std::optional<std::vector<std::string>> ReadLog(const CString& profile_path) {
    std::ifstream file(NativePath(FileIn(profile_path, kLogFile)), std::ios::binary);
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

std::string ShowLogLine(const std::vector<std::string>& lines, std::size_t index) {
    return (IsForged(lines, index) ? "? " : "") + ShowText(lines[index]);
}

}  // namespace tarvex::host
