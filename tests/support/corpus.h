#pragma once

// The folder of mails that TARVEX_CORPUS names. Tests that read it skip without it.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "testing/temp_dir.h"

namespace tarvex::testing {

constexpr const char* kNoCorpus = "TARVEX_CORPUS names no folder of mails";

// Null without one.
inline const char* CorpusFolder() { return std::getenv("TARVEX_CORPUS"); }

// A mail file as a POP3 server hands it over, without the line ends in front.
inline std::string FetchedMail(const std::filesystem::path& path) {
    const std::string file = ReadFile(path);
    std::string text;
    for (std::size_t i = 0; i < file.size(); ++i) {
        if (file[i] == '\n' && (i == 0 || file[i - 1] != '\r')) text += '\r';
        if (file[i] == '.' && (i == 0 || file[i - 1] == '\n')) text += '.';
        text += file[i];
    }
    if (!text.ends_with("\r\n")) text += "\r\n";
    text.erase(0, std::min(text.find_first_not_of("\r\n"), text.size()));
    return text + ".\r\n";
}

}  // namespace tarvex::testing
