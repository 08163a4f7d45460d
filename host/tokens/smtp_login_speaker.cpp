// Logs in to an SMTP server with a token (RFC 4954) in the place of AUTH PLAIN, LOGIN and CRAM-MD5.

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <vector>

#include "host/tokens/login_speaker.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMostReplyBytes = 64 << 10;  // no run takes a longer one

bool StartsWithInAnyCase(std::string_view line, std::string_view capitals) {
    if (line.size() < capitals.size()) return false;
    for (std::size_t i = 0; i < capitals.size(); ++i) {
        if (std::toupper(static_cast<unsigned char>(line[i])) != capitals[i]) return false;
    }
    return true;
}

class SmtpSpeaker : public LoginSpeaker {
public:
    explicit SmtpSpeaker(TokenLogin login) : LoginSpeaker(std::move(login)) {}

private:
    enum class State {
        Passing,   // what either says
        Greeting,  // EHLO was sent; its answer is collected
        Plain,     // the run owes its response to AUTH PLAIN
        User,      // to AUTH LOGIN: its user,
        Password,  // and its password
        Digest,    // to AUTH CRAM-MD5
        Asked,     // AUTH was sent
        Waiting,   // the response was sent
    };

    bool ListensToRun() const override {
        return state_ != State::Greeting && state_ != State::Asked && state_ != State::Waiting;
    }

    void RunLine(std::string_view line, Said& said) override {
        const std::string response = state_ == State::Passing ? std::string() : Base64Decoded(line);
        switch (state_) {
            case State::Plain:  // nobody, NUL, user, NUL, password
                return Ask(Between(response, '\0', '\0'), said);
            case State::User:
                SetUser(response);
                return Challenge("Password:", State::Password, said);
            case State::Password:
                return Ask(said);
            case State::Digest:  // user, blank, digest
                return Ask(response.substr(0, response.rfind(' ')), said);
            default:
                return TakeCommand(line, said);
        }
    }

    void TakeCommand(std::string_view line, Said& said) {
        if (StartsWithInAnyCase(line, "AUTH PLAIN")) return Challenge("", State::Plain, said);
        if (StartsWithInAnyCase(line, "AUTH LOGIN")) return Challenge("Username:", State::User, said);
        if (StartsWithInAnyCase(line, "AUTH CRAM-MD5")) return Challenge("<token@localhost>", State::Digest, said);
        if (StartsWithInAnyCase(line, "EHLO")) state_ = State::Greeting;
        TellServer(line, said);
    }

    static std::string Between(const std::string& text, char before, char behind) {
        const std::size_t begin = text.find(before);
        if (begin == std::string::npos) return {};
        return text.substr(begin + 1, text.find(behind, begin + 1) - begin - 1);
    }

    void Challenge(std::string_view text, State next, Said& said) {
        TellRun("334 " + Base64Encoded(text), said);
        state_ = next;
    }

    void Ask(const std::string& user, Said& said) {
        SetUser(user);
        Ask(said);
    }
    void Ask(Said& said) {
        TellServer(Command(), said);
        state_ = State::Asked;
    }

    void ServerLine(std::string_view line, Said& said) override {
        const bool is_last = line.size() < 4 || line[3] != '-';
        if (state_ == State::Greeting) {
            reply_.emplace_back(line);
            reply_bytes_ += line.size() + 2;
            if (reply_bytes_ > kMostReplyBytes) Break();
            if (is_last) ShowGreeting(said);
        } else if (state_ == State::Asked || state_ == State::Waiting) {
            Verdict(line, is_last, said);
        } else {
            TellRun(line, said);
        }
    }

    // The run finds the methods in a line that is neither the first nor the last.
    void ShowGreeting(Said& said) {
        state_ = State::Passing;
        reply_bytes_ = 0;
        std::vector<std::string> reply;
        reply.swap(reply_);
        if (!reply.front().starts_with("250")) {
            for (const std::string& line : reply) TellRun(line, said);
            return;
        }
        TellRun("250-" + reply.front().substr(std::min<std::size_t>(reply.front().size(), 4)), said);
        TellRun("250-AUTH CRAM-MD5 LOGIN PLAIN", said);
        for (std::size_t i = 1; i < reply.size(); ++i) {
            const std::string_view line = reply[i];
            if (!StartsWithInAnyCase(line.substr(std::min<std::size_t>(line.size(), 4)), "AUTH"))
                TellRun("250-" + std::string(line.substr(std::min<std::size_t>(line.size(), 4))), said);
        }
        TellRun("250 HELP", said);
    }

    void Verdict(std::string_view line, bool is_last, Said& said) {
        if (line.starts_with("334")) {
            TellServer(state_ == State::Asked ? Response() : AnswerToChallenge(), said);
            state_ = State::Waiting;
            return;
        }
        TellRun(line, said);
        if (!is_last) return;
        if (line.starts_with("235")) Accepted();
        if (state_ == State::Waiting && line.starts_with('5')) Refused();
        state_ = State::Passing;
    }

    State state_ = State::Passing;
    std::vector<std::string> reply_;  // to EHLO, so far
    std::size_t reply_bytes_ = 0;
};

}  // namespace

std::unique_ptr<TunnelSpeaker> SmtpLoginSpeaker(TokenLogin login) {
    return std::make_unique<SmtpSpeaker>(std::move(login));
}

}  // namespace tarvex::host
