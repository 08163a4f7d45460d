#pragma once

// How a command speaks to the service that owns the tree.

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/edit/edit.h"
#include "host/held/held_work.h"
#include "host/service/run_reports.h"

namespace tarvex::host {

// Profiles to run at once: what `tarvex run` was told.
struct RunRequest {
    std::vector<std::string> names;  // UTF-8, as host/tree/names.h finds them; none for all
    bool now = false;                // also those that are not due
    bool verbose = false;            // what each run added to its log, also of many
};

// For one request. Its operations throw CommandError when the service ends before it has answered.
class ServiceConnection {
public:
    // Null when there is no service. Throws CommandError when what answers is another user's, and, with kTryLater, when
    // it takes nobody any more.
    static std::unique_ptr<ServiceConnection> Try(const std::string& root);

    virtual ~ServiceConnection() = default;

    // Has the edit made, however long that takes, and returns its exit code. Notes say what it waits for.
    virtual int Edit(const EditRequest& request, Reply& reply,
                     const std::function<void(const std::string&)>& on_note) = 0;

    // Has profiles run, waits for the ends of their runs, and returns the exit code. Meanwhile `on_wait`, when there is
    // one, is called again and again.
    virtual int Run(const RunRequest& request, Reply& reply, const std::function<void(const std::string&)>& on_note,
                    const std::function<void()>& on_wait) = 0;

    // Has held mail sent or dropped, and returns the exit code.
    virtual int Held(const HeldRequest& request, Reply& reply,
                     const std::function<void(const std::string&)>& on_note) = 0;

    // Throws CommandError also when no answer comes within so long.
    virtual ServiceReport Report(std::chrono::milliseconds patience = std::chrono::seconds(2)) = 0;
};

}  // namespace tarvex::host
