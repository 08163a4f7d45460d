#include "host/progress.h"

#include <iostream>

#include "host/names.h"
#include "host/process.h"
#include "host/wording.h"

namespace tarvex::host {
namespace {

// A line that is too long is cut by the terminal, which knows best how wide what it shows is.
constexpr const char* kNoWrapping = "\x1b[?7l";
constexpr const char* kWrapping = "\x1b[?7h";

std::string LineOf(const CRootPath& root, const CPopProfile& copy) {
    const CRunObserver& run = copy.observer;
    const std::int64_t received = run.bytes_received;
    std::string line = ShownName(root, copy.path) + "  ";
    if (received == 0) return line + "connecting";
    line += "fetched " + std::to_string(run.messages_fetched) + " of " + std::to_string(run.messages_to_fetch) +
            ", delivered " + std::to_string(run.messages_delivered);
    return line + "  (" + ShowBytes(received) + " in, " + ShowBytes(run.bytes_sent) + " out)";
}

}  // namespace

Progress::~Progress() {
    if (shown_ > 0) std::cout << Wiping() << std::flush;
}

void Progress::Show(const CRootPath& root) {
    std::string text = Wiping() + kNoWrapping;
    const int room = TerminalLines() - 2;  // for the line that says how many more there are, and the cursor's own
    int running = 0;
    shown_ = 0;
    for (const auto& copy : root.running_copies) {
        if (!copy->worker_thread.load() || ++running > room) continue;
        text += LineOf(root, *copy) + '\n';
        ++shown_;
    }
    if (running > shown_) {
        text += "and " + std::to_string(running - shown_) + " more\n";
        ++shown_;
    }
    std::cout << text << kWrapping << std::flush;
}

std::string Progress::Wiping() const { return shown_ == 0 ? "" : "\x1b[" + std::to_string(shown_) + "A\r\x1b[J"; }

}  // namespace tarvex::host
