// Lines that relays would break.

#include "platform/codec/line_breaking.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/codec/japanese.h"

namespace tarvex {
namespace {

std::string Broken(std::string text) {
    BreakLongLines(&text, &text);
    return text;
}

std::string Repeat(const std::string& unit, std::size_t times) {
    std::string text;
    while (times-- > 0) text += unit;
    return text;
}

TEST(LineBreaking, LinesThatMayBeSentStay) {
    const std::string text = std::string(998, 'a') + "\r\n" + std::string(998, 'b') + "\n" + std::string(998, 'c');
    EXPECT_EQ(Broken(text), text);
    EXPECT_EQ(Broken(""), "");
}

TEST(LineBreaking, BreaksBehindABlankElseAtTheColumn) {
    EXPECT_EQ(Broken(std::string(999, 'a') + "\r\nb"), Repeat(std::string(76, 'a') + "\r\n", 13) + "aaaaaaaaaaa\r\nb");
    const std::string words = Repeat("forty-characters-without-a-blank-xxxxxxx ", 30);
    EXPECT_EQ(Broken(words), Repeat("forty-characters-without-a-blank-xxxxxxx \r\n", 29) +
                                 "forty-characters-without-a-blank-xxxxxxx ");
}

TEST(LineBreaking, EachLineBeginsAndEndsInAscii) {
    const std::string kanji = "\x1B$B" + Repeat("4A", 38) + "\x1B(B";
    EXPECT_EQ(Broken("\x1B$B" + Repeat("4A", 38 * 14) + "\x1B(B"), Repeat(kanji + "\r\n", 13) + kanji);
    EXPECT_EQ(Broken("x\x1B$B" + Repeat("4A", 500) + "\x1B(B").substr(0, 90),
              "x\x1B$B" + Repeat("4A", 37) + "\x1B(B\r\n\x1B$B4A4A");
}

// Unbroken again it is the same text, whatever it was.
TEST(LineBreaking, LosesNothing) {
    for (const std::string& unit : {std::string("\x82\xA0"), std::string("a\x82\xA0 "), std::string("\xB1\xDE."),
                                    std::string("word ."), std::string("\x87\x40\x87\x41xyz")}) {
        std::string jis = Repeat(unit, 700);
        SJisToJis(&jis, &jis);
        const std::string broken = Broken(jis);
        std::string joined = broken;
        for (std::size_t at = 0; (at = joined.find("\r\n")) != std::string::npos;) joined.erase(at, 2);
        std::string expected;
        JisToSJis(&jis, &expected);
        JisToSJis(&joined, &joined);
        EXPECT_EQ(joined, expected);
        for (std::size_t at = 0; at < broken.size();) {
            const std::size_t end = std::min(broken.find("\r\n", at), broken.size());
            EXPECT_LE(end - at, kMaxLine_bytes);
            const std::string line = broken.substr(at, end - at);
            const std::size_t last = line.rfind('\x1B');
            EXPECT_TRUE(last == std::string::npos || line.compare(last, 3, "\x1B(B") == 0) << line;
            at = end + 2;
        }
    }
}

}  // namespace
}  // namespace tarvex
