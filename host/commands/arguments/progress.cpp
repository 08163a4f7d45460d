// Draws a line on the terminal for each run that is under way.

#include "host/commands/arguments/progress.h"

#include <algorithm>
#include <iostream>

#include "host/system/process.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

// A line that is too long is cut by the terminal, which knows best how wide what it shows is.
constexpr const char* kNoWrapping = "\x1b[?7l";
constexpr const char* kWrapping = "\x1b[?7h";

std::string LineOf(const RunNow& run) {
    if (run.bytes_received == 0) return run.profile + "  connecting";
    return run.profile + "  fetched " + std::to_string(run.messages_fetched) + " of " +
           std::to_string(run.messages_to_fetch) + ", delivered " + std::to_string(run.messages_delivered) + "  (" +
           ShowBytes(run.bytes_received) + " in, " + ShowBytes(run.bytes_sent) + " out)";
}

}  // namespace

Progress::~Progress() {
    if (shown_ > 0) std::cout << Wiping() << std::flush;
}

void Progress::Show(const std::vector<RunNow>& runs) {
    if (runs.empty()) {
        std::cout << Wiping() << std::flush;
        shown_ = 0;
        return;
    }
    std::string text = Wiping() + kNoWrapping;
    // With room for the line that says how many more there are, and for the cursor's own.
    const std::size_t room = std::min(runs.size(), static_cast<std::size_t>(std::max(TerminalLines() - 2, 0)));
    shown_ = room;
    for (std::size_t i = 0; i < room; ++i) text += LineOf(runs[i]) + '\n';
    if (runs.size() > room) {
        text += "and " + std::to_string(runs.size() - room) + " more\n";
        ++shown_;
    }
    std::cout << text << kWrapping << std::flush;
}

std::string Progress::Wiping() const { return shown_ == 0 ? "" : "\x1b[" + std::to_string(shown_) + "A\r\x1b[J"; }

}  // namespace tarvex::host
