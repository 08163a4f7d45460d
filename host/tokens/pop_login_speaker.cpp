// Logs in to a POP3 server with a token (RFC 5034) in the place of USER and PASS, or APOP.

#include <cctype>

#include "host/tokens/login_speaker.h"

namespace tarvex::host {
namespace {

// Whether the line begins with the command, in any letter case; then `rest` is what follows it.
bool IsCommand(std::string_view line, std::string_view command, std::string_view& rest) {
    if (line.size() <= command.size() || line[command.size()] != ' ') return false;
    for (std::size_t i = 0; i < command.size(); ++i) {
        if (std::toupper(static_cast<unsigned char>(line[i])) != command[i]) return false;
    }
    rest = line.substr(command.size() + 1);
    return true;
}

class PopSpeaker : public LoginSpeaker {
public:
    explicit PopSpeaker(TokenLogin login) : LoginSpeaker(std::move(login)) {}

private:
    enum class State {
        Passing,  // what either says
        Asked,    // AUTH was sent
        Waiting,  // the response was sent
    };

    bool ListensToRun() const override { return state_ == State::Passing; }

    void RunLine(std::string_view line, Said& said) override {
        std::string_view rest;
        if (IsCommand(line, "USER", rest)) {
            SetUser(rest);
            TellRun("+OK", said);
        } else if (IsCommand(line, "PASS", rest)) {
            Ask(said);
        } else if (IsCommand(line, "APOP", rest)) {
            SetUser(rest.substr(0, rest.rfind(' ')));
            Ask(said);
        } else {
            TellServer(line, said);
        }
    }

    // Two lines: some servers do not take the response behind the command.
    void Ask(Said& said) {
        TellServer(Command(), said);
        state_ = State::Asked;
    }

    void ServerLine(std::string_view line, Said& said) override {
        if (state_ == State::Passing) return TellRun(line, said);
        if (line.starts_with('+') && !line.starts_with("+OK")) {
            TellServer(state_ == State::Asked ? Response() : AnswerToChallenge(), said);
            state_ = State::Waiting;
            return;
        }
        if (line.starts_with("+OK")) {
            Accepted();
        } else if (state_ == State::Waiting && (!line.starts_with("-ERR [") || line.starts_with("-ERR [AUTH]"))) {
            Refused();  // a mailbox that is in use, or a fault of the server, says nothing about the token (RFC 3206)
        }
        state_ = State::Passing;
        TellRun(line, said);
    }

    State state_ = State::Passing;
};

}  // namespace

std::unique_ptr<TunnelSpeaker> PopLoginSpeaker(TokenLogin login) {
    return std::make_unique<PopSpeaker>(std::move(login));
}

}  // namespace tarvex::host
