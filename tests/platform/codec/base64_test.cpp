// Base64, compared with the examples of RFC 4648 and with OpenSSL's.

#include "platform/codec/base64.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <random>
#include <string>

namespace tarvex {

namespace {

using namespace std::string_literals;

std::string Encode(const std::string& source) {
    std::string target = "left over";
    Base64Encode(&source, &target);
    return target;
}

std::string Decode(const std::string& source) {
    std::string target = "left over";
    Base64Decode(&source, &target);
    return target;
}

std::string RandomBytes(std::mt19937& random, std::size_t bytes) {
    std::string result;
    while (result.size() < bytes) result += static_cast<char>(random() & 0xFFU);
    return result;
}

std::string EncodeWithOpenSsl(const std::string& source) {
    std::string target((source.size() + 2) / 3 * 4 + 1, '\0');
    const int length =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(target.data()),
                        reinterpret_cast<const unsigned char*>(source.data()), static_cast<int>(source.size()));
    target.resize(static_cast<std::size_t>(length));
    return target;
}

TEST(Base64, ExamplesOfTheStandardGoBothWays) {
    const struct {
        std::string plain, encoded;
    } cases[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
        {"\0"s, "AA=="},
        {"\0user\0password"s, "AHVzZXIAcGFzc3dvcmQ="},
        {"\x9E\x9D\x9C", "np2c"},
        {"\xFB\xEF\xBE\xFF\xFF\xFF", "++++////"},
    };
    for (const auto& [plain, encoded] : cases) {
        EXPECT_EQ(Encode(plain), encoded);
        EXPECT_EQ(Decode(encoded), plain);
    }
}

TEST(Base64, EncodingAgreesWithOpenSslAndDecodingUndoesIt) {
    std::mt19937 random(4648);  // NOLINT(bugprone-random-generator-seed): the same bytes each time
    for (std::size_t bytes = 0; bytes < 600; ++bytes) {
        const std::string plain = RandomBytes(random, bytes);
        const std::string encoded = Encode(plain);
        ASSERT_EQ(encoded, EncodeWithOpenSsl(plain));
        ASSERT_EQ(Decode(encoded), plain);
    }
}

TEST(Base64, LongTextsHaveNoLineBreaks) {
    const std::string encoded = Encode(std::string(100'000, 'x'));
    EXPECT_EQ(encoded.find_first_of("\r\n"), std::string::npos);
    EXPECT_EQ(encoded.size(), 133'336U);
}

TEST(Base64, DecodingSkipsCharactersOutsideTheAlphabet) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=";
    for (int i = 0; i < 256; ++i) {
        const char c = static_cast<char>(i);
        if (alphabet.find(c) != std::string::npos) continue;
        EXPECT_EQ(Decode("Zm"s + c + "9v"), "foo") << i;
        EXPECT_EQ(Decode(c + "Zm9v"s + c + c), "foo") << i;
    }
    EXPECT_EQ(Decode("Zm9v\r\nYmFy\r\n"), "foobar");
    EXPECT_EQ(Decode("-_!"), "");
}

TEST(Base64, DecodingStopsAtPaddingThatCompletesAQuantum) {
    const struct {
        std::string encoded, plain;
    } cases[] = {
        {"Zg==Zm9v", "f"},         {"Zm8=Zm9v", "fo"}, {"Zm9vZg==Zm9v", "foof"},
        {"Zg\r\n=\r\n=Zm9v", "f"}, {"Zg=", "f"},       {"Zm9vYg", "foob"},
    };
    for (const auto& [encoded, plain] : cases) EXPECT_EQ(Decode(encoded), plain) << encoded;
}

TEST(Base64, OtherPaddingIsSkipped) {
    const struct {
        std::string encoded, plain;
    } cases[] = {
        {"=", ""}, {"=Zm9v", "foo"}, {"Z=m9v", "foo"}, {"Zm9v=YmFy", "foobar"}, {"Zm=9v", "foo"},
    };
    for (const auto& [encoded, plain] : cases) EXPECT_EQ(Decode(encoded), plain) << encoded;
}

TEST(Base64, BitsThatDoNotFillAByteAreDropped) {
    const struct {
        std::string encoded, plain;
    } cases[] = {
        {"Z", ""}, {"Zg", "f"}, {"Zm8", "fo"}, {"Zh==", "f"}, {"Zm9", "fo"}, {"Zm9vY", "foo"}, {"//8", "\xFF\xFF"},
    };
    for (const auto& [encoded, plain] : cases) EXPECT_EQ(Decode(encoded), plain) << encoded;
}

TEST(Base64, SourceAndTargetMayBeTheSameString) {
    std::string text = "foobar";
    Base64Encode(&text, &text);
    EXPECT_EQ(text, "Zm9vYmFy");
    Base64Decode(&text, &text);
    EXPECT_EQ(text, "foobar");
}

}  // namespace

}  // namespace tarvex
