// The character filter. The first byte says cut or compress, the first line holds the characters.

#include "fuzz/fuzz.h"
#include "fuzz/sjis.h"
#include "rewrite/html_text.h"

using namespace tarvex;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const int compress = input.Choice(2);
    const CString characters(input.Line());
    const std::string_view text = input.Rest();
    const auto filter = [&](CString* both) { FilterCharacters(both, compress, characters); };
    const std::string filtered = fuzz::InPlace(text, filter);
    fuzz::Require(filtered.size() <= text.size(), "never longer than its source");
    fuzz::Require(fuzz::HoldsWholeCharacters(filtered), "whole characters");
    fuzz::Require(fuzz::InPlace(filtered, filter) == filtered, "nothing is left to filter");
    if (compress == 0) {
        fuzz::Require(filtered.find_first_of("\t\n\r ") == std::string::npos, "no white space is left");
    }
    return 0;
}
