#pragma once

// Whom alerts do not reach, for those who show how a tree is doing.

#include <map>
#include <string>
#include <vector>

#include "host/alerts/alert_memory.h"
#include "host/alerts/readers.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

struct UntoldReader {
    Reader reader;
    FailingAlert alert;
};

// By profile, as ShownName; "" is the tree. What cannot be read is left out.
std::map<std::string, std::vector<UntoldReader>> UntoldReaders(const CRootPath& root, const std::string& directory);

// One line for each reader, fit to be shown.
std::vector<std::string> LinesOn(const std::map<std::string, std::vector<UntoldReader>>& untold);

}  // namespace tarvex::host
