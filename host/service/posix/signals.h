#pragma once

// The signals of a service, read like a file.

#include <optional>

#include "host/system/posix/descriptor.h"

namespace tarvex::host {

class Signals {
public:
    // SIGHUP, SIGINT and SIGTERM no longer end the process but are kept for Next; one that is ignored stays ignored.
    // SIGPIPE is ignored. Before there are other threads.
    Signals();

    int WatchedDescriptor() const { return descriptor_.Get(); }  // can be read when there is one
    std::optional<int> Next() const;

    // From now on the signal ends the process.
    static void Release(int signal);

private:
    Descriptor descriptor_;
};

}  // namespace tarvex::host
