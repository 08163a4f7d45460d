// What the three readers have in common, and the lists of ids beside the files that they read.

#include "host/import/imported.h"

#include <algorithm>
#include <cstddef>

#include "host/import/lines.h"
#include "host/language/tr.h"

namespace tarvex::host {
namespace {

// "me@pop.example.org UID1234": a login may hold an "@" itself.
std::vector<std::string> FetchmailIds(std::string_view text, const ImportedMailbox& mailbox) {
    const std::string start = mailbox.values.at("popuser") + '@' + mailbox.values.at("popserver");
    std::vector<std::string> ids;
    Lines lines(text);
    for (std::string_view line; lines.Next(line);) {
        const std::string_view content = Trimmed(line);
        const std::size_t blank = content.find_last_of(" \t");
        if (content.empty()) continue;
        if (blank == std::string_view::npos) throw BadLine(lines.Number(), Tr("this is no mailbox with an id"));
        if (Trimmed(content.substr(0, blank)) == start) ids.emplace_back(content.substr(blank + 1));
    }
    return ids;
}

std::vector<std::string> GetmailIds(std::string_view text) {
    std::vector<std::string> ids;
    for (int line = 1; !text.empty(); ++line) {
        const std::string_view content = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(content.size() + 1, text.size()));
        const std::size_t nul = content.find('\0');
        if (content.empty()) continue;
        if (nul == std::string_view::npos || nul == 0) throw BadLine(line, Tr("this is no id with its time"));
        ids.emplace_back(content.substr(0, nul));
    }
    return ids;
}

// The file says how it is made: " 2 pop.example.org me" begins the list of a mailbox, an id a line.
std::vector<std::string> MpopIds(std::string_view text, const ImportedMailbox& mailbox) {
    const std::string start = mailbox.values.at("popserver") + ' ' + mailbox.values.at("popuser");
    std::vector<std::string> ids;
    bool is_meant = false;
    Lines lines(text);
    for (std::string_view line; lines.Next(line);) {
        if (line.empty() || line.front() == '#') continue;
        if (line.front() == ' ') {
            const std::size_t name = std::min(line.find(' ', 1), line.size() - 1) + 1;
            is_meant = line.substr(name) == start;
        } else if (is_meant) {
            ids.emplace_back(line);
        }
    }
    return ids;
}

}  // namespace

Imported ReadImport(ImportKind kind, std::string_view text) {
    switch (kind) {
        case ImportKind::Fetchmailrc:
            return ReadFetchmailrc(text);
        case ImportKind::Getmailrc:
            return ReadGetmailrc(text);
        case ImportKind::Mpoprc:
            break;
    }
    return ReadMpoprc(text);
}

std::vector<std::string> ReadOldIds(ImportKind kind, std::string_view text, const ImportedMailbox& mailbox) {
    if (kind == ImportKind::Fetchmailrc) return FetchmailIds(text, mailbox);
    return kind == ImportKind::Getmailrc ? GetmailIds(text) : MpopIds(text, mailbox);
}

}  // namespace tarvex::host
