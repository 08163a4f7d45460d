// Uuencode: never longer than its source, and what was encoded comes back.

#include <algorithm>

#include "fuzz/fuzz.h"
#include "platform/codec/transfer_encoding.h"

using namespace tarvex;

namespace {

char Digit(unsigned bits) { return static_cast<char>(' ' + (bits & 63)); }

std::string Encoded(std::string_view bytes) {
    std::string text = "begin 644 a\r\n";
    while (!bytes.empty()) {
        const std::string_view line = bytes.substr(0, 45);
        bytes.remove_prefix(line.size());
        const auto at = [line](std::size_t i) -> unsigned {
            return i < line.size() ? static_cast<unsigned char>(line[i]) : 0;
        };
        text += Digit(static_cast<unsigned>(line.size()));
        for (std::size_t i = 0; i < line.size(); i += 3) {
            const unsigned group = at(i) << 16 | at(i + 1) << 8 | at(i + 2);
            for (const unsigned shift : {18, 12, 6, 0}) text += Digit(group >> shift);
        }
        text += "\r\n";
    }
    return text + " \r\nend\r\n";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = fuzz::Input(data, size).Rest();
    fuzz::Require(fuzz::Converted(text, UUDecode).size() <= text.size() * 63, "at most a line's bytes for each byte");
    fuzz::Require(fuzz::Converted(Encoded(text), UUDecode) == text, "what was encoded comes back");
    return 0;
}
