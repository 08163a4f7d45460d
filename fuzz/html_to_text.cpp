// HTML to text.

#include "fuzz/fuzz.h"
#include "rewrite/html_text.h"

using namespace tarvex;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view html = fuzz::Input(data, size).Rest();
    const std::string text = fuzz::InPlace(html, HtmlToText);
    // A ">" alone ends a tag again, and may stand for a line end.
    fuzz::Require(text.size() <= 2 * html.size(), "two bytes for a byte at most");
    if (html.find('>') == std::string_view::npos) {
        fuzz::Require(text.size() <= html.size(), "never longer than its source without a tag");
        fuzz::Require(text.find_first_of("\t\r\n") == std::string::npos, "no white space of the source is left");
    }
    return 0;
}
