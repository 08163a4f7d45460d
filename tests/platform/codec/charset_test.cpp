// The table of character sets: names in headers, words in the content types of bodies.

#include "platform/codec/charset.h"

#include <gtest/gtest.h>

#include <string>

namespace tarvex {
namespace {

// One text per conversion: what each makes of the same bytes tells which one it was.
std::string Made(Conversion conversion) {
    std::string text = "\x1B$B$\"\x1B(B \xE3\x81\x82 \xA4\xA2";
    conversion(&text, &text);
    return text;
}
const std::string kJis = "\x82\xA0 \xE3\x81\x82 \xA4\xA2";
const std::string kUtf8 = "\x1B$B$\"\x1B(B \x82\xA0 ??";
const std::string kEuc = "\x1B$B$\"\x1B(B ??? \x82\xA0";
const std::string kCopy = "\x1B$B$\"\x1B(B \xE3\x81\x82 \xA4\xA2";

TEST(Charset, FirstWordOfTheTableThatABodysContentTypeContainsCounts) {
    const struct {
        const char* content_type;
        const std::string& made;
    } cases[] = {
        {"text/plain; charset=iso-2022-jp", kJis},
        {"text/plain; charset=x-iso-2022-jp-2004", kJis},
        {"text/plain; charset=utf-8", kUtf8},
        {"text/plain; charset=euc-jp", kEuc},
        {"text/plain; charset=x-euc-jp", kEuc},
        {"text/plain; charset=us-ascii", kCopy},
        {"text/plain; charset=us-ascii; name=euc-jp; x=utf-8; y=iso-2022-jp", kJis},
        {"text/plain; charset=us-ascii; name=euc-jp; x=utf-8", kUtf8},
        {"text/plain; charset=us-ascii; name=euc-jp", kEuc},
        {"", kJis},
        {"text/plain; charset=utf8", kJis},
        {"text/plain; charset=shift_jis", kJis},
        {"text/plain; charset=iso-8859-1", kJis},
    };
    for (const auto& c : cases) EXPECT_EQ(Made(BodyConversion(c.content_type)), c.made) << c.content_type;
}

TEST(Charset, HeaderNamesASetByAWholeNameWhateverItsHyphens) {
    CharsetConverter converter;
    for (const char* name : {"UTF-8", "utf8", "utf_8"})
        EXPECT_EQ(converter.ToSJis(name, "\xE3\x81\x82"), "\x82\xA0") << name;
    for (const char* name : {"Shift_JIS", "shift-jis", "SJIS", "x-sjis", "cp932", "Windows-31J"}) {
        EXPECT_EQ(converter.ToSJis(name, "\x82\xA0"), "\x82\xA0") << name;
    }
    for (const char* name : {"EUC-JP", "x-euc-jp", "eucJP"}) {
        EXPECT_EQ(converter.ToSJis(name, "\xA4\xA2"), "\x82\xA0") << name;
    }
    for (const char* name : {"ISO-2022-JP", "iso-2022-jp-2004", "csISO2022JP", "CP50221"}) {
        EXPECT_EQ(converter.ToSJis(name, "\x1B$B$\"\x1B(B"), "\x82\xA0") << name;
    }
    EXPECT_EQ(converter.ToSJis("us-ascii", "\x82\xA0"), "\x82\xA0");
    EXPECT_EQ(converter.ToSJis("iso-8859-1", "caf\xE9"), "cafe");
    for (const char* name : {"utf-8x", "xutf-8", "jis", "utf-8 sjis", "", "-", "\x82\xA0"}) {
        EXPECT_EQ(converter.ToSJis(name, "a"), std::nullopt) << name;
    }
}

}  // namespace
}  // namespace tarvex
