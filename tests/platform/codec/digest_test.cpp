// The digests of APOP and CRAM-MD5.

#include "platform/codec/digest.h"

#include <gtest/gtest.h>

#include <string>

namespace tarvex {
namespace {

TEST(Digest, Md5HasTheValuesOfRfc1321) {
    EXPECT_EQ(Md5Hex(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(Md5Hex("a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(Md5Hex("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(Md5Hex("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
              "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Digest, Md5HasTheValueOfTheApopExampleInRfc1939) {
    EXPECT_EQ(Md5Hex("<1896.697170952@dbc.mtview.ca.us>tanstaaf"), "c4c9334bac560ecc979e58001b3e22fb");
}

TEST(Digest, Md5CountsZeroBytes) { EXPECT_EQ(Md5Hex(std::string(1, '\0')), "93b885adfe0da089cdf634904fd59f71"); }

TEST(Digest, HmacHasTheValuesOfRfc2104) {
    EXPECT_EQ(HmacMd5Hex(std::string(16, '\x0b'), "Hi There"), "9294727a3638bb1c13f48ef8158bfc9d");
    EXPECT_EQ(HmacMd5Hex("Jefe", "what do ya want for nothing?"), "750c783e6ab0b503eaa86e310a5db738");
    EXPECT_EQ(HmacMd5Hex(std::string(16, '\xaa'), std::string(50, '\xdd')), "56be34521d144c88dbb8c733f0e8b3f6");
}

TEST(Digest, HmacHasTheValueOfTheExampleInRfc2195) {
    EXPECT_EQ(HmacMd5Hex("tanstaaftanstaaf", "<1896.697170952@postoffice.reston.mci.net>"),
              "b913a602c7eda7a495b4e6e7334d3890");
}

TEST(Digest, HmacTakesAnEmptyAndAnOverlongKey) {
    EXPECT_EQ(HmacMd5Hex("", ""), "74e6f7298a9c2d168935f58c001bad88");
    EXPECT_EQ(HmacMd5Hex(std::string(80, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First"),
              "6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd");
}

}  // namespace
}  // namespace tarvex
