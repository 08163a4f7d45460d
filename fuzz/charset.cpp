// Named character sets of mail headers: one line with the name, then the text.

#include "platform/codec/charset.h"

#include "fuzz/fuzz.h"

using namespace tarvex;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string_view charset = input.Line();
    const std::string text(input.Rest());
    CharsetConverter converter;
    const std::optional<std::string> converted = converter.ToSJis(charset, text);
    // A converter of the system's keeps a state.
    static_cast<void>(converter.ToSJis(charset, text.substr(0, text.size() / 2)));
    fuzz::Require(converter.ToSJis(charset, text) == converted, "the same result at each call");
    return 0;
}
