// The handles of the TCP socket.

#include "platform/net/tcp_stream.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <chrono>

#include "platform/net/name_lookup.h"

namespace tarvex {
namespace {

using namespace std::chrono_literals;

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

}  // namespace
}  // namespace tarvex
