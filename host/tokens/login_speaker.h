#pragma once

// Logs in with a token where the run logs in with a password. It speaks in a tunnel, behind TLS:
//
//     run                 speaker                                          server
//     USER me        -->  +OK
//     PASS secret    -->                   AUTH XOAUTH2               -->
//                                                                     <--  +
//                                          user=me, the token         -->
//                    <--                                              <--  +OK or -ERR
//
// The run's password goes nowhere. For SMTP it answers AUTH PLAIN, LOGIN and CRAM-MD5 likewise, and shows the run an
// EHLO answer that offers these. What is no login passes unchanged; when the login has succeeded, the speaker is done.

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "host/tunnels/tunnel_speaker.h"

namespace tarvex::host {

enum class TokenMethod { XOAuth2, OAuthBearer };

struct TokenLogin {
    TokenMethod method = TokenMethod::XOAuth2;
    std::string token;
    std::string host;  // of the mail server, as OAUTHBEARER wants it
    int port = 0;
    std::shared_ptr<std::atomic<bool>> was_refused;  // set when the server refuses the token for good; may be null
};

class LoginSpeaker : public TunnelSpeaker {
public:
    Turn FromServer(std::string& heard, Said& said) final;
    Turn FromRun(std::string& heard, Said& said) final;

protected:
    explicit LoginSpeaker(TokenLogin login) : login_(std::move(login)) {}

    virtual void ServerLine(std::string_view line, Said& said) = 0;  // without its end
    virtual void RunLine(std::string_view line, Said& said) = 0;

    // Whether the run's next line may be looked at: the server owes nothing.
    virtual bool ListensToRun() const = 0;

    static void TellRun(std::string_view line, Said& said) { said.to_run.append(line).append("\r\n"); }
    static void TellServer(std::string_view line, Said& said) { said.to_server.append(line).append("\r\n"); }

    void SetUser(std::string_view user);
    std::string Command() const;            // AUTH with its method
    std::string Response() const;           // what tells who wants in, encoded
    const char* AnswerToChallenge() const;  // to the details of a refusal
    void Accepted() { turn_ = Turn::Done; }
    void Break() { turn_ = Turn::Ends; }
    void Refused() {
        if (login_.was_refused) *login_.was_refused = true;
    }

private:
    Turn TurnAfter(const std::string& heard);

    const TokenLogin login_;
    std::string user_;
    Turn turn_ = Turn::GoesOn;
};

std::unique_ptr<TunnelSpeaker> PopLoginSpeaker(TokenLogin login);
std::unique_ptr<TunnelSpeaker> SmtpLoginSpeaker(TokenLogin login);

// Bytes as text, and back; empty for a text that is not base64.
std::string Base64Encoded(std::string_view bytes);
std::string Base64Decoded(std::string_view text);

}  // namespace tarvex::host
