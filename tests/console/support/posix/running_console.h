#pragma once

// The program tarvex-console while a test lasts.

#include <memory>
#include <string>
#include <vector>

#include "testing/child_process.h"
#include "testing/temp_dir.h"

namespace tarvex::testing {

class RunningConsole {
public:
    // Listens at a free port of 127.0.0.1, unless the words say where. Waits until it listens.
    explicit RunningConsole(std::vector<std::string> words = {}, std::vector<std::string> variables = {});

    int Port() const { return port_; }
    std::string Desk() const { return folder_ / "desk.sock"; }  // where it looks for the desk
    std::string Socket() const { return folder_ / "http.sock"; }
    const TempDir& Folder() const { return folder_; }
    ChildProcess& Process() { return *process_; }

    std::size_t PeakMemoryBytes() const;  // the most that was resident since it began

    // Ends it by SIGTERM; its exit code.
    int End();

private:
    TempDir folder_;
    std::unique_ptr<ChildProcess> process_;
    int port_ = 0;
};

}  // namespace tarvex::testing
