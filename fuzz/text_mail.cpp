// The reduced text mail: everything that is promised of it, for every message. The first line: limit, white space,
// HTML, then the characters to compress.

#include <array>

#include "fuzz/fuzz.h"
#include "tarvex/tree.h"
#include "tests/support/text_mail_invariants.h"

using namespace tarvex;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::array<int, 5> kLimits = {-100, 0, 1, 30, 1000};
    fuzz::Input input(data, size);
    const int limit = kLimits[static_cast<std::size_t>(input.Choice(kLimits.size()))];
    const int white_space = input.Choice(3) - 1;
    const int html = input.Choice(2);
    const CString characters(input.Line());
    const std::string_view message = input.Rest();

    static CPopProfile profile;
    int reduced = 0;
    const std::string mail = fuzz::InPlace(
        message, [&](CString* both) { reduced = profile.CutAsTextmail(both, limit, white_space, html, characters); });
    const bool has_blank_line = message.find("\r\n\r\n") != std::string_view::npos;
    fuzz::Require(reduced == (has_blank_line ? 1 : 0), "every message with a blank line is reduced");
    if (reduced != 0) {
        fuzz::RequireNoFault(testing::TextMailFault(mail));
    } else {
        fuzz::Require(mail == message, "any other stays as it is");
    }
    return 0;
}
