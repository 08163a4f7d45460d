// Takes the text of a settings file apart and puts it together again.

#include "host/settings/settings_sections.h"

#include <algorithm>

#include "host/terminal/wording.h"
#include "tarvex/conversion.h"

namespace tarvex::host {
namespace {

std::string_view Trimmed(std::string_view line) {
    constexpr std::string_view kBlanks = " \t\v\f\r";
    const std::size_t start = line.find_first_not_of(kBlanks);
    if (start == std::string_view::npos) return {};
    return line.substr(start, line.find_last_not_of(kBlanks) - start + 1);
}

bool IsValue(std::string_view line) {
    const std::string_view text = Trimmed(line);
    return !text.empty() && !text.starts_with(';') && !text.starts_with("//");
}

// As UTF-8, so that no byte of a double-byte character looks like a bracket.
std::string HeaderView(std::string_view line) { return Lower(Utf8FromText(line)); }

bool IsHeader(std::string_view line) {
    if (line.find('[') == std::string_view::npos || !IsValue(line)) return false;  // most lines have none
    const std::string view = HeaderView(line);
    return view.find('[') != std::string::npos && view.find(']') != std::string::npos;
}

bool HasKey(const SettingsSection& section, std::string_view key) {
    return section.header.find('[' + std::string(key) + ']') != std::string::npos;
}

}  // namespace

std::optional<std::string> SettingsSection::Value() const {
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        if (IsHeader(*line)) break;
        if (IsValue(*line)) return std::string(Trimmed(*line));
    }
    return std::nullopt;
}

SettingsSections::SettingsSections(std::string_view text) : sections_(1) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string line(text.substr(0, end));
        if (line.ends_with('\r')) line.pop_back();
        if (IsHeader(line)) sections_.push_back({{}, HeaderView(line)});
        sections_.back().lines.push_back(std::move(line));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

const SettingsSection* SettingsSections::Find(std::string_view key) const {
    const auto found = std::find_if(sections_.rbegin(), sections_.rend(), [key](const SettingsSection& section) {
        return HasKey(section, key) && section.Value();
    });
    return found == sections_.rend() ? nullptr : &*found;
}

bool SettingsSections::HasHeader(std::string_view key) const {
    return std::ranges::any_of(sections_, [key](const SettingsSection& section) { return HasKey(section, key); });
}

std::vector<std::string> SettingsSections::HeadersBut(std::span<const std::string_view> keys) const {
    std::vector<std::string> headers;
    for (const SettingsSection& section : sections_) {
        const auto is_it = [&section](std::string_view key) { return HasKey(section, key); };
        if (!section.header.empty() && std::ranges::none_of(keys, is_it)) headers.push_back(section.lines.front());
    }
    return headers;
}

void SettingsSections::Set(std::string_view key, std::string_view value) {
    const auto last = std::find_if(sections_.rbegin(), sections_.rend(),
                                   [key](const SettingsSection& section) { return HasKey(section, key); });
    if (last == sections_.rend()) {
        const std::string header = '[' + std::string(key) + ']';
        sections_.push_back({{header, std::string(value), ""}, header});
        return;
    }
    std::vector<std::string>& lines = last->lines;
    lines.erase(std::remove_if(lines.begin() + 1, lines.end(), IsValue), lines.end());
    lines.insert(lines.begin() + 1, std::string(value));
}

void SettingsSections::Remove(std::string_view key) {
    std::erase_if(sections_, [key](const SettingsSection& section) { return HasKey(section, key); });
}

std::string SettingsSections::Text() const {
    std::string text;
    for (const SettingsSection& section : sections_) {
        for (const std::string& line : section.lines) text += line + "\r\n";
    }
    return text;
}

}  // namespace tarvex::host
