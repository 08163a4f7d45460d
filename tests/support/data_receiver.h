#pragma once

// A server that receives DATA, strict about line ends, and the message that a text means, written without a look at the
// framing. For tests and fuzz targets.

#include <string>
#include <string_view>
#include <vector>

#include "platform/net/framing.h"

namespace tarvex::testing {

// A line as it stands in a text, and whether a true CR LF (or the beginning) precedes it.
struct TextLine {
    std::string content;
    bool after_true_line_end;
};

inline std::vector<TextLine> LinesOf(std::string_view text) {
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

// The lines of the message that a text means.
inline std::vector<std::string> MeantLines(std::string_view text, DataForm form) {
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

// Reads what follows DATA. What is left when the message has ended must be nothing.
struct DataReceiver {
    std::vector<std::string> message;
    std::string complaint;

    explicit DataReceiver(std::string_view wire) {
        for (std::size_t begin = 0;;) {
            const std::size_t end = wire.find("\r\n", begin);
            if (end == std::string_view::npos) {
                complaint = "no terminator";
                return;
            }
            const std::string_view line = wire.substr(begin, end - begin);
            begin = end + 2;
            if (line.find_first_of("\r\n") != std::string_view::npos) complaint = "a bare CR or LF";
            if (line == ".") {
                if (begin != wire.size()) complaint = "something behind the terminator";
                return;
            }
            message.emplace_back(line.starts_with('.') ? line.substr(1) : line);
        }
    }
};

// What is wrong when a server takes the framed text; empty when it takes exactly the message that the text means.
inline std::string FramingFault(std::string_view text, DataForm form) {
    std::string scratch;
    const DataReceiver receiver(std::string(FrameData(text, form, scratch)) + ".\r\n");
    if (!receiver.complaint.empty()) return receiver.complaint;
    return receiver.message == MeantLines(text, form) ? "" : "the server takes another message";
}

}  // namespace tarvex::testing
