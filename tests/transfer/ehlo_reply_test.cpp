// The list of authentication methods in an EHLO reply.

#include "transfer/ehlo_reply.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tarvex {
namespace {

struct Example {
    std::string reply;
    std::string list;
};

void CheckAll(const std::vector<Example>& examples) {
    for (const Example& example : examples) EXPECT_EQ(AuthList(example.reply), example.list) << "of " << example.reply;
}

TEST(EhloReply, ListsTheMethodsOfTheFirstContinuationLine) {
    CheckAll({
        {"250-mx\r\n250-AUTH LOGIN PLAIN\r\n250 HELP", "LOGIN PLAIN"},
        {"250-mx\r\n250-AUTH=LOGIN\r\n250 HELP", "=LOGIN"},
        {"250-mx\r\n250-AUTH    CRAM-MD5  LOGIN \r\n250 HELP", "CRAM-MD5  LOGIN "},
        {"250-mx\r\n250-AUTH \tLOGIN\r\n250 HELP", "\tLOGIN"},
        {"250-mx\r\n250-AUTHLOGIN\r\n250 HELP", "LOGIN"},
        {"250-mx\r\n250-SIZE\r\n250-AUTH LOGIN\r\n250-AUTH PLAIN\r\n250 HELP", "LOGIN"},
        {"\r\n250-AUTH LOGIN\r\n", "LOGIN"},
        // The search for the end begins one byte behind the keyword.
        {"250-mx\r\n250-AUTH\r\n250-SIZE 5\r\n250 HELP", "\r\n250-SIZE 5"},
        {"250-mx\r\n250-AUTH \r\n250-SIZE 5\r\n250 HELP", ""},
        // No line end behind it.
        {"250-mx\r\n250-AUTH LOGIN", ""},
        {"250-mx\r\n250-AUTH", ""},
        {"250-mx\r\n250-AUTH\r\n250 HELP", ""},
    });
}

TEST(EhloReply, WithoutSuchALineIsReadFromOffsetNine) {
    CheckAll({
        {"250-AUTH LOGIN PLAIN\r\n250 HELP", "LOGIN PLAIN"},
        {"250-mx\r\n250 AUTH PLAIN\r\n", "50 AUTH PLAIN"},
        {"250-mx\r\n250 AUTH PLAIN", ""},
        {"250-mx\r\n250-auth LOGIN\r\n250 HELP", "50-auth LOGIN"},
        {"250-mx.example.org\r\n250 HELP", "ample.org"},
        {"250-mx     x    y\r\n250 HELP", "x    y"},
        {"250-mxy    z\r\n250 HELP", "z"},
        // A line end at offset 9 is not the end, one at offset 10 is.
        {"250-name9\r\n250-z\r\n250 HELP", "\r\n250-z"},
        {"250-name90\r\n250-z\r\n250 HELP", "0"},
        {"250-name9 \r\n250-z\r\n250 HELP", ""},
    });
}

TEST(EhloReply, IsReadWithinItsBoundsHoweverShort) {
    const std::string reply = "250-name9\r\n250-AUTH\r\n2";
    for (std::size_t length = 0; length <= reply.size(); ++length) {
        // A block of exactly that size, so that a sanitizer sees a byte too many.
        const auto block = std::make_unique<char[]>(length);
        reply.copy(block.get(), length);
        const std::string_view list = AuthList({block.get(), length});
        EXPECT_TRUE(list.empty()) << "of the first " << length << " bytes: " << list;
    }
}

}  // namespace
}  // namespace tarvex
