// A desk that answers as the test wants.

#include "tests/console/support/posix/scripted_desk.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace tarvex::testing {

std::string DeskTalk::ReadQuestion() const {
    std::array<unsigned char, 4> bytes{};
    if (recv(socket_.Get(), bytes.data(), bytes.size(), MSG_WAITALL) != static_cast<ssize_t>(bytes.size())) return {};
    std::size_t length = 0;
    for (const unsigned char byte : bytes) length = length << 8 | byte;
    std::string question(length, '\0');
    const ssize_t read = recv(socket_.Get(), question.data(), length, MSG_WAITALL);
    return read == static_cast<ssize_t>(length) ? question : std::string();
}

void DeskTalk::Send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t sent = send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

void DeskTalk::Answer(std::string_view json) const {
    std::string length;
    for (int shift = 24; shift >= 0; shift -= 8) length += static_cast<char>(json.size() >> shift & 0xFF);
    Send(length + std::string(json));
}

void DeskTalk::WaitForEnd() const {
    std::array<char, 4096> piece;
    while (recv(socket_.Get(), piece.data(), piece.size(), 0) > 0) {
    }
}

ScriptedDesk::ScriptedDesk(const std::string& path, std::function<void(const DeskTalk&)> script)
    : script_(std::move(script)), socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::ranges::copy(path, address.sun_path);
    if (bind(socket_.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(socket_.Get(), 128) != 0)
        throw std::runtime_error("the scripted desk cannot listen");
    thread_ = std::thread([this] { Serve(); });
}

ScriptedDesk::~ScriptedDesk() {
    shutdown(socket_.Get(), SHUT_RDWR);  // accept returns
    thread_.join();
    for (std::thread& talk : talks_) talk.join();
}

void ScriptedDesk::Serve() {
    while (true) {
        host::Descriptor connection(accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!connection.IsOpen()) return;
        const timeval limit{60, 0};
        setsockopt(connection.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        talks_.emplace_back([this, talk = DeskTalk(std::move(connection))] { script_(talk); });
    }
}

}  // namespace tarvex::testing
