// Asks the desk at its Unix socket.

#include "tests/host/desk/desk_client.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>

#include "host/system/posix/descriptor.h"
#include "tests/host/service/served_tree.h"

namespace tarvex::testing {

struct DeskClient::Connection {
    host::Descriptor socket{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

std::string DeskClient::Place(const TempDir& folder) { return folder / "desk"; }

DeskClient::DeskClient(const std::string& place) : connection_(std::make_unique<Connection>()) {
    const int socket = connection_->socket.Get();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::ranges::copy(place, address.sun_path);
    EXPECT_TRUE(
        Eventually([&] { return connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0; }));
    const timeval patience{20, 0};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
}

DeskClient::DeskClient(DeskClient&&) noexcept = default;
DeskClient::~DeskClient() = default;

std::string DeskClient::Exchange(const std::string& bytes) {
    const int socket = connection_->socket.Get();
    EXPECT_EQ(send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    std::string answer;
    char piece[4096];
    for (ssize_t count = 0; (count = recv(socket, piece, sizeof piece, 0)) > 0;)
        answer.append(piece, static_cast<std::size_t>(count));
    return answer;
}

}  // namespace tarvex::testing
