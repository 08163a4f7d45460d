#pragma once

// The figures of a tree, for a monitoring system: what its runs did and how its profiles are. A profile is named by
// its path, never by an address.

#include <optional>
#include <string>
#include <vector>

#include "host/history/counters.h"
#include "host/metrics/metric_text.h"
#include "tarvex/tree.h"

namespace tarvex::host {

struct MeasuredProfile {
    std::string name;  // user0/from0
    CString path;
    bool switched_on = false;
};

std::vector<MeasuredProfile> MeasuredProfiles(const CRootPath& root);

// What the process uses; nothing where the system does not tell.
struct ProcessFigures {
    std::int64_t processor_ms = 0;
    std::int64_t resident_bytes = 0;
    std::int64_t open_files = 0;
    std::int64_t most_files = 0;
    std::int64_t started = 0;  // seconds since 1970
};

// Reads the figures of one root again and again. Belongs to one thread.
class Figures {
public:
    explicit Figures(std::string root) : root_(std::move(root)) {}

    // No counter falls from one call to the next, whatever becomes of the database. What cannot be read is told by
    // tarvex_readable. Throws nothing but std::bad_alloc.
    std::string Text(const std::vector<MeasuredProfile>& profiles, const std::optional<ProcessFigures>& process,
                     MetricForm form);

private:
    const std::string root_;
    Counters counters_;  // the highest ever
};

}  // namespace tarvex::host
