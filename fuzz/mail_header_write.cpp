// Writing mail headers: strict, whatever the values hold, and what was written is read back. The first byte chooses the
// field.

#include <algorithm>
#include <array>

#include "fuzz/fuzz.h"
#include "platform/codec/japanese.h"
#include "platform/codec/mail_header.h"
#include "tests/support/text_mail_invariants.h"

using namespace tarvex;

namespace {

// As MakeMailInfo hands values on, in ISO-2022-JP.
std::string Value(std::string_view text) {
    std::string value(text);
    std::ranges::replace_if(
        value, [](unsigned char c) { return c < ' ' || c == 0x7F; }, ' ');
    SJisToJis(&value, &value);
    value.erase(0, value.find_first_not_of(' '));
    value.erase(value.find_last_not_of(' ') + 1);
    return value;
}

std::string SubjectOf(const std::string& header) {
    CMailInfo info;
    MakeMailInfo(header, &info);
    SJisToJis(&info.subject, &info.subject);
    return info.subject;
}

// Where a line is folded, the reader takes one blank for several.
std::string WithSingleBlanks(std::string text) {
    const auto both_blank = [](char a, char b) { return a == ' ' && b == ' '; };
    text.erase(std::unique(text.begin(), text.end(), both_blank), text.end());
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    constexpr std::array<const char*, 4> kNames = {"Subject: ", "From: ", "CC: ", "Date: "};
    const int choice = input.Choice(kNames.size());
    const std::string value = Value(input.Rest());
    const std::string header = kNames[static_cast<std::size_t>(choice)] + value + "\r\nMIME-Version: 1.0";
    const std::string encoded = fuzz::Converted(header, EncodeMailHeader);
    fuzz::RequireNoFault(testing::HeaderFault(encoded));

    std::size_t fields = 0;
    for (std::size_t at = 0; at != std::string::npos; at = encoded.find("\r\n", at + 1)) {
        if (at == 0 || encoded[at + 2] != ' ') ++fields;
    }
    fuzz::Require(fields == 2, "no value begins a header line");
    if (choice == 0) {
        fuzz::Require(WithSingleBlanks(SubjectOf(encoded)) == WithSingleBlanks(value), "what was written is read back");
    }
    return 0;
}
