// ISO-2022-JP to Shift-JIS.

#include "fuzz/fuzz.h"
#include "platform/codec/japanese.h"

using namespace tarvex;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = fuzz::Input(data, size).Rest();
    const std::string converted = fuzz::Converted(text, JisToSJis);
    fuzz::Require(converted.size() <= text.size(), "never longer than its source");
    fuzz::Require(converted == text || text.find('\x1B') != std::string_view::npos, "without ESC everything passes");
    return 0;
}
