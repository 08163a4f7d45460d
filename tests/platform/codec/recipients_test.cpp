// The recipients of a text mail, where its header has a limit.

#include "platform/codec/recipients.h"

#include <gtest/gtest.h>

#include <string>

namespace tarvex {
namespace {

std::string Shortened(std::string mail, std::size_t header_bytes) {
    ShortenRecipients(&mail, header_bytes);
    return mail;
}

TEST(Recipients, TheFirstFewStayAndTheOthersAreCounted) {
    const std::string mail =
        "Date: x\r\nTo: a@b, \"c,d\" <c@d>,\r\n e@f (g, h), i@j\r\nCC: k@l, m@n\r\nSubject: s\r\n\r\nTo: a, b\r\n";
    EXPECT_EQ(Shortened(mail, mail.find("\r\n\r\n")), mail);
    const std::string three =
        "Date: x\r\nTo: a@b, \"c,d\" <c@d>,\r\n e@f (g, h)\r\n (and 1 other)\r\nCC: k@l, m@n\r\nSubject: s\r\n\r\nTo: "
        "a, b\r\n";
    const std::string one =
        "Date: x\r\nTo: a@b\r\n (and 3 others)\r\nCC: k@l\r\n (and 1 other)\r\nSubject: s\r\n\r\nTo: a, b\r\n";
    EXPECT_EQ(Shortened(one, 1), one);
    EXPECT_EQ(Shortened(mail, 1), one) << "one always stays";
    EXPECT_EQ(Shortened(three, three.find("\r\n\r\n")), three);
}

TEST(Recipients, AsManyStayAsThereIsRoomFor) {
    std::string mail = "Date: x\r\nTo: first@example.jp";
    for (int i = 0; i < 2000; ++i) mail += ",\r\n number" + std::to_string(i) + "@example.jp";
    mail += "\r\nMIME-Version: 1.0\r\n\r\nbody";
    for (const std::size_t limit : {100U, 500U, 2000U, 40'000U}) {
        const std::string shortened = Shortened(mail, limit);
        const std::size_t bytes = shortened.find("\r\n\r\n");
        EXPECT_LE(bytes, limit);
        EXPECT_GT(bytes + 32, limit);
        EXPECT_NE(shortened.find(" others)\r\nMIME-Version: 1.0\r\n\r\nbody"), std::string::npos);
    }
}

TEST(Recipients, AHeaderWithoutListsStays) {
    EXPECT_EQ(Shortened("Date: x\r\nSubject: To: a, b\r\n\r\n", 1), "Date: x\r\nSubject: To: a, b\r\n\r\n");
    EXPECT_EQ(Shortened("no header", 1), "no header");
}

}  // namespace
}  // namespace tarvex
