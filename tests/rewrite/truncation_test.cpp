// Texts that are cut off anywhere: a filter makes of a beginning what it makes of the whole, but for the last character
// or sequence, whose end is missing.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include "platform/codec/base64.h"
#include "platform/codec/japanese.h"
#include "platform/codec/transfer_encoding.h"
#include "rewrite/html_text.h"

namespace tarvex {
namespace {

struct Filter {
    const char* name;
    std::string (*convert)(std::string text);
    std::string text;
    std::size_t may_differ_bytes;  // at the end of the result
};
std::ostream& operator<<(std::ostream& out, const Filter& filter) { return out << filter.name; }

template <void (*Convert)(const std::string*, std::string*)>
std::string Codec(std::string text) {
    Convert(&text, &text);
    return text;
}

std::string Jis(std::string text) {
    SJisToJis(&text, &text);
    return text;
}

std::string Html(std::string text) {
    HtmlToText(&text);
    return text;
}

std::string Cut(std::string text) {
    FilterCharacters(&text, 0, "- , \x81\x40");
    return text;
}

std::string Compressed(std::string text) {
    FilterCharacters(&text, 1, "- , \x81\x40");
    return text;
}

class CutOff : public ::testing::TestWithParam<Filter> {};

TEST_P(CutOff, TextGivesTheBeginningOfTheResult) {
    const Filter& filter = GetParam();
    const std::string whole = filter.convert(filter.text);
    for (std::size_t length = 0; length <= filter.text.size(); ++length) {
        const std::string cut = filter.convert(filter.text.substr(0, length));
        const std::size_t sure = cut.size() - std::min(cut.size(), filter.may_differ_bytes);
        ASSERT_EQ(cut.substr(0, sure), whole.substr(0, sure)) << length;
        // The text that is missing never comes back.
        ASSERT_LE(cut.size(), whole.size() + filter.may_differ_bytes) << length;
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, CutOff,
    ::testing::Values(
        // "ESC $ (" without its "D".
        Filter{"JisToSJis", Codec<JisToSJis>,
               "a\x1B$B$\"$$\x1B(Bb\x1B$(D0!0\"\x1B(I12\x1B(Jc\r\n\x1B$@$\"\r\nd\x82\xA0", 3},
        // A "?" for each of the two bytes in front of a third.
        Filter{"EucToSJis", Codec<EucToSJis>, "a\xA4\xA2\x8E\xB1\x8F\xB0\xA1\xA4z\x8F\xB0z\x8E", 2},
        Filter{"Utf8ToSJis", Codec<Utf8ToSJis>,
               "a\xE3\x81\x82\xC3\xA9\xF0\x9F\x98\x80z\xE3\x81z\xEF\xBB\xBFy\xED\xA0\x80x", 1},
        // A "?", or a katakana whose voice mark is missing, and the way back to ASCII.
        Filter{"SJisToJis", Jis, "a\x82\xA0\x82\xA2\xB6\xDE\xCA\xDF\xB1\r\n\x83\x5C\x81z\xFA\x5C", 5},
        Filter{"Base64Decode", Codec<Base64Decode>, "Zm9v\r\nYmFy.Zg =\r\n= Zm9v", 0},
        // The "=" of a soft line break with its blanks and its CR.
        Filter{"QuotedPrintableDecode", Codec<QuotedPrintableDecode>, "a=3Db= \t \r\nc=\r\nd=E3=81=82=zz==41=", 5},
        // A line is filled up with zero bits.
        Filter{"UUDecode", Codec<UUDecode>, "x\r\nbegin 644 a\r\n%:&5L;&\\\r\n..86)C86)C86)C86)C86( \r\n`\r\nend\r\nx",
               14},
        // The longest entity.
        Filter{"HtmlToText", Html, "a <p b>c</p>d<!-- e > f -->&amp;lt;g&minus;&#65;</div>\x83\x5C<\x81!/p>h&APOS;</",
               6},
        Filter{"FilterCharactersCut", Cut, "a -b\x81\x40\x81\x40\x83\x5C\r\n\r\n\x82 c\x80,,d\xB1", 0},
        Filter{"FilterCharactersCompress", Compressed, "a  --b\x81\x40\x81\x40\x83\x5C\r\n\r\n\n\x82 c\x80,,d\xB1\xB1",
               0}),
    [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace tarvex
