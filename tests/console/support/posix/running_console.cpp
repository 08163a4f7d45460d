// The program tarvex-console while a test lasts.

#include "tests/console/support/posix/running_console.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace tarvex::testing {

using namespace std::chrono_literals;

RunningConsole::RunningConsole(std::vector<std::string> words, std::vector<std::string> variables) {
    std::ranges::replace(words, "SOCKET", "unix:" + Socket());
    words.insert(words.begin(), {TARVEX_CONSOLE, "--desk", Desk()});
    if (std::ranges::find(words, "--listen") == words.end()) words.insert(words.end(), {"--listen", "127.0.0.1:0"});
    process_ = std::make_unique<ChildProcess>(words, ChildProcess::Output::Together, variables);
    if (!process_->WaitForOutput("\n", 30s))
        throw std::runtime_error("tarvex-console does not listen: " + process_->Printed());
    const std::size_t port = process_->Printed().find(":", process_->Printed().find("localhost"));
    if (port != std::string::npos) port_ = std::stoi(process_->Printed().substr(port + 1));
}

std::size_t RunningConsole::PeakMemoryBytes() const {
    std::ifstream status("/proc/" + std::to_string(process_->Number()) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:")) return std::stoul(line.substr(6)) << 10;
    return 0;
}

int RunningConsole::End() {
    process_->Signal(SIGTERM);
    process_->Wait();
    return process_->ExitCode();
}

}  // namespace tarvex::testing
