// Splits the text of a file into lines, and writes line feeds as CR LF.

#include "platform/os/text_form.h"

#include <cstddef>

namespace tarvex {

std::vector<std::string> SplitLines(std::string_view content) {
    std::vector<std::string> lines;
    while (!content.empty()) {
        const std::size_t end = content.find('\n');
        std::string_view line = content.substr(0, end);
        content.remove_prefix(end == std::string_view::npos ? content.size() : end + 1);
        if (end != std::string_view::npos && line.ends_with('\r')) line.remove_suffix(1);
        lines.emplace_back(line);
    }
    return lines;
}

std::string WithCrLf(std::string_view text) {
    std::string result;
    result.reserve(text.size() + text.size() / 16);
    for (;;) {
        const std::size_t end = text.find('\n');
        result.append(text.substr(0, end));
        if (end == std::string_view::npos) return result;
        result.append("\r\n");
        text.remove_prefix(end + 1);
    }
}

}  // namespace tarvex
