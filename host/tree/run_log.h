#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/tree/log_reader.h"
#include "tarvex/log.h"

namespace tarvex::host {

// What a finished run added to its log, line by line and fit to be shown, without the empty line in front.
std::vector<std::string> LinesOfThisRun(const CProfileLog& log);

// What they tell of; nothing when the log is switched off.
std::optional<LoggedRun> ThisRun(const CProfileLog& log);

}  // namespace tarvex::host
