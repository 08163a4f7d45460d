// Sends the datagrams that the journal of systemd takes.

#include "host/service/log/posix/journal.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace tarvex::host {
namespace {

constexpr timeval kSendTimeout{0, 100'000};  // with a journal that does not read

// The length of a value that has more than one line, the lowest byte first.
std::string LengthOf(std::string_view value) {
    std::string length;
    for (std::uint64_t rest = value.size(), i = 0; i < sizeof rest; ++i, rest >>= 8)
        length += static_cast<char>(rest & 0xFF);
    return length;
}

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::ranges::copy(path, address.sun_path);
    return address;
}

bool WriteAll(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(file, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) return false;
        if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

}  // namespace

std::string JournalEntry(const JournalFields& fields) {
    std::string entry;
    for (const auto& [name, value] : fields) {
        const bool has_lines = value.find('\n') != std::string::npos;
        entry += name + (has_lines ? "\n" + LengthOf(value) : "=") + value + '\n';
    }
    return entry;
}

Journal::Journal(std::string path) : path_(std::move(path)) {
    if (path_.size() >= sizeof(sockaddr_un::sun_path)) return;
    socket_ = Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    setsockopt(socket_.Get(), SOL_SOCKET, SO_SNDTIMEO, &kSendTimeout, sizeof kSendTimeout);
}

bool Journal::Send(const JournalFields& fields) {
    if (!socket_.IsOpen()) return false;
    const std::string entry = JournalEntry(fields);
    sockaddr_un address = AddressOf(path_);
    iovec piece{const_cast<char*>(entry.data()), entry.size()};
    msghdr message{};
    message.msg_name = &address;
    message.msg_namelen = sizeof address;
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    if (Hand(message)) return true;
    return (errno == EMSGSIZE || errno == ENOBUFS) && SendAsFile(entry);
}

// While the journal does not read, only the first entry waits for it.
bool Journal::Hand(const msghdr& message) {
    const bool is_taken = sendmsg(socket_.Get(), &message, MSG_NOSIGNAL | (is_stuck_ ? MSG_DONTWAIT : 0)) >= 0;
    is_stuck_ = !is_taken && errno == EAGAIN;
    return is_taken;
}

// The journal takes it only when nobody can change it any more.
bool Journal::SendAsFile(const std::string& entry) {
    const Descriptor file(memfd_create("tarvex-journal", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!file.IsOpen() || !WriteAll(file.Get(), entry)) return false;
    if (fcntl(file.Get(), F_ADD_SEALS, F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE) != 0) return false;

    sockaddr_un address = AddressOf(path_);
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr message{};
    message.msg_name = &address;
    message.msg_namelen = sizeof address;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    const int number = file.Get();
    std::memcpy(CMSG_DATA(header), &number, sizeof number);
    return Hand(message);
}

}  // namespace tarvex::host
