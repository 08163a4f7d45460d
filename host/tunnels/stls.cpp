// Says STLS to a server that has greeted.

#include "host/tunnels/stls.h"

#include <optional>
#include <utility>

namespace tarvex::host {
namespace {

constexpr std::size_t kLongestLine = 4096;

// The next line, with its end.
std::optional<std::string> TakeLine(std::string& heard) {
    const std::size_t end = heard.find('\n');
    if (end == std::string::npos) return std::nullopt;
    std::string line = heard.substr(0, end + 1);
    heard.erase(0, end + 1);
    return line;
}

Turn Refuse(Said& said, TlsTrouble trouble, std::string reason) {
    said.failure = {trouble, std::move(reason)};
    return Turn::Ends;
}

}  // namespace

Turn StlsSpeaker::FromServer(std::string& heard, Said& said) {
    std::optional<std::string> line = TakeLine(heard);
    if (!line) {
        return heard.size() > kLongestLine ? Refuse(said, TlsTrouble::NoTls, "the server does not speak POP3")
                                           : Turn::GoesOn;
    }
    // What stands behind a line was sent by whoever sits in between, or by a server that breaks the rules.
    if (!heard.empty()) return Refuse(said, TlsTrouble::NoTls, "the server spoke out of turn before TLS");
    if (!greeted_) {
        greeted_ = true;
        said.to_run = *line;
        if (line->starts_with('-')) return Turn::Ends;
        said.to_server = "STLS\r\n";
        return Turn::GoesOn;
    }
    if (line->starts_with('+')) return Turn::Done;
    line->erase(line->find_last_not_of("\r\n") + 1);
    const TlsTrouble trouble = line->starts_with("-ERR [SYS/TEMP]") ? TlsTrouble::Lost : TlsTrouble::NoTls;
    return Refuse(said, trouble, "the server refuses STLS: " + *line);
}

Turn StlsSpeaker::FromRun(std::string& /*heard*/, Said& /*said*/) { return Turn::Ends; }

}  // namespace tarvex::host
