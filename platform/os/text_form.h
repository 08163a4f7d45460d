#pragma once

// The form of a text file: lines that end with CR LF.

#include <string>
#include <string_view>
#include <vector>

namespace tarvex {

// Without the line ends (CR LF or LF; a lone CR is part of its line). A last line without a line end counts.
std::vector<std::string> SplitLines(std::string_view content);

// Each LF as CR LF.
std::string WithCrLf(std::string_view text);

}  // namespace tarvex
