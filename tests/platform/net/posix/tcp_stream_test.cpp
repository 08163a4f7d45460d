// The descriptors of the TCP socket.

#include "platform/net/tcp_stream.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>

#include "platform/net/name_lookup.h"

namespace tarvex {
namespace {

using namespace std::chrono_literals;

TEST(TcpStream, DescriptorsAreGivenBack) {
    const int before = ::dup(0);
    ASSERT_EQ(::close(before), 0);
    {
        TcpStream reserved_twice;
        ASSERT_TRUE(reserved_twice.Reserve());
        ASSERT_TRUE(reserved_twice.Reserve());
        TcpStream refused;
        ASSERT_TRUE(refused.Reserve());
        EXPECT_TRUE(refused.Connect(NumericAddress("::1").value(), 1, Deadline(20s)));
    }
    const int after = ::dup(0);
    ASSERT_EQ(::close(after), 0);
    EXPECT_EQ(after, before);
}

}  // namespace
}  // namespace tarvex
