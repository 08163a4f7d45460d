#pragma once

// One client of a server that talks in lines. Everything here runs on the serving thread.

#include <array>
#include <asio/ip/tcp.hpp>
#include <memory>
#include <string>
#include <string_view>

namespace tarvex::loopback {

class LineSession : public std::enable_shared_from_this<LineSession> {
public:
    explicit LineSession(asio::ip::tcp::socket socket);
    virtual ~LineSession() = default;
    LineSession(const LineSession&) = delete;
    LineSession& operator=(const LineSession&) = delete;

    void Start();  // sends the greeting; from then on the session lives as long as its connection

protected:
    virtual std::string Greeting() = 0;
    virtual void OnLine(std::string_view line) = 0;  // with its line end

    void Answer(std::string_view bytes) { answer_ += bytes; }  // sent when every line at hand has been heard
    void HangUp() { state_ = State::HangingUp; }               // once the answer has been sent
    void Stall() { state_ = State::Stalling; }                 // sends the answer, then neither sends nor reads

private:
    enum class State { Talking, HangingUp, Stalling };

    void Read();
    void Hear();
    void Reply();
    void Continue();

    std::shared_ptr<asio::ip::tcp::socket> socket_;
    std::array<char, 65536> chunk_;
    std::string received_;
    std::string answer_;
    State state_ = State::Talking;
};

}  // namespace tarvex::loopback
