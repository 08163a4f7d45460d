// The names of the system's code pages.

#include "platform/codec/charset.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace tarvex {
namespace {

std::optional<std::string> ToUtf8(const std::string& charset, const std::string& text) {
    const auto opened = SystemCharset::Open(charset);
    return opened ? opened->ToUtf8(text) : std::nullopt;
}

TEST(SystemCharset, NamesOfMailsLeadToCodePages) {
    const struct {
        std::string name, text, utf8;
    } cases[] = {
        {"iso-8859-1", "caf\xE9", "caf\u00E9"},
        {"iso-8859-2", "\xB1", "\u0105"},
        {"iso-8859-15", "\xA4", "\u20AC"},
        {"windows-1252", "\x80", "\u20AC"},
        {"cp1251", "\xCF", "\u041F"},
        {"ibm437", "\x81", "\u00FC"},
        {"koi8-r", "\xD0", "\u043F"},
        {"gb2312", "\xC4\xE3", "\u4F60"},
        {"big5", "\xA7\x41", "\u4F60"},
        {"euc-kr", "\xC7\xD1", "\uD55C"},
        {"iso-8859-1", "", ""},
        {"iso8859-1", "caf\xE9", "caf\u00E9"},
        {"iso_8859-2", "\xB1", "\u0105"},
        {"ascii", "a", "a"},
        {"ansi_x3.4-1968", "a", "a"},
        {"cp65000", "caf+AOk-", "caf\u00E9"},
    };
    for (const auto& [name, text, utf8] : cases) EXPECT_EQ(ToUtf8(name, text), utf8) << name;
}

TEST(SystemCharset, UnknownNamesAndForeignTextAreNothing) {
    for (const std::string name : {"x-unknown", "cp", "cp0", "cp99999", "windows-x", "cp1252x", ""}) {
        EXPECT_EQ(SystemCharset::Open(name), nullptr) << name;
    }
    EXPECT_EQ(ToUtf8("gb2312", "\xC4"), std::nullopt);
}

}  // namespace
}  // namespace tarvex
