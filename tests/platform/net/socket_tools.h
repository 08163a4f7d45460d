#pragma once

// What the tests of the POP3 and the SMTP socket share: a server that greets and takes one command.

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "platform/net/sockets.h"
#include "testing/scripted_server.h"

namespace tarvex::testing {

inline constexpr const char* kHost = "127.0.0.1";
inline constexpr int kLong_s = 60;  // far longer than anything here takes

inline std::string Greeting(const CPopSocket*) { return "+OK ready"; }
inline std::string Greeting(const CSmtpSocket*) { return "220 ready"; }
inline std::string Connect(CPopSocket& socket, int port) { return socket.PopConnect(kHost, port); }
inline std::string Connect(CSmtpSocket& socket, int port) { return socket.SmtpConnect(kHost, port); }

// The socket of a conversation whose greeting was taken.
template <class Socket>
class Greeted : public Socket {
public:
    explicit Greeted(const ScriptedServer& server, int time_out_s = kLong_s) {
        this->SetTimeOut(time_out_s);
        EXPECT_EQ(this->Create(0, 1, nullptr), 1);
        EXPECT_EQ(Connect(*this, server.Port()), Greeting(this));
    }
};

// A server that greets, takes one command and then does this.
template <class Socket>
ScriptedServer::Session AfterCommandTo(const std::function<void(Peer&)>& then) {
    return [then](Peer& peer) {
        peer.Send(Greeting(static_cast<const Socket*>(nullptr)) + "\r\n");
        peer.ReadLine();
        then(peer);
    };
}

// A server that greets and answers one command.
template <class Socket>
ScriptedServer::Session AnswerOnceTo(const std::string& reply) {
    return AfterCommandTo<Socket>([reply](Peer& peer) {
        peer.Send(reply);
        peer.WaitForClose();
    });
}

}  // namespace tarvex::testing
