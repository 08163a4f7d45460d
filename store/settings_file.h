#pragma once

// The syntax that the settings files share: bracketed keys, each followed by a line with its value.
//
//     [popserver]
//     pop.example.org
//
// A header is recognised anywhere in a line and in either letter case; with several headers in one line the first key
// of the file's order counts. The value lines below an unknown header are ignored. Of several value lines below one
// header the last one wins, because each is handed on. Empty lines and lines that begin with ";" or "//" are comments.

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tarvex/loaded.h"

namespace tarvex {

// What is taken off a line before it is examined. The files differ (B8): it decides whether a value may end with
// blanks.
enum class LineTrimming {
    BlanksAtBothEnds,   // 0x20 only
    LeadingWhiteSpace,  // whatever follows the value is part of it
};

// Receives a value line, trimmed, with the index of its key.
using ValueSink = std::function<void(std::size_t key, std::string_view value)>;

// The lines of a settings file; nothing when it cannot be read. A file without a single byte is read, but was not
// loaded whole: every save writes keys, so somebody else has cut the file and has not yet filled it again.
[[nodiscard]] std::optional<std::vector<std::string>> LoadSettingsLines(const std::string& path, CLoaded& loaded);

// Reads a settings file whose keys have these headers, brackets included, in lower case. False when the file cannot be
// read; the sink has then not been called.
[[nodiscard]] bool ReadSettingsFile(const std::string& path, LineTrimming trimming,
                                    std::span<const std::string_view> headers, const ValueSink& sink, CLoaded& loaded);

// The same for lines that have been read already.
void ReadSettingsLines(std::span<const std::string> lines, LineTrimming trimming,
                       std::span<const std::string_view> headers, const ValueSink& sink);

// The text of a settings file as it grows.
class SettingsText {
public:
    // Appends the three lines of one key: its header, its value, and an empty line. A line break inside the value
    // becomes a blank, so no value can forge a header.
    void Add(std::string_view header, std::string_view value);

    // Replaces `file_name` (with its leading backslash) in the directory by the text, so that it survives a power
    // failure. False when the directory text is empty or the file cannot be written.
    [[nodiscard]] bool WriteTo(const std::string& directory, std::string_view file_name) const;

private:
    std::string text_;
};

}  // namespace tarvex
