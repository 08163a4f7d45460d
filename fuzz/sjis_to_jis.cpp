// Shift-JIS to ISO-2022-JP: 7-bit, and every escape sequence is one that was written here.

#include "fuzz/fuzz.h"
#include "platform/codec/japanese.h"
#include "tests/support/text_mail_invariants.h"

using namespace tarvex;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = fuzz::Input(data, size).Rest();
    int converted = 0;
    const auto convert = [&](const std::string* source, std::string* target) { converted = SJisToJis(source, target); };
    const std::string jis = fuzz::Converted(text, convert);
    fuzz::RequireNoFault(testing::JisFault(jis));
    fuzz::Require((converted != 0) == (jis.find('\x1B') != std::string::npos), "the result tells of escape sequences");
    const std::string back = fuzz::Converted(jis, JisToSJis);
    fuzz::Require(fuzz::Converted(back, convert) == jis, "what was converted comes back");
    return 0;
}
