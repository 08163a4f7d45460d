// What the system says of errors.

#include "host/system/error_words.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

TEST(ErrorWords, AreUtf8InOneLine) {
    for (int code = 1; code < 130; ++code) {
        const std::string words = host::WordsOf({code, std::system_category()});
        EXPECT_NE(words, "") << code;
        EXPECT_EQ(words.find('\n'), std::string::npos) << code;
        ExpectFitForATerminal(words);
    }
}

}  // namespace
}  // namespace tarvex::testing
