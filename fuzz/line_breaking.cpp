// Breaking the long lines of a text mail: unbroken again it is the same text.

#include "platform/codec/line_breaking.h"

#include "fuzz/fuzz.h"
#include "platform/codec/japanese.h"
#include "tests/support/text_mail_invariants.h"

using namespace tarvex;

namespace {

// As Shift-JIS, without its line ends.
std::string Unbroken(std::string jis) {
    std::erase_if(jis, [](char c) { return c == '\r' || c == '\n'; });
    JisToSJis(&jis, &jis);
    return jis;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text;
    for (std::string_view piece = fuzz::Input(data, size).Rest(); text.size() < 5000 && !piece.empty();) text += piece;
    SJisToJis(&text, &text);
    const std::string broken = fuzz::Converted(text, BreakLongLines);
    fuzz::RequireNoFault(testing::JisFault(broken));
    fuzz::Require(Unbroken(broken) == Unbroken(text), "unbroken again it is the same text");
    for (std::string_view rest = broken; !rest.empty();) {
        const std::size_t end = std::min(rest.find_first_of("\r\n"), rest.size());
        fuzz::Require(end <= kMaxLine_bytes, "no line that a relay breaks");
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return 0;
}
