// The readable text of a message: that of a literal walk through its parts. The first byte says whether HTML is taken.

#include "fuzz/fuzz.h"
#include "tests/support/literal_walk.h"

using namespace tarvex;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kMaxLiteralBytes = 2048;  // the literal walk is quadratic
    fuzz::Input input(data, size);
    const bool accept_html = input.Choice(2) != 0;
    const std::string_view message = input.Rest();
    const CString text = PickReadableText(message, accept_html);
    fuzz::Require(text.empty() || text.find_first_not_of("\t\n\r ") != CString::npos,
                  "more than white space, or nothing");
    if (message.size() <= kMaxLiteralBytes) {
        fuzz::Require(testing::LiteralWalk(CString(message), accept_html) == text, "the text of a literal walk");
    }
    return 0;
}
