#pragma once

#include <string>
#include <vector>

#include "tarvex/log.h"

namespace tarvex::host {

// What a finished run added to its log, line by line and fit to be shown, without the empty line in front.
std::vector<std::string> LinesOfThisRun(const CProfileLog& log);

}  // namespace tarvex::host
