#pragma once

// Conversations as tests write them: one text is the server's script and also the transcript that must come out of it.
//
//     S: +OK ready      the server sends this line; lines that follow one another go out in one write
//     S~ +OK ready      the server sends this line slowly, byte by byte
//     S- +OK 12         the server sends this line without a line end
//     C: USER alice     the client must send this line, and nothing before it
//     C: (message)      the client must send a message; its bytes are kept
//     C: (closed)       the server says nothing more and waits until the client closes
//     S: (closed)       the server closes (FIN)
//     S: (reset)        the server drops the connection (RST)
//
// So a server that stalls is a command followed by "C: (closed)". Logs are compared in a similar form: one entry a
// line, with control characters visible.

#include <chrono>
#include <future>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/os/system.h"
#include "tarvex/tree.h"
#include "testing/scripted_server.h"
#include "tests/support/reset.h"

namespace tarvex::testing {

constexpr int kAmpleTimeOut_s = 15;  // in conversations that must not time out
constexpr int kStallTimeOut_s = 1;   // in those that must
constexpr std::chrono::milliseconds kDrip{20};

inline std::string Visible(std::string_view bytes) {
    std::string visible;
    for (const char c : bytes) {
        switch (c) {
            case '\r':
                visible += "\\r";
                break;
            case '\n':
                visible += "\\n";
                break;
            case '\t':
                visible += "\\t";
                break;
            case '\0':
                visible += "\\0";
                break;
            default:
                visible += c;
        }
    }
    return visible;
}

inline std::string LogText(const CProfileLog& log) {
    std::string text;
    for (const CString& entry : log.entries) text += Visible(entry) + "\n";
    return WithResetAsSeen(std::move(text));
}

// Each text visible, on a line of its own.
inline std::string Lines(const std::vector<std::string>& texts) {
    std::string lines;
    for (const std::string& text : texts) lines += Visible(text) + "\n";
    return lines;
}

inline std::string Replaced(std::string text, std::string_view from, std::string_view to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

// "{host}" stands for the machine's name.
inline std::string WithHost(std::string text) { return Replaced(std::move(text), "{host}", HostName()); }

// What the sockets say of a server that goes or stalls, behind the beginning of the reply that they give in its place.
// In a log, "{closed}", "{reset}" and "{timeout}" stand for such a reply.
inline std::string WithReasons(std::string log, const std::string& lost, const std::string& late) {
    log = Replaced(std::move(log), "{closed}", lost + "the server closed the connection");
    log = Replaced(std::move(log), "{reset}", lost + "connection lost: Connection reset by peer");
    return WithResetAsSeen(Replaced(std::move(log), "{timeout}", late + "no answer in time"));
}

inline std::vector<std::string> SplitLines(std::string_view text) {
    std::vector<std::string> lines;
    for (std::size_t end; (end = text.find('\n')) != std::string_view::npos; text.remove_prefix(end + 1)) {
        lines.emplace_back(text.substr(0, end));
    }
    return lines;
}

// What a script has the client say, and the answer to it as a log shows that. The first is the server's greeting.
struct Exchange {
    std::string command;
    std::string reply;
};

// An answer that stops in the middle of a line is none.
inline std::vector<Exchange> Exchanges(const std::string& script) {
    std::vector<Exchange> exchanges(1);
    for (const std::string& line : SplitLines(WithHost(script))) {
        const std::string what = Visible(line.substr(3));
        if (line.starts_with("S-") || what == "(closed)" || what == "(reset)") continue;
        std::string& reply = exchanges.back().reply;
        if (line.starts_with('C'))
            exchanges.push_back({what, ""});
        else
            reply += (reply.empty() ? "" : "\\r\\n") + what;
    }
    return exchanges;
}

// A server that plays a script for one connection.
class Conversation {
public:
    explicit Conversation(const std::string& script)
        : script_(SplitLines(WithHost(script))),
          server_(std::vector<ScriptedServer::Session>{[this](Peer& peer) { Play(peer); }}) {}

    int Port() const { return server_.Port(); }

    // What was said, in the form of the script. Waits for the end of the session.
    std::string Transcript() {
        std::string transcript = server_.Transcript();
        for (const std::string& message : messages_) {
            const std::string counted = "(message of " + std::to_string(message.size()) + " bytes)";
            transcript = Replaced(std::move(transcript), counted, "(message)");
        }
        return transcript;
    }

    // The messages as they came over the wire, terminator included. Call it after Transcript.
    const std::vector<std::string>& Messages() const { return messages_; }

    // The transcript of a conversation that went as scripted.
    static std::string Expected(const std::string& script) {
        std::string expected;
        for (const std::string& line : SplitLines(WithHost(script))) {
            expected += (line.starts_with('S') ? "S:" : "C:") + line.substr(2) + "\n";
        }
        return expected;
    }

private:
    void Play(Peer& peer) {
        std::string together;
        for (std::size_t i = 0; i < script_.size(); ++i) {
            const std::string& line = script_[i];
            const std::string what = line.substr(3);
            if (line == "S: (closed)") {
                peer.Close();
            } else if (line == "S: (reset)") {
                peer.Reset();
            } else if (line.starts_with("S~")) {
                peer.Drip(what + "\r\n", kDrip);
            } else if (line.starts_with("S-")) {
                peer.Send(what);
            } else if (line.starts_with("S:")) {
                together += what + "\r\n";
                const bool more = i + 1 < script_.size() && script_[i + 1].starts_with("S: ") &&
                                  script_[i + 1] != "S: (closed)" && script_[i + 1] != "S: (reset)";
                if (!more) peer.Send(std::exchange(together, {}));
            } else if (line == "C: (closed)") {
                peer.WaitForClose();
            } else if (line == "C: (message)") {
                messages_.push_back(peer.ReadMessage());
            } else {
                peer.Expect(what);
            }
        }
    }

    const std::vector<std::string> script_;
    std::vector<std::string> messages_;
    ScriptedServer server_;
};

// Runs every case at the same time, since many of them wait for a time-out, and hands the outcomes to `check` one by
// one, in order.
template <class Cases, class Run, class Check>
void RunAll(const Cases& cases, Run run, Check check) {
    std::vector<std::future<decltype(run(*cases.begin()))>> outcomes;
    outcomes.reserve(cases.size());
    for (const auto& one : cases) outcomes.push_back(std::async(std::launch::async, run, std::cref(one)));
    auto outcome = outcomes.begin();
    for (const auto& one : cases) check(one, (outcome++)->get());
}

}  // namespace tarvex::testing
