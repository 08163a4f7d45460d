// What a run added to its log.

#include "host/tree/run_log.h"

#include <algorithm>
#include <sstream>
#include <string_view>

#include "host/system/display.h"

namespace tarvex::host {
namespace {

// Entries that were read from the file hold no line end, so the start line of this run is the first entry that does.
bool BeginsRun(std::string_view entry) {
    constexpr std::string_view kStart = "---- Operation starting at ";
    return entry.starts_with(std::string("\n").append(kStart)) || entry.starts_with(std::string("\r\n").append(kStart));
}

// As bytes, with the empty line in front.
std::vector<std::string> RawLines(const CProfileLog& log) {
    std::vector<std::string> lines;
    for (auto entry = std::ranges::find_if(log.entries, BeginsRun); entry != log.entries.end(); ++entry) {
        std::string text = *entry;
        std::erase(text, '\r');
        std::istringstream pieces(text);
        for (std::string line; std::getline(pieces, line);) lines.push_back(line);
    }
    return lines;
}

}  // namespace

std::vector<std::string> LinesOfThisRun(const CProfileLog& log) {
    std::vector<std::string> lines = RawLines(log);
    for (std::string& line : lines) line = ShowText(line);
    if (!lines.empty() && lines.front().empty()) lines.erase(lines.begin());
    return lines;
}

std::optional<LoggedRun> ThisRun(const CProfileLog& log) {
    const std::vector<LoggedRun> runs = RunsIn(RawLines(log));
    if (runs.empty()) return std::nullopt;
    return runs.back();
}

}  // namespace tarvex::host
