// HTML to text, entities and the character filter.

#include "rewrite/html_text.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace tarvex {
namespace {

struct Case {
    const char* name;
    CString source;
    CString expected;
};

std::ostream& operator<<(std::ostream& out, const Case& c) { return out << c.name; }

std::string NameOf(const ::testing::TestParamInfo<Case>& info) { return info.param.name; }

// ---- HtmlToText

class Html : public ::testing::TestWithParam<Case> {};

TEST_P(Html, BecomesText) {
    CString text = GetParam().source;
    EXPECT_EQ(HtmlToText(&text), 1);
    EXPECT_EQ(text, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    All, Html,
    ::testing::Values(
        Case{"ClosingParagraphEndsALine", "a b</p>c", "ab\r\nc"}, Case{"OpeningParagraphDoesNot", "<p>x", "x"},
        Case{"WhiteSpaceGoesEverywhere", " a\tb\r\nc d ", "abcd"},
        Case{"FormFeedAndVerticalTabStay", "a\fb\vc", "a\fb\vc"}, Case{"AlsoInATag", "a<\f/p>b<\v/p>c", "abc"},
        Case{"WhiteSpaceInsideATagGoesToo", "a< / p >b", "a\r\nb"},
        Case{"ClosingTagsOfAnyNameWithPCount", "a</pre>b</param>c", "a\r\nb\r\nc"},
        Case{"SlashBehindPCounts", "a<p/>b", "a\r\nb"},
        Case{"LetterCaseDoesNotMatter", "a</P>b</DIV>c</Div>d", "a\r\nb\r\nc\r\nd"},
        Case{"ClosingDivEndsALine", "a</div>b", "a\r\nb"}, Case{"OpeningDivDoesNot", "<div>a", "a"},
        Case{"ShortTagsEndNoLine", "a</>b<p>c<>d", "abcd"},
        Case{"BreaksAndRowsEndNoLine", "a<br>b<br/>c<tr>d</tr>e<li>f</li>", "abcdef"},
        Case{"BeginningOfDivIsNotEnough", "a</di>b", "ab"}, Case{"CommentsGo", "a<!-- x -->b", "ab"},
        Case{"CommentWithAGreaterSignGoesOn", "a<!-- x > y -->b", "ab"},
        Case{"TagsInACommentStayHidden", "a<!-- <p>x</p> -->b", "ab"}, Case{"ShortestComment", "a<!-->b", "ab"},
        Case{"UnclosedCommentHidesTheRest", "a<!-- b > c", "a"}, Case{"UnclosedTagHidesTheRest", "a<p b c", "a"},
        Case{"CommentEndsOnlyBehindTwoHyphens", "a<!-- b ->c--x>d- ->e-->f", "af"},
        Case{"CommentMayBeginAnywhere", "a<!--<!--b-->c", "ac"},
        Case{"BrokenCommentIsATag", "a<!- b -->c<!>d<! -->e", "acde"},
        Case{"TagInACommentIsForgottenAtItsEnd", "a<!--</p>--><b>c</p>d", "ac\r\nd"},
        Case{"GreaterSignBehindACommentRepeatsItsLastTag", "a<!--</p>-->b>c", "ab\r\nc"},
        Case{"TagOverLineEnds", "a</\r\np\r\n>b", "a\r\nb"},
        Case{"LongNamesCountByTheirBeginning", "a</division>b</paragraph x=y>c<p/ >d", "a\r\nb\r\nc\r\nd"},
        Case{"SlashBehindDivDoesNotCount", "a<div/>b", "ab"},
        Case{"ZeroBytesAreText", CString("a\0b<\0/p>c", 9), CString("a\0bc", 4)},
        Case{"DoubleByteCharactersKeepTheirBlankLookingBytes", "\x81\x40 \x81\x5B", "\x81\x40\x81\x5B"},
        Case{"NewTagStartsAnew", "a<x</p>b", "a\r\nb"}, Case{"LoneGreaterSignGoes", "a>b", "ab"},
        // An empty tag text stands before a stray ">", and it ends no line; one that is left from before does.
        Case{"StrayGreaterSignRepeatsTheLastTag", "</p>a>b", "\r\na\r\nb"},
        Case{"EntitiesAreDecodedAfterTheTagsHaveGone", "&lt;p&gt;a&lt;/p&gt;", "<p>a</p>"},
        Case{"NoBreakBlankBecomesABlank", "a&nbsp;b", "a b"},
        Case{"JapaneseStays", "<b>\x83\x5C\x95\x5C</b>", "\x83\x5C\x95\x5C"},
        Case{"BrokenDoubleByteInATagIsLookedThrough", "a<\x81!/p>b", "a\r\nb"},
        Case{"DoubleByteInATagIsNot", "a<\x81\x40/p>b", "ab"}, Case{"Empty", "", ""}),
    NameOf);

// ---- entities

class Entities : public ::testing::TestWithParam<Case> {};

TEST_P(Entities, AreDecoded) {
    CString text = GetParam().source;
    EXPECT_EQ(DecodeHtmlEntitiesInText(&text), 1);
    EXPECT_EQ(text, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    All, Entities,
    ::testing::Values(
        Case{"Amp", "a&amp;b", "a&b"}, Case{"AmpInCapitals", "&AMP;", "&"}, Case{"Quot", "&quot;", "\""},
        Case{"QuotMixed", "&QuOt;", "\""}, Case{"Lt", "&lt;", "<"}, Case{"Gt", "&GT;", ">"},
        Case{"Nbsp", "&nbsp;", " "}, Case{"Minus", "&minus;", "-"}, Case{"SmallApostropheStays", "&apos;", "&apos;"},
        Case{"CapitalApostrophe", "&APOS;", "'"}, Case{"ApostropheWithCapitalS", "&apoS;", "'"},
        Case{"ApostropheWithSmallA", "&apoa;", "'"}, Case{"ApostropheWithCapitalAStays", "&APOA;", "&APOA;"},
        Case{"OnlyTheLettersCount", "&ampere;&ltimes;&nbspx;", "&< "},
        Case{"FewerLettersStay", "&am;&l;&nbs;&minu;&quo;&ap;", "&am;&l;&nbs;&minu;&quo;&ap;"},
        Case{"BlanksInACandidateCount", "&lt x y;", "<"}, Case{"DecodedAmpersandBeginsAnother", "&amp;lt;", "<"},
        Case{"ManyTimes", "&amp;amp;amp;gt;", ">"}, Case{"LaterAmpersandIsTheStart", "&lt&gt;", "&lt>"},
        Case{"SemicolonWithoutAStart", ";a;&lt;;", ";a;<;"}, Case{"FailedCandidateIsOver", "&foo;lt;", "&foo;lt;"},
        Case{"OtherDecodedCharactersBeginNone", "&lt;amp;&quot;gt;", "<amp;\"gt;"},
        Case{"DecodedAmpersandEndsAtTheNextSemicolon", "&amp; lt; lt;", "& lt; lt;"},
        Case{"LongCandidate", "&gt" + CString(100'000, 'x') + ";a", ">a"},
        Case{"EmbeddedZeroBytes", CString("\0&l\0t;&lt\0;\0", 12), CString("\0&l\0t;<\0", 8)},
        Case{"AmpersandWithoutSemicolon", "a & b", "a & b"},
        Case{"DecimalReferencesStay", "&#65;&#12354;", "&#65;&#12354;"},
        Case{"HexadecimalReferencesStay", "&#x41;&#X41;", "&#x41;&#X41;"},
        Case{"Unknown", "&copy;&eacute;", "&copy;&eacute;"}, Case{"Alone", "&;", "&;"}, Case{"Empty", "", ""}),
    NameOf);

TEST(Entities, NullBufferIsRefused) {
    unsigned length = 4;
    EXPECT_EQ(DecodeHtmlEntities(nullptr, &length), 0);
    EXPECT_EQ(length, 4U);
}

TEST(Entities, NothingBehindTheLengthIsRead) {
    for (const char* text : {"&am|p;", "&l|t;", "&lt|;", "&quo|t;", "&nbs|p;", "&APO|S;", "&minu|s;", "&|amp;"}) {
        std::string buffer = text;
        auto length = static_cast<unsigned>(buffer.find('|'));
        buffer.erase(length, 1);
        const std::string before = buffer;
        EXPECT_EQ(DecodeHtmlEntities(buffer.data(), &length), 1);
        EXPECT_EQ(length, std::string_view(text).find('|'));
        EXPECT_EQ(buffer, before);
    }
}

TEST(Entities, BufferIsShortenedInPlace) {
    char buffer[] = "x&lt;y and the rest";
    unsigned length = 6;
    EXPECT_EQ(DecodeHtmlEntities(buffer, &length), 1);
    EXPECT_EQ(std::string(buffer, length), "x<y");
}

// ---- the character filter

struct FilterCase {
    const char* name;
    CString source;
    CString characters;
    CString cut;
    CString compressed;
};

std::ostream& operator<<(std::ostream& out, const FilterCase& c) { return out << c.name; }

class Characters : public ::testing::TestWithParam<FilterCase> {};

TEST_P(Characters, AreCut) {
    CString text = GetParam().source;
    EXPECT_EQ(FilterCharacters(&text, 0, GetParam().characters), 1);
    EXPECT_EQ(text, GetParam().cut);
}

TEST_P(Characters, AreCompressed) {
    for (const int compress : {1, -7, 100}) {
        CString text = GetParam().source;
        EXPECT_EQ(FilterCharacters(&text, compress, GetParam().characters), 1);
        EXPECT_EQ(text, GetParam().compressed);
    }
}

const CString kWideBlank = "\x81\x40";

INSTANTIATE_TEST_SUITE_P(
    All, Characters,
    ::testing::Values(
        FilterCase{"BlanksAndLineEnds", "a  b\r\nc", "", "abc", "a b\r\nc"},
        FilterCase{"Tabs", "a\t\tb \tc", "", "abc", "a\tb \tc"},
        FilterCase{"FormFeedsAndVerticalTabs", "a\f\fb\v\vc", "", "a\f\fb\v\vc", "a\f\fb\v\vc"},
        FilterCase{"BlankLinesDisappear", "a\r\n\r\n\r\nb", "", "ab", "a\r\nb"},
        FilterCase{"LineFeedNeedsItsCarriageReturn", "a\nb\n\nc", "", "abc", "abc"},
        FilterCase{"LoneCarriageReturns", "a\r\rb\rc", "", "abc", "a\r\rb\rc"},
        FilterCase{"CarriageReturnBehindALineFeedGoes", "\r\n\ra", "", "a", "\r\na"},
        FilterCase{"ListedCharacters", "x" + kWideBlank + "xx" + kWideBlank + kWideBlank + "y", "x " + kWideBlank, "y",
                   "x" + kWideBlank + "x" + kWideBlank + "y"},
        FilterCase{"UnlistedRunsStay", "aa--" + kWideBlank + kWideBlank, "", "aa--" + kWideBlank + kWideBlank,
                   "aa--" + kWideBlank + kWideBlank},
        FilterCase{"DefaultList", "a---b,,c" + kWideBlank + kWideBlank + "d", "- , " + kWideBlank, "abcd",
                   "a-b,c" + kWideBlank + "d"},
        FilterCase{"DoubleByteEndsARunOfSingles", "-" + kWideBlank + "-", "-", kWideBlank, "-" + kWideBlank + "-"},
        FilterCase{"SingleEndsARunOfDoubles", kWideBlank + "a" + kWideBlank, kWideBlank, "a",
                   kWideBlank + "a" + kWideBlank},
        // What was dropped does not end a run.
        FilterCase{"DroppedLineFeedEndsNoRun", "-\n-", "-", "", "-"},
        FilterCase{"BrokenPairLosesBothBytes", CString("a\x81 b\x83\r\nc"), "", "abc", CString("abc")},
        FilterCase{"LeadByteAtTheEndGoes", "ab\x83", "", "ab", "ab"},
        FilterCase{"IllegalBytesGo",
                   "a\x80"
                   "b\xA0"
                   "c\xFD\xFE\xFF"
                   "d",
                   "", "abcd", "abcd"},
        FilterCase{"HalfWidthKatakanaStay", "\xB1\xB1\xDE", "", "\xB1\xB1\xDE", "\xB1\xB1\xDE"},
        FilterCase{"HalfWidthKatakanaCanBeListed", "\xB1\xB1\xB2", "\xB1", "\xB2", "\xB1\xB2"},
        FilterCase{"TrailBytesAreNotLookedUp", "\x83\x5C\x5C\x5C", "\x5C", "\x83\x5C", "\x83\x5C\x5C"},
        FilterCase{"LongTokensCountForNothing", "abcabc", "abc", "abcabc", "abcabc"},
        FilterCase{"TokenOfTwoSinglesCountsForNothing", "ababab", "ab", "ababab", "ababab"},
        FilterCase{"LeadByteAloneInTheListCountsForNothing", kWideBlank + kWideBlank, "\x81", kWideBlank + kWideBlank,
                   kWideBlank + kWideBlank},
        FilterCase{"ZeroBytesStay", CString("a\0\0b", 4), "", CString("a\0\0b", 4), CString("a\0\0b", 4)},
        FilterCase{"BlankBehindALineEndStays", "a\r\n b\r\n\tc", "", "abc", "a\r\n b\r\n\tc"},
        FilterCase{"LineFeedBehindADroppedByteStillHasItsCarriageReturn", "a\r\x80\nb", "", "ab", "a\r\nb"},
        FilterCase{"DoubleByteBetweenCarriageReturnAndLineFeed", "\r" + kWideBlank + "\n", "", kWideBlank,
                   "\r" + kWideBlank},
        FilterCase{"EmptyTokensCountForNothing", "a--b", "  -  ", "ab", "a-b"}, FilterCase{"Empty", "", "- ,", "", ""}),
    [](const auto& test) { return test.param.name; });

// ---- hostile input

TEST(HtmlText, EndlessInputsAreLinear) {
    const std::size_t size = 4 << 20;
    const auto begin = std::chrono::steady_clock::now();
    for (const char* unit : {"&", "<", "<!--", "&amp;", ">", "</p>", "&#x41", "\x81"}) {
        CString text;
        while (text.size() < size) text += unit;
        HtmlToText(&text);
        FilterCharacters(&text, 1, "- ,");
    }
    // Far above what a linear pass takes, far below what a quadratic one would.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

}  // namespace
}  // namespace tarvex
