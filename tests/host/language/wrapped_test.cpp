// Text in lines: Japanese has no blanks to break them at.

#include <gtest/gtest.h>

#include <string>

#include "host/terminal/table.h"

namespace tarvex::host {
namespace {

TEST(Wrapped, BreaksEnglishAtBlanksAlone) {
    EXPECT_EQ(Wrapped("one two three", 7), "one two\nthree");
    EXPECT_EQ(Wrapped("unbreakable", 4), "unbreakable");
    EXPECT_EQ(Wrapped("write (`a b c`) now", 9), "write\n(`a b c`)\nnow");
    EXPECT_EQ(Wrapped("`a b c d` e`", 6), "`a b c\nd` e`");
    EXPECT_EQ(Wrapped("", 4), "");
}

TEST(Wrapped, BreaksJapaneseBesideEachCharacter) {
    EXPECT_EQ(Wrapped("会議室の予約", 6), "会議室\nの予約");
    EXPECT_EQ(Wrapped("会議室", 5), "会議\n室");
    EXPECT_EQ(Wrapped("表示はlist", 6), "表示は\nlist");
    EXPECT_EQ(Wrapped("表示 list を", 6), "表示\nlist\nを");
}

TEST(Wrapped, LetsNoLineBeginWithAMarkThatEndsAndNoneEndWithOneThatBegins) {
    EXPECT_EQ(Wrapped("会議室、予約。", 6), "会議\n室、予\n約。");
    EXPECT_EQ(Wrapped("会議（室）と", 6), "会議\n（室）\nと");
    EXPECT_EQ(Wrapped("サーバー", 6), "サー\nバー");
    EXPECT_EQ(Wrapped("会議 PROFILE。", 8), "会議\nPROFILE。");
}

}  // namespace
}  // namespace tarvex::host
