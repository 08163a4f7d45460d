// Framing: whatever the text holds, a server takes exactly one message, and what it unstuffs is the message.

#include "platform/net/framing.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "tests/support/data_receiver.h"

namespace tarvex {
namespace {

std::string Framed(std::string_view text, DataForm form) {
    std::string scratch;
    return std::string(FrameData(text, form, scratch));
}

std::string Shown(const std::string& text) {
    std::string shown;
    for (const char c : text) shown += c == '\r' ? "<CR>" : c == '\n' ? "<LF>" : std::string(1, c);
    return shown;
}

void ExpectSafeFraming(const std::string& text, DataForm form) {
    ASSERT_EQ(testing::FramingFault(text, form), "") << Shown(text);
}

void ExpectSafeFramingOfAll(const std::string& prefix, std::size_t length, DataForm form) {
    ExpectSafeFraming(prefix, form);
    if (length == 0 || ::testing::Test::HasFatalFailure()) return;
    for (const char c : {'a', '.', '\r', '\n'}) ExpectSafeFramingOfAll(prefix + c, length - 1, form);
}

TEST(Framing, EveryShortFetchedTextArrivesAsOneMessage) { ExpectSafeFramingOfAll("", 8, DataForm::Fetched); }

TEST(Framing, EveryShortUnstuffedTextArrivesAsOneMessage) { ExpectSafeFramingOfAll("", 8, DataForm::NotStuffed); }

struct Example {
    std::string text;
    std::string fetched;
    std::string not_stuffed;
};

TEST(Framing, Examples) {
    const std::vector<Example> examples = {
        {"", "", ""},
        {".\r\n", "", ""},
        {"\r\n.\r\n", "\r\n", "\r\n"},
        {"a\r\n.\r\n", "a\r\n", "a\r\n"},
        {"a", "a\r\n", "a\r\n"},
        {"a\r\n", "a\r\n", "a\r\n"},
        // only the last terminator is one
        {"a\r\n.\r\n.\r\n", "a\r\n..\r\n", "a\r\n..\r\n"},
        {"a\r\n.\r\nMAIL FROM:<x>\r\n.\r\n", "a\r\n..\r\nMAIL FROM:<x>\r\n", "a\r\n..\r\nMAIL FROM:<x>\r\n"},
        // a terminator follows a true line end
        {"a\n.\r\n", "a\r\n..\r\n", "a\r\n..\r\n"},
        {"a\r.\r\n", "a\r\n..\r\n", "a\r\n..\r\n"},
        {"a\r\n.", "a\r\n..\r\n", "a\r\n..\r\n"},
        {"a\r\n.\n", "a\r\n..\r\n", "a\r\n..\r\n"},
        {"a\r\n.\r", "a\r\n..\r\n", "a\r\n..\r\n"},
        // what the server stuffed stays as it came
        {"..a\r\n.b\r\n...\r\n.\r\n", "..a\r\n.b\r\n...\r\n", "...a\r\n..b\r\n....\r\n"},
        // bare line ends
        {"a\nb\rc\r\n.\r\n", "a\r\nb\r\nc\r\n", "a\r\nb\r\nc\r\n"},
        {"a\n.b\r.c\r\n", "a\r\n..b\r\n..c\r\n", "a\r\n..b\r\n..c\r\n"},
        {"a\r\r\nb", "a\r\n\r\nb\r\n", "a\r\n\r\nb\r\n"},
        {"a\n\rb", "a\r\n\r\nb\r\n", "a\r\n\r\nb\r\n"},
        {"\n", "\r\n", "\r\n"},
        {"\r", "\r\n", "\r\n"},
    };
    for (const Example& example : examples) {
        EXPECT_EQ(Framed(example.text, DataForm::Fetched), example.fetched) << Shown(example.text);
        EXPECT_EQ(Framed(example.text, DataForm::NotStuffed), example.not_stuffed) << Shown(example.text);
    }
}

TEST(Framing, WellFormedTextIsNotCopied) {
    const std::string text = "Subject: x\r\n\r\n..stuffed\r\nlast\r\n.\r\n";
    std::string scratch;
    const std::string_view framed = FrameData(text, DataForm::Fetched, scratch);
    EXPECT_EQ(framed.data(), text.data());
    EXPECT_EQ(framed.size(), text.size() - 3);
    EXPECT_TRUE(scratch.empty());
}

TEST(Framing, ZeroBytesAndHighBytesStay) {
    const std::string text("a\0b\xff\x81\r\n\0\r\n.\r\n", 13);
    EXPECT_EQ(Framed(text, DataForm::Fetched), text.substr(0, 10));
    EXPECT_EQ(Framed(text, DataForm::NotStuffed), text.substr(0, 10));
}

TEST(Framing, UsedScratchIsOverwritten) {
    std::string scratch = "left over";
    EXPECT_EQ(FrameData("a\nb", DataForm::Fetched, scratch), "a\r\nb\r\n");
    EXPECT_EQ(FrameData("c", DataForm::Fetched, scratch), "c\r\n");
}

}  // namespace
}  // namespace tarvex
