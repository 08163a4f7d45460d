// The TCP socket as Windows Sockets has it.

#include "platform/net/tcp_stream.h"

#include <gtest/gtest.h>
#include <winsock2.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/net/name_lookup.h"
#include "platform/net/windows/socket_error.h"
#include "testing/scripted_server.h"
#include "tests/support/windows/replaced_import.h"

extern "C" {
extern void* imported_connect asm("__imp__connect@12");
extern void* imported_send asm("__imp__WSASend@28");
}

namespace tarvex {
namespace {

using namespace std::chrono_literals;
using testing::ReplacedImport;

void UseSockets() {
    TcpStream reserved_twice;
    ASSERT_TRUE(reserved_twice.Reserve());
    ASSERT_TRUE(reserved_twice.Reserve());
    TcpStream refused;
    ASSERT_TRUE(refused.Reserve());
    EXPECT_TRUE(refused.Connect(NumericAddress("::1").value(), 1, Deadline(20s)));
}

TEST(TcpStream, HandlesAreGivenBack) {
    DWORD before = 0;
    DWORD after = 0;
    UseSockets();  // what the system keeps for itself
    GetProcessHandleCount(::GetCurrentProcess(), &before);
    UseSockets();
    GetProcessHandleCount(::GetCurrentProcess(), &after);
    EXPECT_EQ(after, before);
}

decltype(&::connect) real_connect = nullptr;
std::vector<SOCKET> connected;

int WSAAPI RecordedConnect(SOCKET socket, const sockaddr* address, int length) {
    connected.push_back(socket);
    return real_connect(socket, address, length);
}

TEST(TcpStream, SendsAtOnceAndIsNotInherited) {
    testing::ScriptedServer server([](testing::Peer& peer) { peer.WaitForClose(); });
    const ReplacedImport recorded(imported_connect, RecordedConnect, real_connect);
    TcpStream stream;
    ASSERT_FALSE(stream.Connect(NumericAddress("127.0.0.1").value(), server.Port(), Deadline(20s)));
    ASSERT_EQ(connected.size(), 2U);  // what wakes it, and the server
    for (const SOCKET socket : connected) {
        DWORD flags = HANDLE_FLAG_INHERIT;
        EXPECT_TRUE(GetHandleInformation(reinterpret_cast<HANDLE>(socket), &flags));
        EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0U);
    }
    BOOL no_delay = FALSE;
    int length = sizeof no_delay;
    ASSERT_EQ(getsockopt(connected.back(), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<char*>(&no_delay), &length), 0);
    EXPECT_TRUE(no_delay);
}

std::size_t asked_bytes = 0;

int WSAAPI TakesAll(SOCKET, WSABUF* buffers, DWORD count, DWORD* bytes, DWORD, OVERLAPPED*,
                    LPWSAOVERLAPPED_COMPLETION_ROUTINE) {
    *bytes = 0;
    for (DWORD i = 0; i < count; ++i) *bytes += buffers[i].len;
    asked_bytes = *bytes;
    return 0;
}

int WSAAPI HasNoBuffers(SOCKET, WSABUF*, DWORD, DWORD*, DWORD, OVERLAPPED*, LPWSAOVERLAPPED_COMPLETION_ROUTINE) {
    WSASetLastError(WSAENOBUFS);
    return SOCKET_ERROR;
}

TEST(TcpStream, ALargeMessageIsHandedOverInPieces) {
    TcpStream stream;
    ASSERT_TRUE(stream.Reserve());
    const std::string text(100'000, 'x');
    const std::array<std::string_view, 3> parts = {"head", text, text};
    const ReplacedImport replaced(imported_send, TakesAll);
    EXPECT_EQ(stream.Send(parts).bytes, 65536U);
    EXPECT_EQ(asked_bytes, 65536U);
}

TEST(TcpStream, LackOfBuffersIsWaitedFor) {
    TcpStream stream;
    ASSERT_TRUE(stream.Reserve());
    const std::array<std::string_view, 1> parts = {"text"};
    const ReplacedImport replaced(imported_send, HasNoBuffers);
    EXPECT_EQ(stream.Send(parts).status, Transfer::Status::WouldBlock);
}

TEST(TcpStream, UrgentDataEndsNoWait) {
    const SOCKET listener = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int length = sizeof address;
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
    ASSERT_EQ(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
    ASSERT_EQ(::listen(listener, 1), 0);
    TcpStream stream;
    ASSERT_FALSE(stream.Connect(NumericAddress("127.0.0.1").value(), ntohs(address.sin_port), Deadline(20s)));
    const SOCKET peer = ::accept(listener, nullptr, nullptr);
    ASSERT_EQ(::send(peer, "!", 1, MSG_OOB), 1);
    EXPECT_TRUE(stream.Wait(TcpStream::Event::ToRead, Deadline(200ms)));
    ::closesocket(peer);
    ::closesocket(listener);
}

TEST(SocketError, IsInTheSameWordsOnEverySystem) {
    EXPECT_EQ(SocketErrorText(WSAECONNREFUSED), "Connection refused");
    EXPECT_EQ(SocketErrorText(WSAEACCES), "Permission denied");
    EXPECT_EQ(SocketErrorText(WSAEPROVIDERFAILEDINIT), "error 10106");
}

}  // namespace
}  // namespace tarvex
