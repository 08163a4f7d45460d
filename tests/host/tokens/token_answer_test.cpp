// What counts as a token in the answer of a provider or a program.

#include "host/tokens/token_answer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tarvex::host {
namespace {

constexpr long long kYear_s = 366LL * 24 * 60 * 60;

TEST(TokenAnswer, SaysHowLongTheTokenLives) {
    const std::vector<std::pair<std::string, long long>> cases = {
        {"3600", 3600}, {"\"3600\"", 3600}, {"59.9", 59},   {"-5", 0},
        {"\"-5\"", 0},  {"1e300", kYear_s}, {"\"1e9\"", 0}, {"99999999999999999999", kYear_s},
        {"null", 0},    {"[]", 0},          {"\"\"", 0},    {"\"999999999999\"", kYear_s}};
    for (const auto& [expires_in, seconds] : cases) {
        TokenAnswer answer;
        EXPECT_TRUE(ReadTokenAnswer(R"({"access_token":"t","expires_in":)" + expires_in + '}', answer)) << expires_in;
        EXPECT_EQ(answer.expires_in, seconds) << expires_in;
    }
}

// It goes into a login, where a control character would begin the next field, and a line end the next command.
TEST(TokenAnswer, HoldsNoTokenThatCannotStandInALogin) {
    for (const std::string& token : {std::string("a\\r\\nb"), std::string("a\\u0000b"), std::string("a\\u0001auth=b"),
                                     std::string("a b"), std::string("\\u00e9"), std::string("a\\u007f"), std::string(),
                                     std::string(1 << 20, 'a'), std::string((16 << 10) + 1, 'a')}) {
        TokenAnswer answer;
        EXPECT_FALSE(ReadTokenAnswer(R"({"access_token":")" + token + "\"}", answer)) << token.substr(0, 20);
        EXPECT_TRUE(
            ReadTokenAnswer(R"({"access_token":"t","refresh_token":")" + token.substr(0, 17000) + "\"}", answer));
        EXPECT_EQ(answer.refresh_token, "");
    }
    TokenAnswer answer;
    EXPECT_TRUE(ReadTokenAnswer(R"({"access_token":")" + std::string(16 << 10, 'a') + "\"}", answer));
}

TEST(TokenAnswer, IsNoneInAnotherForm) {
    for (const char* const other : {"", "t", "7", "[]", "null", "\"t\"", "{}", "{\"access_token\":",
                                    "{\"access_token\":{}}", "{\"access_token\":\"\xFF\"}", "{\"error\":7}"}) {
        TokenAnswer answer;
        EXPECT_FALSE(ReadTokenAnswer(other, answer)) << other;
    }
}

}  // namespace
}  // namespace tarvex::host
