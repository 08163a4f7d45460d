// Draws a line on the terminal for each run that is under way.

#include "host/commands/arguments/progress.h"

#include <algorithm>
#include <iostream>

#include "host/language/tr.h"
#include "host/system/process.h"
#include "host/terminal/table.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

// For a terminal that does not tell how wide it is: it cuts off what is too long.
constexpr const char* kNoWrapping = "\x1b[?7l";
constexpr const char* kWrapping = "\x1b[?7h";

std::string CountsOf(const RunNow& run) {
    return Tr("fetched {0} of {1}, delivered {2}", run.messages_fetched, run.messages_to_fetch, run.messages_delivered);
}

std::string TrafficOf(const RunNow& run) {
    return "  " + Tr("({0} in, {1} out)", ShowBytes(run.bytes_received), ShowBytes(run.bytes_sent));
}

// What it says of the run stays whole as long as that fits beside a part of the name.
std::string LineOf(const RunNow& run, std::size_t columns) {
    constexpr std::size_t kShortestName = 12;
    const std::string state = "  " + (run.bytes_received == 0 ? Tr("connecting") : CountsOf(run));
    const std::string traffic = run.bytes_received == 0 ? "" : TrafficOf(run);
    const std::string line = run.profile + state + traffic;
    if (columns == 0 || Columns(line) <= columns) return line;
    const std::size_t room = columns - std::min(columns, Columns(state));
    if (room < kShortestName) return CutInTheMiddle(run.profile + state, columns);
    return CutInTheMiddle(run.profile, room) + state;
}

std::string RestOf(const std::vector<RunNow>& runs, std::size_t shown) {
    RunNow rest;
    for (std::size_t i = shown; i < runs.size(); ++i) {
        rest.messages_to_fetch += runs[i].messages_to_fetch;
        rest.messages_fetched += runs[i].messages_fetched;
        rest.messages_delivered += runs[i].messages_delivered;
    }
    return Tr("and {0} more: {1}", runs.size() - shown, CountsOf(rest));
}

}  // namespace

std::vector<std::string> ProgressLines(const std::vector<RunNow>& runs, std::size_t lines, std::size_t columns) {
    const std::size_t room = std::max<std::size_t>(lines, 2) - 1;  // the cursor has the last one
    const std::size_t shown = runs.size() <= room ? runs.size() : room - 1;
    std::vector<std::string> text;
    for (std::size_t i = 0; i < shown; ++i) text.push_back(LineOf(runs[i], columns));
    if (shown < runs.size()) {
        const std::string rest = RestOf(runs, shown);
        text.push_back(columns == 0 ? rest : CutInTheMiddle(rest, columns));
    }
    return text;
}

// A terminal that was made narrower breaks what is too long for it.
std::size_t LinesTaken(const std::vector<std::string>& lines, std::size_t columns) {
    if (columns == 0) return lines.size();
    std::size_t taken = 0;
    for (const std::string& line : lines) taken += std::max<std::size_t>((Columns(line) + columns - 1) / columns, 1);
    return taken;
}

Progress::~Progress() { std::cout << Wiping() << std::flush; }

void Progress::Show(const std::vector<RunNow>& runs) {
    std::string text = Wiping();
    shown_ = ProgressLines(runs, static_cast<std::size_t>(TerminalLines()), TerminalColumns());
    if (!shown_.empty()) text += kNoWrapping;
    for (const std::string& line : shown_) text += line + '\n';
    if (!shown_.empty()) text += kWrapping;
    std::cout << text << std::flush;
}

std::string Progress::Wiping() const {
    if (shown_.empty()) return {};
    const std::size_t most = static_cast<std::size_t>(std::max(TerminalLines(), 2)) - 1;
    return "\x1b[" + std::to_string(std::min(LinesTaken(shown_, TerminalColumns()), most)) + "A\r\x1b[J";
}

}  // namespace tarvex::host
