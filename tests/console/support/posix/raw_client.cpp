// A browser that sends what the test wants.

#include "tests/console/support/posix/raw_client.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace tarvex::testing {
namespace {

void SetTimeOut(int socket, int option, std::chrono::seconds time) {
    const timeval limit{time.count(), 0};
    setsockopt(socket, SOL_SOCKET, option, &limit, sizeof limit);
}

}  // namespace

RawClient::RawClient(int port) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    SetTimeOut(socket_.Get(), SO_RCVTIMEO, kClientPatience);
    if (connect(socket_.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        socket_ = host::Descriptor();
}

RawClient::RawClient(const std::string& path) : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::ranges::copy(path, address.sun_path);
    SetTimeOut(socket_.Get(), SO_RCVTIMEO, kClientPatience);
    if (connect(socket_.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        socket_ = host::Descriptor();
}

bool RawClient::Send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

std::size_t RawClient::Flood(std::string_view bytes, std::size_t times) {
    SetTimeOut(socket_.Get(), SO_SNDTIMEO, std::chrono::seconds(1));
    std::size_t sent_bytes = 0;
    for (std::size_t i = 0; i < times; ++i) {
        const ssize_t sent = send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent > 0) sent_bytes += static_cast<std::size_t>(sent);
        if (sent != static_cast<ssize_t>(bytes.size())) break;
    }
    return sent_bytes;
}

bool RawClient::ReadMore() {
    std::array<char, 16384> piece;
    const ssize_t bytes = recv(socket_.Get(), piece.data(), piece.size(), 0);
    if (bytes > 0) read_.append(piece.data(), static_cast<std::size_t>(bytes));
    return bytes > 0;
}

std::string RawClient::ReadAnswer(bool has_body) {
    constexpr std::string_view kEnd = "\r\n\r\n";
    constexpr std::string_view kLength = "\r\nContent-Length: ";
    while (read_.find(kEnd) == std::string::npos && ReadMore()) {
    }
    std::size_t length = std::min(read_.find(kEnd), read_.size() - kEnd.size()) + kEnd.size();
    if (const std::size_t at = read_.find(kLength); has_body && at < length) {
        std::size_t body = 0;
        std::from_chars(read_.data() + at + kLength.size(), read_.data() + length, body);
        length += body;
    }
    while (read_.size() < length && ReadMore()) {
    }
    std::string answer = read_.substr(0, length);
    read_.erase(0, length);
    return answer;
}

int RawClient::StatusAhead() {
    std::array<char, 12> piece{};  // "HTTP/1.1 200"
    const ssize_t bytes = recv(socket_.Get(), piece.data(), piece.size(), MSG_PEEK | MSG_WAITALL);
    return StatusIn(std::string_view(piece.data(), static_cast<std::size_t>(std::max<ssize_t>(bytes, 0))));
}

std::string RawClient::ReadToEnd() {
    while (ReadMore()) {
    }
    return std::exchange(read_, {});
}

int StatusIn(std::string_view answer) {
    int status = 0;
    if (answer.starts_with("HTTP/1.1 ")) std::from_chars(answer.data() + 9, answer.data() + answer.size(), status);
    return status;
}

std::string GetRequest(std::string_view path, std::string_view more_headers) {
    return "GET " + std::string(path) + " HTTP/1.1\r\nHost: localhost\r\n" + std::string(more_headers) + "\r\n";
}

std::string PostRequest(std::string_view path, std::string_view form) {
    return "POST " + std::string(path) +
           " HTTP/1.1\r\nHost: localhost\r\nSec-Fetch-Site: same-origin\r\n"
           "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
           std::to_string(form.size()) + "\r\n\r\n" + std::string(form);
}

}  // namespace tarvex::testing
