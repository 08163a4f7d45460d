// Reading and writing the settings files.

#include "store/settings_file.h"

#include <algorithm>

#include "platform/codec/text.h"
#include "platform/os/files.h"
#include "store/loaded.h"

namespace tarvex {
namespace {

std::string_view Trimmed(std::string_view line, LineTrimming trimming) {
    return trimming == LineTrimming::BlanksAtBothEnds ? TrimBlanks(line) : TrimLeadingWhiteSpace(line);
}

// The key whose header stands in the line.
std::optional<std::size_t> HeaderIn(std::string_view view, std::span<const std::string_view> headers) {
    const auto found = std::ranges::find_if(
        headers, [view](std::string_view header) { return view.find(header) != std::string_view::npos; });
    if (found == headers.end()) return std::nullopt;
    return static_cast<std::size_t>(found - headers.begin());
}

bool HasBrackets(std::string_view view) {
    return view.find('[') != std::string_view::npos && view.find(']') != std::string_view::npos;
}

}  // namespace

void ReadSettingsLines(std::span<const std::string> lines, LineTrimming trimming,
                       std::span<const std::string_view> headers, const ValueSink& sink) {
    std::optional<std::size_t> current_key;
    for (const std::string& raw_line : lines) {
        const std::string_view line = Trimmed(raw_line, trimming);
        if (IsBlankOrComment(line)) continue;
        const std::string view = HeaderView(line);
        const std::optional<std::size_t> key = HeaderIn(view, headers);
        if (key || HasBrackets(view)) {
            current_key = key;
        } else if (current_key) {
            sink(*current_key, line);
        }
    }
}

std::optional<std::vector<std::string>> LoadSettingsLines(const std::string& path, CLoaded& loaded) {
    std::string why;
    std::optional<std::vector<std::string>> lines = ReadTextLines(path, &why);
    if (lines && lines->empty()) why = "it is empty";
    if (!why.empty()) NoteUnread(loaded, path, why);
    return lines;
}

bool ReadSettingsFile(const std::string& path, LineTrimming trimming, std::span<const std::string_view> headers,
                      const ValueSink& sink, CLoaded& loaded) {
    const std::optional<std::vector<std::string>> lines = LoadSettingsLines(path, loaded);
    if (!lines) return false;
    ReadSettingsLines(*lines, trimming, headers, sink);
    return true;
}

void SettingsText::Add(std::string_view header, std::string_view value) {
    text_ += header;
    text_ += '\n';
    text_ += WithoutLineBreaks(value);
    text_ += "\n\n";
}

bool SettingsText::WriteTo(const std::string& directory, std::string_view file_name) const {
    if (directory.empty()) return false;
    return WriteTextFile(directory + std::string(file_name), text_, Durability::Synced);
}

}  // namespace tarvex
