// Escapes of addresses and forms.

#include "console/http/url_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarvex::console {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;

TEST(UrlText, AFormIsReadFieldByField) {
    EXPECT_THAT(ParseForm("a=1&b=x+y&c=%E6%97%A5%2B&d&=e&&a=2"),
                Optional(ElementsAre(Field{"a", "1"}, Field{"b", "x y"}, Field{"c", "日+"}, Field{"d", ""},
                                     Field{"", "e"}, Field{"a", "2"})));
    EXPECT_THAT(ParseForm(""), Optional(IsEmpty()));
    EXPECT_THAT(ParseForm("a=b=c"), Optional(ElementsAre(Field{"a", "b=c"})));
}

TEST(UrlText, WhatIsNoFormIsRefused) {
    for (const char* const form : {"a=%", "a=%4", "a=%4g", "%zz=1", "a=%80", "a=%C0%80", "a=%ED%A0%80",
                                   "a=%F5%80%80%80", "a=%E6%97", "a=\xFF", "a=%F4%90%80%80", "a=1&b=%"})
        EXPECT_FALSE(ParseForm(form)) << form;
}

TEST(UrlText, AFormMayHaveSoManyFieldsAndNotOneMore) {
    std::string form;
    for (std::size_t i = 0; i < kMostFields; ++i) form += "a&";
    ASSERT_TRUE(ParseForm(form));
    EXPECT_EQ(ParseForm(form)->size(), kMostFields);
    EXPECT_FALSE(ParseForm(form + "a"));
}

TEST(UrlText, WhatIsEscapedReadsBackTheSame) {
    std::string all;
    for (char c = 1; c > 0; ++c) all += c;
    for (const std::string& text : {std::string("a b&c=d%/?#"), std::string("日本語 ü 😀"), all, std::string()}) {
        const std::string encoded = EncodeEscapes(text);
        EXPECT_EQ(DecodeEscapes(encoded), text);
        EXPECT_EQ(encoded.find_first_of(" &=/?#+\"<>;\r\n"), std::string::npos) << encoded;
    }
}

TEST(UrlText, TextIsUtf8InItsShortestForm) {
    for (const char* const text : {"", "plain", "ü", "日本", "😀", "\x7F"}) EXPECT_TRUE(IsText(text)) << text;
    for (const char* const bytes : {"\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xBF\xBF", "\xF0\x8F\xBF\xBF",
                                    "\xF8\x88\x80\x80\x80", "\xE6\x97", "a\xFF"})
        EXPECT_FALSE(IsText(bytes));
}

}  // namespace
}  // namespace tarvex::console
