// Framing: whatever the text holds, a server takes exactly one message, and what it unstuffs is the message.

#include "platform/net/framing.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace tarvex {
namespace {

std::string Framed(std::string_view text, DataForm form) {
    std::string scratch;
    return std::string(FrameData(text, form, scratch));
}

// A line as it stands in a text, and whether a true CR LF (or the beginning) precedes it.
struct TextLine {
    std::string content;
    bool after_true_line_end;
};

std::vector<TextLine> LinesOf(const std::string& text) {
    std::vector<TextLine> lines;
    std::string line;
    bool after_true_line_end = true;
    bool open = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        open = true;
        if (text[i] != '\r' && text[i] != '\n') {
            line += text[i];
            continue;
        }
        lines.push_back({line, after_true_line_end});
        line.clear();
        open = false;
        after_true_line_end = text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
        if (after_true_line_end) ++i;
    }
    if (open) lines.push_back({line, after_true_line_end});
    return lines;
}

// The lines of the message that a text means, written without a look at the framing.
std::vector<std::string> MeantLines(const std::string& text, DataForm form) {
    std::vector<TextLine> lines = LinesOf(text);
    const bool has_terminator = text == ".\r\n" || (text.size() >= 5 && text.substr(text.size() - 5) == "\r\n.\r\n");
    if (has_terminator) lines.pop_back();
    std::vector<std::string> meant;
    for (const TextLine& line : lines) {
        const bool stuffed =
            form == DataForm::Fetched && line.after_true_line_end && line.content.size() > 1 && line.content[0] == '.';
        meant.push_back(stuffed ? line.content.substr(1) : line.content);
    }
    return meant;
}

// A receiving server, strict about line ends, that reads what follows DATA. What it has left must be nothing.
struct Receiver {
    std::vector<std::string> message;
    std::string complaint;

    explicit Receiver(std::string wire) {
        for (;;) {
            const std::size_t end = wire.find("\r\n");
            if (end == std::string::npos) {
                complaint = "no terminator";
                return;
            }
            std::string line = wire.substr(0, end);
            wire.erase(0, end + 2);
            if (line.find_first_of("\r\n") != std::string::npos) complaint = "a bare CR or LF";
            if (line == ".") break;
            message.push_back(line[0] == '.' ? line.substr(1) : line);
        }
        if (!wire.empty()) complaint = "something behind the terminator: " + wire;
    }
};

std::string Shown(const std::string& text) {
    std::string shown;
    for (const char c : text) shown += c == '\r' ? "<CR>" : c == '\n' ? "<LF>" : std::string(1, c);
    return shown;
}

void ExpectSafeFraming(const std::string& text, DataForm form) {
    const Receiver receiver(Framed(text, form) + ".\r\n");
    ASSERT_EQ(receiver.complaint, "") << Shown(text);
    ASSERT_EQ(receiver.message, MeantLines(text, form)) << Shown(text);
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
