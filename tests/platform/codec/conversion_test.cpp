// The front door's conversions of text, compared with the system's converter.

#include "tarvex/conversion.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/codec/text.h"
#include "tests/platform/codec/reference_converter.h"
#include "tests/support/allocation_failure.h"

namespace tarvex {
namespace {

using testing::Utf8Of;

TEST(Conversion, EveryPairOfBytesIsShownAsTheSystemShowsIt) {
    const testing::ReferenceConverter to_utf8("UTF-8", "CP932");
    const auto alone = [&](const std::string& byte) {
        return IsSingleByte(static_cast<unsigned char>(byte[0])) ? to_utf8(byte).value_or("?") : "?";
    };
    const auto expected = [&](const std::string& one, const std::string& other) {
        const std::string pair = one + other;
        if (CharacterBytes(pair) == 2) {
            if (const auto utf8 = to_utf8(pair)) return *utf8;
        }
        return alone(one) + alone(other);
    };
    for (int first = 0; first < 0x100; ++first) {
        if (first == 0x80 || first == 0xA0 || first > 0xFC) continue;  // some systems take them for control characters
        for (int second = 0; second < 0x100; ++second) {
            if (second == 0x80 || second == 0xA0 || second > 0xFC) continue;
            const std::string one(1, static_cast<char>(first));
            const std::string other(1, static_cast<char>(second));
            ASSERT_EQ(Utf8FromText(one + other), expected(one, other)) << first << ' ' << second;
        }
    }
}

TEST(Conversion, ByteThatBelongsToNoCharacterIsAQuestionMark) {
    EXPECT_EQ(Utf8FromText("a\x80\xA0\xFD\xFE\xFF\x81"), "a??????");
    EXPECT_EQ(Utf8FromText("\x85\x40x\x1B\r\n"), "?@x\x1B\r\n");
    EXPECT_EQ(Utf8FromText(""), "");
}

TEST(Conversion, CharacterIsStoredWhenItIsShownAsTheSameOrHasASecondCodePoint) {
    const std::u32string twins = U"\u00A2\u00A3\u00AC\u2014\u2016\u2212\u301C";
    int stored = 0;
    for (char32_t code = 0; code < 0x20000; ++code) {
        if (code >= 0xD800 && code < 0xE000) continue;
        const auto text = TextFromUtf8(Utf8Of(code));
        if (!text) continue;
        ++stored;
        if (twins.find(code) == std::u32string::npos) {
            ASSERT_EQ(Utf8FromText(*text), Utf8Of(code)) << std::hex << static_cast<unsigned>(code);
        }
    }
    EXPECT_EQ(stored, 0x80 + 63 + 9206 + 7);
    EXPECT_EQ(TextFromUtf8("\u301C\u2212\u2016\u2014\u00A2\u00A3\u00AC"),
              TextFromUtf8("\uFF5E\uFF0D\u2225\u2015\uFFE0\uFFE1\uFFE2"));
}

TEST(Conversion, EveryCharacterOfTheCodePageCanBeStored) {
    const testing::ReferenceConverter to_utf8("UTF-8", "CP932");
    for (int lead = 0x81; lead <= 0xFC; ++lead) {
        for (int trail = 0x40; trail <= 0xFC; ++trail) {
            const std::string code = {static_cast<char>(lead), static_cast<char>(trail)};
            if (CharacterBytes(code) != 2) continue;
            const auto utf8 = to_utf8(code);
            EXPECT_TRUE(!utf8 || TextFromUtf8(*utf8)) << utf8.value_or("");
        }
    }
}

TEST(Conversion, WhatOnlyLooksAlikeIsNotStored) {
    for (const char* text : {"\u00A5", "\u203E", "\u00E9", "\u00A0", "\uFEFF", "\u200B", "\U0001F600", "\uD55C"}) {
        EXPECT_EQ(TextFromUtf8(text), std::nullopt) << text;
    }
    EXPECT_EQ(TextFromUtf8("a\u00E9"), std::nullopt);
}

TEST(Conversion, WhatIsNoUtf8IsNotStoredAndEndsWhatIsWellFormed) {
    for (const std::string bad :
         {"\x80", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE3\x81", "\xFF"}) {
        EXPECT_EQ(TextFromUtf8("a" + bad), std::nullopt);
        EXPECT_EQ(WellFormedUtf8Bytes("\u3042" + bad + "b"), 3U);
    }
    EXPECT_EQ(WellFormedUtf8Bytes("\u3042\U0001F600z"), 8U);
    EXPECT_EQ(WellFormedUtf8Bytes(""), 0U);
}

TEST(Conversion, TextMailIsReadAndWritten) {
    EXPECT_EQ(JisFromText("a\x82\xA0"), "a\x1B$B$\"\x1B(B");
    EXPECT_EQ(TextFromJis("a\x1B$B$\"\x1B(B"), "a\x82\xA0");
}

TEST(Conversion, MemoryThatRunsOutYieldsNothing) {
    const std::string text(100, 'a');
    const auto starved = [](auto convert) {
        testing::FailAllocation(1);
        const auto result = convert();
        testing::EndAllocationFailure();
        return result;
    };
    EXPECT_EQ(starved([&] { return Utf8FromText(text); }), "");
    EXPECT_EQ(starved([&] { return TextFromUtf8(text); }), std::nullopt);
    EXPECT_EQ(starved([&] { return TextFromJis(text); }), "");
    EXPECT_EQ(starved([&] { return JisFromText(text); }), "");
}

}  // namespace
}  // namespace tarvex
