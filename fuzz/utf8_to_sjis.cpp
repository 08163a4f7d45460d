// UTF-8 to Shift-JIS.

#include "fuzz/fuzz.h"
#include "fuzz/sjis.h"
#include "platform/codec/japanese.h"

using namespace tarvex;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = fuzz::Input(data, size).Rest();
    const std::string converted = fuzz::Converted(text, Utf8ToSJis);
    fuzz::Require(converted.size() <= 4 * text.size(), "never longer than four times its source");
    fuzz::Require(fuzz::HoldsWholeCharacters(converted), "whole characters");
    static_cast<void>(IsUtf8(text));
    return 0;
}
