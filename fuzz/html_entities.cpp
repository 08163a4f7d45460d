// Character entities: as a literal, slow decoder replaces them.

#include <algorithm>
#include <array>

#include "fuzz/fuzz.h"
#include "platform/codec/text.h"
#include "rewrite/html_text.h"

using namespace tarvex;

namespace {

char Result(const std::string& name) {
    const std::string letters = ToLower(name);
    if (letters.starts_with("amp")) return '&';
    if (letters.starts_with("quot")) return '"';
    if (letters.starts_with("lt")) return '<';
    if (letters.starts_with("gt")) return '>';
    if (letters.starts_with("nbsp")) return ' ';
    if (letters.starts_with("apo") && name.size() > 3 && (name[3] == 'a' || name[3] == 'S')) return '\'';
    if (letters.starts_with("minus")) return '-';
    return 0;
}

std::string Literal(std::string text) {
    std::size_t start = std::string::npos;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '&') start = i;
        if (text[i] != ';' || start == std::string::npos) continue;
        if (const char result = Result(text.substr(start + 1, i - start - 1)); result != 0) {
            text.replace(start, i - start + 1, 1, result);
            i = start - 1;  // scanned again from the replaced character
        }
        start = std::string::npos;
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kMaxLiteralBytes = 4096;
    const std::string_view text = fuzz::Input(data, size).Rest();
    const std::string decoded = fuzz::InPlace(text, DecodeHtmlEntitiesInText);
    fuzz::Require(decoded.size() <= text.size(), "never longer than its source");
    if (text.size() <= kMaxLiteralBytes) fuzz::Require(decoded == Literal(std::string(text)), "as a literal decoder");

    // A buffer of exactly its length.
    std::vector<char> buffer(text.begin(), text.end());
    auto length = static_cast<unsigned>(buffer.size());
    fuzz::Require(DecodeHtmlEntities(buffer.data(), &length) == (buffer.data() ? 1 : 0), "only a null buffer fails");
    fuzz::Require(std::string_view(buffer.data(), length) == decoded, "the same in a buffer");
    return 0;
}
