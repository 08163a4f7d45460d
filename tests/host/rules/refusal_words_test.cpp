// Which words of a refusal stay the same from message to message, and what they are about.

#include "host/held/refusal_words.h"

#include <gtest/gtest.h>

#include <string>

namespace tarvex::host {
namespace {

TEST(RefusalWords, LeaveOutWhatDiffersFromMessageToMessage) {
    struct Case {
        const char* reply;
        const char* words;
    };
    for (const Case& one : {
             Case{"554 5.7.1 id=ABC123 rejected", "554 5.7.1 rejected"},
             {"554 5.7.1 id=DEF456 rejected", "554 5.7.1 rejected"},
             {"554 no", "554 no"},
             {"550", "550"},
             {"550 5.1.1 <bob@x.test>: Recipient address rejected", "550 5.1.1 Recipient address rejected"},
             {"550-5.7.1 [192.0.2.7      12] Our system has detected\r\n550 5.7.1 spam. a1b2c3si4567.89 - gsmtp",
              "550 5.7.1 Our system has detected spam. - gsmtp"},
             {"554-Blocked, see\n554 https://x.test/192.0.2.7", "554 Blocked, see"},
             {"451 4.7.1 Try again at Sun, 22 Nov 2026 10:00:01 +0000", "451 4.7.1 Try again at"},
             {"550 4XyZbC1qGHz3:\tblocked", "550 blocked"},
             {"5.7.1 no code", "5.7.1 no code"},
             {"554 2001:db8::1 blocked", "554 blocked"},
             {"554 12.7.1 blocked", "554 blocked"},
             {"554 it is refused by 5.7.1", "554 it is refused by"},
             {"no digits at all", "no digits at all"},
             {"", ""},
         }) {
        EXPECT_EQ(StableWords(one.reply), one.words) << one.reply;
    }
    EXPECT_NE(StableWords("554 5.7.1 no"), StableWords("554 5.7.0 no"));
    EXPECT_NE(StableWords("554 no"), StableWords("550 no"));
}

TEST(RefusalWords, OfALongReplyAreItsBeginning) {
    std::string reply = "554";
    for (int i = 0; i < 10'000; ++i) reply += "\r\n554-aaaa bbbb";
    EXPECT_EQ(StableWords(reply).size(), 300U);
    EXPECT_EQ(StableWords("554 " + std::string(1'000'000, 'x')).size(), 300U);
}

TEST(RefusalWords, SayWhetherTheRecipientIsTheMatter) {
    for (const char* reply : {"550 5.1.1 no such user", "550-5.1.10 none\r\n550 5.7.1 x", "452 4.2.2 full"})
        EXPECT_TRUE(IsAboutTheRecipient(reply)) << reply;
    for (const char* reply : {"550 5.7.1 blocked", "550 no such user", "550", "", "554 5.0.0 5.1.1", "550 51.1 x"})
        EXPECT_FALSE(IsAboutTheRecipient(reply)) << reply;
}

}  // namespace
}  // namespace tarvex::host
