// Quoted-printable: never longer than its source, and what was encoded comes back.

#include "fuzz/fuzz.h"
#include "platform/codec/transfer_encoding.h"

using namespace tarvex;

namespace {

std::string Encoded(std::string_view text) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string encoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        encoded += '=';
        encoded += kDigits[byte >> 4];
        encoded += kDigits[byte & 15];
        if (i % 20 == 19) encoded += "= \t\r\n";
    }
    return encoded;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = fuzz::Input(data, size).Rest();
    const std::string decoded = fuzz::Converted(text, QuotedPrintableDecode);
    fuzz::Require(decoded.size() <= text.size(), "never longer than its source");
    fuzz::Require(decoded == text || text.find('=') != std::string_view::npos, "only \"=\" has a meaning");
    fuzz::Require(fuzz::Converted(Encoded(text), QuotedPrintableDecode) == text, "what was encoded comes back");
    return 0;
}
