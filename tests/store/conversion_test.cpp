// What a host may know of a mail's header.

#include "tarvex/conversion.h"

#include <gtest/gtest.h>

#include <string>

namespace tarvex {
namespace {

TEST(Headlines, AreDecodedAndUnfolded) {
    const CHeadlines headlines = HeadlinesOf(
        "\r\nReceived: from a\r\nSubject: =?UTF-8?B?5LyaLw==?=\r\n =?UTF-8?B?6K2w?= (2)\r\n"
        "From: =?iso-2022-jp?B?GyRCOzNFRBsoQg==?=\r\n <y@x.test>\r\nmessage-id: <1@x.test>\r\n\r\nSubject: "
        "no\r\n.\r\n");
    EXPECT_EQ(Utf8FromText(headlines.subject), "会/議 (2)");
    EXPECT_EQ(Utf8FromText(headlines.from), "山田 <y@x.test>");
    EXPECT_EQ(headlines.message_id, "<1@x.test>");
}

TEST(Headlines, AreEmptyWithoutAHeader) {
    for (const std::string message : {"", "\r\n", "\r\n\r\n.\r\n", "no field", "--b\r\nSubject: x"}) {
        const CHeadlines headlines = HeadlinesOf(message);
        EXPECT_EQ(headlines.from + headlines.subject + headlines.message_id, "") << message;
    }
}

}  // namespace
}  // namespace tarvex
