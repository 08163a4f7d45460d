// Says STARTTLS to an SMTP server that has greeted.

#include "host/tunnels/smtp_starttls.h"

#include <optional>
#include <utility>

namespace tarvex::host {
namespace {

constexpr std::size_t kLongestReply = 16 << 10;

// The whole next reply, whose last line has a blank behind its code; with the ends of its lines.
std::optional<std::string> TakeReply(std::string& heard) {
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = heard.find('\n', begin)) != std::string::npos; begin = end + 1) {
        if (end - begin > 3 && heard[begin + 3] == '-') continue;
        std::string reply = heard.substr(0, end + 1);
        heard.erase(0, end + 1);
        return reply;
    }
    return std::nullopt;
}

Turn Refuse(Said& said, TlsTrouble trouble, std::string reason) {
    said.failure = {trouble, std::move(reason)};
    return Turn::Ends;
}

Turn RefuseForReply(Said& said, std::string reply, const char* command) {
    const TlsTrouble trouble = reply.starts_with('4') ? TlsTrouble::Lost : TlsTrouble::NoTls;
    reply.erase(reply.find_last_not_of("\r\n") + 1);
    return Refuse(said, trouble, std::string("the server refuses ") + command + ": " + reply);
}

}  // namespace

Turn StartTlsSpeaker::FromServer(std::string& heard, Said& said) {
    std::optional<std::string> reply = TakeReply(heard);
    if (!reply) {
        return heard.size() > kLongestReply ? Refuse(said, TlsTrouble::NoTls, "the server does not speak SMTP")
                                            : Turn::GoesOn;
    }
    // What stands behind a reply was sent by whoever sits in between, or by a server that breaks the rules.
    if (!heard.empty()) return Refuse(said, TlsTrouble::NoTls, "the server spoke out of turn before TLS");
    switch (state_) {
        case State::Greeting:
            said.to_run = *reply;
            if (!reply->starts_with("220")) return Turn::Ends;
            said.to_server = "EHLO localhost\r\n";
            state_ = State::Hello;
            return Turn::GoesOn;
        case State::Hello:
            if (!reply->starts_with("250")) return RefuseForReply(said, *std::move(reply), "EHLO");
            said.to_server = "STARTTLS\r\n";
            state_ = State::StartTls;
            return Turn::GoesOn;
        case State::StartTls:
            break;
    }
    return reply->starts_with("220") ? Turn::Done : RefuseForReply(said, *std::move(reply), "STARTTLS");
}

Turn StartTlsSpeaker::FromRun(std::string& /*heard*/, Said& /*said*/) { return Turn::Ends; }

}  // namespace tarvex::host
