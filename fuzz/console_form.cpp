// Forms of the web console: what is read writes back to the same, and is text.

#include "console/http/url_text.h"
#include "fuzz/fuzz.h"

using namespace tarvex;
using namespace tarvex::console;

namespace {

std::string Written(const Fields& fields) {
    std::string form;
    for (const Field& field : fields) {
        if (!form.empty()) form += '&';
        form += EncodeEscapes(field.name) + '=' + EncodeEscapes(field.value);
    }
    return form;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = fuzz::Input(data, size).Rest();
    const auto fields = ParseForm(text);
    if (!fields) return 0;
    fuzz::Require(fields->size() <= kMostFields, "no more fields than allowed");
    for (const Field& field : *fields)
        fuzz::Require(IsText(field.name) && IsText(field.value), "names and values are text");
    fuzz::Require(ParseForm(Written(*fields)) == fields, "what was read writes back to the same");
    return 0;
}
