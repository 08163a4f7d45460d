#pragma once

#include <mutex>
#include <string>

#include "host/system/posix/descriptor.h"

namespace tarvex::host {

// Lines on standard error. For the journal each begins with its level ("<6>", sd-daemon(3)); elsewhere with the time.
// Where nobody reads, lines are lost rather than the service kept waiting; how many is told later. Thread-safe: runs
// and held mail on their threads tell of the memory of the rules.
class ServiceLog {
public:
    ServiceLog();

    // One line of text that is fit to be shown.
    void Say(const std::string& text) { Write(6, text); }
    void Warn(const std::string& text) { Write(4, text); }

private:
    void Write(int level, const std::string& text);

    std::mutex mutex_;  // of what follows
    bool to_journal_;
    Descriptor terminal_;  // standard error again, which never keeps a writer waiting; none when it is no terminal
    int lost_ = 0;         // lines
    bool torn_ = false;    // the last one that was written
};

}  // namespace tarvex::host
