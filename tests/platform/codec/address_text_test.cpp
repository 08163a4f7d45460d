// Addresses beyond ASCII: none becomes another one.

#include "platform/codec/address_text.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/codec/japanese.h"
#include "platform/codec/mail_header.h"
#include "tarvex/conversion.h"

namespace tarvex {
namespace {

struct Case {
    const char* name;
    std::string from;
    std::string shown;
};
std::ostream& operator<<(std::ostream& out, const Case& c) { return out << c.name; }

class Addresses : public ::testing::TestWithParam<Case> {};

TEST_P(Addresses, AreShownAsNoOther) {
    CMailInfo info;
    MakeMailInfo("From: " + GetParam().from + "\r\n\r\n", &info);
    EXPECT_EQ(Utf8FromText(info.from), GetParam().shown);
}

INSTANTIATE_TEST_SUITE_P(
    All, Addresses,
    ::testing::Values(
        Case{"Ascii", "Bank <service@bank.example>", "Bank <service@bank.example>"},
        Case{"DomainWithAnAccent", "Bank <service@b\u00E4nk.example>", "Bank <service@xn--bnk-qla.example>"},
        Case{"CapitalsAreSmallLetters", "<a@B\u00C4NK.Example>", "<a@xn--bnk-qla.Example>"},
        Case{"WithoutBrackets", "segreteria@esempio-universit\u00E0.it", "segreteria@xn--esempio-universit-4ob.it"},
        Case{"JapaneseDomain", "<a@\u65E5\u672C\u8A9E.example>", "<a@xn--wgv71a119e.example>"},
        Case{"LocalPartCannotBeWritten", "<m\u00FCnchen@b.example>", "<m{U+FC}nchen@b.example.invalid>"},
        Case{"ZeroWidthBlank", "<ser\u200Bvice@bank.example>", "<ser{U+200B}vice@bank.example.invalid>"},
        Case{"FullWidthLetters", "<\uFF53ervice@bank.example>", "<{U+FF53}ervice@bank.example.invalid>"},
        Case{"FullWidthLettersInTheDomain", "<a@ban\uFF4B.example>", "<a@xn--ban-v86s.example>"},
        Case{"LabelThatIsTooLong", "<a@" + std::string(60, 'b') + "\u00E4>",
             "<a@" + std::string(60, 'b') + "{U+E4}.invalid>"},
        Case{"InTheNameWhatLooksLikeOne", "\"service@b\u00E4nk.example\" <x@y.example>",
             "\"service@xn--bnk-qla.example\" <x@y.example>"},
        Case{"InAnEncodedWord", "=?UTF-8?Q?service=40b=C3=A4nk.example?= <x@y.example>",
             "\"service@xn--bnk-qla.example\" <x@y.example>"},
        Case{"AcrossEncodedWordsAndText", "service@=?UTF-8?Q?b=C3=A4nk.example?= <x@y.example>",
             "service@xn--bnk-qla.example <x@y.example>"},
        Case{"WithAByteThatIsNoUtf8", "=?UTF-8?Q?service=40b=C3=A4nk.example=FF?= <x@y.example>",
             "\"service@xn--bnk-qla.example?\" <x@y.example>"},
        Case{"InAnotherCharset", "=?ISO-8859-1?Q?service=40b=E4nk.example?= <x@y.example>",
             "\"service@xn--bnk-qla.example\" <x@y.example>"},
        Case{"ThatShiftJisHasInAName", "\"\u7530\u4E2D@\u55B6\u696D\" <x@y.example>",
             "\"\u7530\u4E2D@\u55B6\u696D\" <x@y.example>"},
        Case{"NameThatIsNone", "\u00C9ric M\u00FCller <x@y.example>", "Eric Muller <x@y.example>"},
        Case{"EncodedWordInBrackets", "<=?UTF-8?Q?=F0=9F=98=80?=@y.example>", "<{U+1F600}@y.example.invalid>"},
        Case{"NoEncodedWordInBrackets", "<=?x@y.example>", "<={U+3F}x@y.example.invalid>"},
        Case{"BareAndInShiftJis", "user@\u65E5\u672C.jp, \u3042@\u3044.jp <b@c.example>",
             "user@xn--wgv71a.jp, \u3042@\u3044.jp <b@c.example>"},
        Case{"SeveralAts", "<evil@bank.example\uFE50x@y.example>",
             "<evil{U+40}bank.example{U+FE50}x@y.example.invalid>"},
        Case{"LookAlikesOfParentheses", "=?UTF-8?Q?A_=E2=81=BD?= <a@b.example>, \u24B8lub\u2122 <b@c.example>",
             "A \uFF08 <a@b.example>, \uFF08C\uFF09lub\uFF08TM\uFF09 <b@c.example>"},
        Case{"SecondOfTwo", "A <a@b.example>, B <b@\u00E4.example>", "A <a@b.example>, B <b@xn--4ca.example>"},
        Case{"BracketInAQuotedName", "\"<\" \u3042 <b@c.example>", "\"<\" \u3042 <b@c.example>"},
        Case{"BracketInAComment", "(<\\)) \u3042 <b@c.example>", "(<\\)) \u3042 <b@c.example>"},
        Case{"CodeOfNoCharacter", "\x1B$B)!\x1B(B <b@c.example>", "\u3013 <b@c.example>"}),
    [](const auto& test) { return test.param.name; });

// RFC 3492 section 7.1, in small letters.
TEST(Punycode, EncodesTheExamplesOfItsStandard) {
    for (const auto& [label, encoded] : std::initializer_list<std::pair<const char*, const char*>>{
             {"\u4ED6\u4EEC\u4E3A\u4EC0\u4E48\u4E0D\u8BF4\u4E2D\u6587", "ihqwcrb4cv8a8dqg056pqjye"},
             {"\u306A\u305C\u307F\u3093\u306A\u65E5\u672C\u8A9E\u3092\u8A71\u3057\u3066\u304F\u308C\u306A\u3044\u306E"
              "\u304B",
              "n8jok5ay5dzabd5bym9f0cm5685rrjetr6pdxa"},
             {"3\u5E74b\u7D44\u91D1\u516B\u5148\u751F", "3b-ww4c5e180e575a65lsy2b"},
             {"\u3072\u3068\u3064\u5C4B\u6839\u306E\u4E0B2", "2-u9tlzr9756bt3uc0v"},
         })
        EXPECT_EQ(WithUnmistakableAddresses(std::string("<a@") + label + ">"), std::string("<a@xn--") + encoded + ">");
}

}  // namespace
}  // namespace tarvex
