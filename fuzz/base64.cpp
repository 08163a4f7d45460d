// Base64: every text has a decoded form, and what was encoded comes back.

#include "platform/codec/base64.h"

#include "fuzz/fuzz.h"

using namespace tarvex;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = fuzz::Input(data, size).Rest();
    const std::string decoded = fuzz::Converted(text, Base64Decode);
    fuzz::Require(decoded.size() <= text.size() / 4 * 3 + 2, "three bytes from four digits");

    std::string encoded = fuzz::Converted(text, Base64Encode);
    fuzz::Require(encoded.size() == (text.size() + 2) / 3 * 4, "four digits for three bytes");
    fuzz::Require(fuzz::Converted(encoded, Base64Decode) == text, "what was encoded comes back");
    for (std::size_t at = 0; at < encoded.size(); at += 5) encoded.insert(at, "\r\n");
    fuzz::Require(fuzz::Converted(encoded, Base64Decode) == text, "line ends are skipped");
    return 0;
}
