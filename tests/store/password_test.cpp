// The scrambled form of passwords.

#include <gtest/gtest.h>

#include "tarvex/settings.h"

namespace tarvex {
namespace {

TEST(Password, EmptyPasswordIsStoredAsAnEmptyText) {
    EXPECT_EQ(EncodePassWord(""), "");
    EXPECT_EQ(DecodePassWord(""), "");
}

TEST(Password, StoredFormIsTheBase64OfTheComplementedBytes) {
    EXPECT_EQ(EncodePassWord("abc"), "np2c");  // 0x9E 0x9D 0x9C
    EXPECT_EQ(DecodePassWord("np2c"), "abc");
    EXPECT_EQ(EncodePassWord("a"), "ng==");
    EXPECT_EQ(EncodePassWord(CString(3, '\0')), "////");
}

TEST(Password, EveryByteSurvives) {
    for (int byte = 0; byte < 256; ++byte) {
        CString plain = "x";
        plain += static_cast<char>(byte);
        plain += 'y';
        EXPECT_EQ(DecodePassWord(EncodePassWord(plain)), plain) << byte;
    }
}

TEST(Password, EveryLastByteButFFSurvives) {
    for (int byte = 0; byte < 255; ++byte) {
        const CString plain = {'x', static_cast<char>(byte)};
        EXPECT_EQ(DecodePassWord(EncodePassWord(plain)), plain) << byte;
    }
}

TEST(Password, TrailingFFBytesAreLost) {
    EXPECT_EQ(DecodePassWord(EncodePassWord("x\xFF")), "x");
    EXPECT_EQ(DecodePassWord(EncodePassWord("x\xFF\xFF\xFF")), "x");
    EXPECT_EQ(DecodePassWord(EncodePassWord("x\xFFy\xFF")), "x\xFFy");
    EXPECT_EQ(DecodePassWord(EncodePassWord("\xFF\xFF")), "") << "the stripping stops when nothing is left";
}

TEST(Password, TrailingZeroBytesSurvive) {
    const CString plain("x\0\0", 3);
    EXPECT_EQ(DecodePassWord(EncodePassWord(plain)), plain);
}

TEST(Password, WhatCouldBeBase64IsDecoded) {
    EXPECT_EQ(DecodePassWord(" n p\t2\r\nc "), "abc");
    EXPECT_EQ(DecodePassWord("np2cng==np2c"), "abca") << "padding ends the text";
    EXPECT_EQ(DecodePassWord("np2cng"), "abca") << "padding may be missing";
    EXPECT_EQ(DecodePassWord("np2cng="), "abca");
}

TEST(Password, WhatCannotBeBase64IsAPasswordInClear) {
    for (const char* clear : {"pa$$word!", "!\"#", "np2c-", "np2cng==!", "x", "np2cn", "np2cn===", "=np2",
                              "np2c=", "\x93\xFA", "with blanks!",
                              "np2cng=="
                              "\xFF"}) {
        EXPECT_EQ(DecodePassWord(clear), clear);
    }
}

}  // namespace
}  // namespace tarvex
