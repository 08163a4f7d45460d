#pragma once

// The text of a settings file (*.def) in its sections, with nothing left out, so that it can be judged and edited. The
// engine's records do not keep what they do not know.
//
//     ; a comment          in front of the first header: a section without a header
//     [floodlimit]         a header: any line with "[" and "]"; its key is found in any letter case
//     50                   the value: the last line below it that is neither empty nor a comment

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarvex::host {

struct SettingsSection {
    std::vector<std::string> lines;  // without line ends; the header first, but for the first section
    std::string header;              // as keys are looked for: UTF-8 in lower case; empty for the first section

    // The value, without the blanks around it; nothing when there is none.
    std::optional<std::string> Value() const;
};

class SettingsSections {
public:
    explicit SettingsSections(std::string_view text);

    // The last section of a key (lower case, without brackets) that has a value, as the last one counts.
    const SettingsSection* Find(std::string_view key) const;

    bool HasHeader(std::string_view key) const;

    // The headers that have none of these keys, as they stand in the file.
    std::vector<std::string> HeadersBut(std::span<const std::string_view> keys) const;

    // Gives the key this value: in its place when the file has the key, else at the end.
    void Set(std::string_view key, std::string_view value);
    void Remove(std::string_view key);

    // The whole file, with CR LF.
    std::string Text() const;

private:
    std::vector<SettingsSection> sections_;
};

}  // namespace tarvex::host
